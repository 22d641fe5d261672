#ifndef TESTS_FAULTS_RUNNER_H
#define TESTS_FAULTS_RUNNER_H

#include <exception>
#include <functional>
#include <new>
#include <string>

#include "TavrenError.h"
#include "TavrenExceptions.h"

/* What is tried with every call failing in turn. Each try is a process of its own. */
struct Scenario {
  std::function<void()> prepare; /* with nothing failing */
  std::function<std::string()> run;
  std::function<void()> clean; /* with nothing failing: what a caller does afterwards, whatever came of it */
};

/* Returns "success", or what action throws in the words of the reports. */
template <class Action>
std::string outcome_of(Action action) {
  try {
    action();
    return "success";
  } catch (const TavrenError& error) {
    return "error " + std::to_string(error.get_ecode());
  } catch (const TavrenTimeout&) {
    return "time-out";
  } catch (const std::bad_alloc&) {
    return "no memory";
  } catch (const std::exception& error) {
    return std::string("exception: ") + error.what();
  }
}

/* Returns the outcome of a C function that returned result, and frees its message. */
std::string outcome_of(int result, char* message);

/* Returns what the scenario comes to when no fault is injected. */
std::string outcome_of_run(const Scenario& scenario);

/*
 * Runs the scenario with each fault at each call, or at a few of them unless TAVREN_FAULTS is "full", and prints what
 * came of it: function, way of failing, runs, outcomes. Fails the test when a run does not end in time, ends in
 * anything but success, an error, a time-out, or the end of the process for lack of memory or by a stated assertion, or
 * leaves a descriptor, a child or a file behind. also is a regular expression of what this scenario may come to
 * besides: function, way of failing, outcome. The function spared does not fail.
 */
void try_all_faults(const Scenario& scenario, const std::string& also = "", const std::string& spared = "");

#endif
