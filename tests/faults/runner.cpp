#include "faults/runner.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <iostream>
#include <map>
#include <new>
#include <regex>
#include <set>
#include <stdexcept>

#include "faults/faults.h"
#include "support/files.h"
#include "support/process_state.h"
#include "tavren_malloc.h"
#include "tavren_share.h"

namespace {

constexpr int limit_ms = 60000; /* for a run: far more than all its time-outs together */

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
std::string end_of(int status, const std::string& said) {
  if (WIFEXITED(status) && WEXITSTATUS(status) == 2 && said.find("FATAL ERROR: Ran out of heap memory.") != said.npos) {
    return "end for lack of memory";
  }
  if (WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT) {
    std::smatch assertion;
    if (std::regex_search(said, assertion, std::regex("assertion failed: [^\n]*"))) return assertion.str();
  }
  return "crash: status " + std::to_string(status) + ", " + said.substr(0, 300);
}

/* Reads what a process reports, within the limit. */
std::string read_report(int fd, bool& in_time) {
  std::string report;
  char bytes[4096];
  for (;;) {
    pollfd entry{fd, POLLIN, 0};
    in_time = poll(&entry, 1, limit_ms) == 1;
    const ssize_t n = in_time ? read(fd, bytes, sizeof bytes) : 0;
    if (n <= 0) return report;
    report.append(bytes, static_cast<size_t>(n));
  }
}

Result run_once(const Scenario& scenario, const faults::Fault* fault, long call) {
  char said_file[] = "/tmp/tavren-test.XXXXXX";
  const int said = mkstemp(said_file);
  int ends[2];
  if (said == -1 || pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("cannot start a run");
  std::cout << std::flush; /* or what is not written yet would be written by each of them */
  const pid_t pid = fork();
  if (pid == 0) {
    dup2(said, STDERR_FILENO);
    close(said);
    close(ends[0]);
    const std::string outcome = run_there(scenario, fault, call);
    std::string report = outcome + "\n" + (faults::was_injected() ? "1" : "0") + "\n";
    for (const faults::Fault& each : faults::all) report += std::to_string(faults::calls_of(each.function)) + "\n";
    if (write(ends[1], report.data(), report.size()) == -1) _exit(9);
    _exit(0);
  }
  close(said);
  close(ends[1]);
  bool in_time = false;
  std::istringstream report(read_report(ends[0], in_time));
  close(ends[0]);
  if (!in_time) kill(pid, SIGKILL);
  int status = 0;
  waitpid(pid, &status, 0);
  Result result;
  std::string line;
  if (!in_time) {
    result = {"hang", true, {}};
  } else if (status != 0 || !std::getline(report, result.outcome)) {
    result = {end_of(status, read_file(said_file)), true, {}};
  } else {
    result.injected = std::getline(report, line) && line == "1";
    for (const faults::Fault& each : faults::all) {
      if (std::getline(report, line)) result.calls[each.function] = std::stol(line);
    }
  }
  unlink(said_file);
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
