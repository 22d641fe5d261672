#include "faults/runner.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <iostream>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <stdexcept>

#include "faults/faults.h"
#include "support/process_state.h"
#include "support/run_in_child.h"
#include "tavren_malloc.h"
#include "tavren_share.h"

namespace {

constexpr unsigned int limit = 60; /* seconds for a run: far more than all its time-outs together */

struct Result {
  std::string outcome;
  bool injected = false;
  std::map<std::string, long> calls;
};

std::string files_left() {
  std::string names;
  if (tavren_get_tmp_dir() == nullptr) return names;
  for (const auto& entry : std::filesystem::directory_iterator(tavren_get_tmp_dir())) {
    const std::string name = entry.path().filename();
    if (name != ".lock" && name != "known_hosts") names += " " + name;
  }
  return names;
}

/* Runs in a process of its own. Returns the outcome with what was left behind. */
std::string run_there(const Scenario& scenario, const faults::Fault* fault, long call) {
  tavren_setup_new_handler();
  const auto descriptors = count_open_descriptors();
  scenario.prepare();
  faults::arm(fault, call);
  std::string outcome = scenario.run();
  faults::disarm();
  scenario.clean();
  if (count_open_descriptors() != descriptors) outcome += ", leaving a descriptor";
  if (waitpid(-1, nullptr, WNOHANG) != -1) outcome += ", leaving a child";
  if (!files_left().empty()) outcome += ", leaving" + files_left();
  return outcome;
}

/* How a process ended that did not come to its report. */
std::string end_of(const Outcome& end) {
  if (end.exited_with(2) && end.err.find("FATAL ERROR: Ran out of heap memory.") != std::string::npos) {
    return "end for lack of memory";
  }
  std::smatch assertion;
  if (end.killed_by(SIGABRT) && std::regex_search(end.err, assertion, std::regex("assertion failed: [^\n]*"))) {
    return assertion.str();
  }
  return "crash: status " + std::to_string(end.wait_status) + ", " + end.err.substr(0, 300);
}

Result run_once(const Scenario& scenario, const faults::Fault* fault, long call) {
  const Outcome end = run_in_child([&] {
    alarm(limit);
    std::cout << run_there(scenario, fault, call) << "\n" << faults::was_injected() << "\n";
    for (const faults::Fault& each : faults::all) std::cout << faults::calls_of(each.function) << "\n";
    std::cout.flush();
  });
  if (end.killed_by(SIGALRM)) return {"hang", true, {}};
  if (!end.exited_with(0)) return {end_of(end), true, {}};
  std::istringstream report(end.out);
  Result result;
  std::getline(report, result.outcome);
  report >> result.injected;
  for (const faults::Fault& each : faults::all) report >> result.calls[each.function];
  if (report.fail()) throw std::runtime_error("a run without a report: " + end.out);
  return result;
}

/* What the documents name for any scenario: function, way of failing, outcome. */
constexpr char stated[] =
    "[^:]*: (success|error [0-9]+|failure|time-out|no memory|end for lack of memory)"
    "|clock_gettime fails: assertion failed: rval == 0"
    "|ioctl fails: assertion failed: ecode == 0"
    "|unlink fails: success, leaving .*"; /* what cannot be removed stays */

/* Which calls are to fail: all of them, or, in everyday testing, the first ones and some of the others. */
std::set<long> calls_to_fail(long count) {
  const char* wanted = getenv("TAVREN_FAULTS");
  std::set<long> calls;
  if (wanted != nullptr && strcmp(wanted, "full") == 0) {
    for (long call = 1; call <= count; ++call) calls.insert(call);
  } else {
    for (const long call : {1L, count / 2, count}) {
      if (call >= 1 && call <= count) calls.insert(call);
    }
  }
  return calls;
}

}  // namespace

std::string outcome_of(int result, char* message) {
  free(message);
  return result == 0 ? "success" : "failure";
}

std::string outcome_of_run(const Scenario& scenario) { return run_once(scenario, nullptr, 0).outcome; }

void try_all_faults(const Scenario& scenario, const std::string& also, const std::string& spared) {
  const std::regex allowed(also.empty() ? stated : stated + ("|" + also));
  const Result without = run_once(scenario, nullptr, 0);
  ASSERT_EQ(without.outcome, "success");
  long all_runs = 0;
  for (const faults::Fault& fault : faults::all) {
    if (fault.function == spared) continue;
    const std::string title = fault.function + std::string(" ") + fault.how + ": ";
    std::map<std::string, int> outcomes;
    long runs = 0;
    for (const long call : calls_to_fail(without.calls.at(fault.function))) {
      const Result result = run_once(scenario, &fault, call);
      /* The number of calls differs from run to run: output comes in other pieces. */
      if (!result.injected) continue;
      ++runs;
      ++outcomes[result.outcome];
      EXPECT_TRUE(std::regex_match(title + result.outcome, allowed))
          << "call " << call << ": " << title << result.outcome;
    }
    if (runs == 0) continue;
    all_runs += runs;
    std::cout << title << runs << " runs:";
    for (const auto& [outcome, count] : outcomes) std::cout << " " << count << " " << outcome << ";";
    std::cout << "\n";
  }
  std::cout << all_runs << " runs\n";
}
