#ifndef TESTS_FAULTS_RUNNER_H
#define TESTS_FAULTS_RUNNER_H

#include <functional>
#include <string>

/* What is tried with every call failing in turn. Each try is a process of its own. */
struct Scenario {
  std::function<void()> prepare; /* with nothing failing */
  std::function<std::string()> run;
  std::function<void()> clean; /* with nothing failing: what a caller does afterwards, whatever came of it */
};

/* Returns "success", or what action throws in the words of the reports. */
std::string outcome_of(const std::function<void()>& action);

/* Returns the outcome of a C function that returned result, and frees its message. */
std::string outcome_of(int result, char* message);

/*
 * Runs the scenario with each fault at each call, or at a few of them unless TAVREN_FAULTS is "full", and prints what
 * came of it: function, way of failing, runs, outcomes. Fails the test when a run does not end in time, ends in
 * anything but success, an error, a time-out, or the end of the process for lack of memory or by a stated assertion, or
 * leaves a descriptor, a child or a file behind. also is a regular expression of what this scenario may come to
 * besides: function, way of failing, outcome.
 */
void try_all_faults(const Scenario& scenario, const std::string& also = "");

#endif
