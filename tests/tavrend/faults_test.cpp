#include <fcntl.h>
#include <gmock/gmock.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <iostream>
#include <map>
#include <optional>
#include <regex>
#include <set>
#include <string>

#include "faults/faults.h"
#include "tavren_host_util.h"
#include "tavrend/archiving_run.h"
#include "tavrend/choice.h"

/*
 * The daemon, in which every call of the C library, of SQLite, of zstd and of the RPC library's service fails in turn:
 * it goes on, or ends with a reason, and whatever came of it, the archive has every byte once after the next start.
 */
namespace {

/* What is tried with every call failing in turn. Each try begins with the same state and the same archive. */
struct DaemonsScenario {
  bool starts_armed = false;
  std::function<void()> act;       /* while the calls fail */
  std::function<bool()> is_over;   /* it has come to its end without a failure */
  std::function<bool()> is_good;   /* the archive is as it must be in the end */
  std::function<void()> ask_again; /* what an administrator does until it is */
  bool ends = false;               /* it ends the daemon */
};

class DaemonsFaults : public ArchivingRun {
 protected:
  DaemonsFaults() {
    const int fd = open(control_file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fd == -1 || ftruncate(fd, sizeof(faults::Control)) != 0) throw std::runtime_error("cannot share anything");
    void* const shared = mmap(nullptr, sizeof(faults::Control), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    close(fd);
    if (shared == MAP_FAILED) throw std::runtime_error("cannot share anything");
    faults::use(static_cast<faults::Control*>(shared));
  }

  /* Runs the scenario with each fault at each call, or at some of them, and prints what came of it. */
  void try_all(const DaemonsScenario& scenario, const std::string& spared = "none") {
    keep_what_is_prepared();
    ASSERT_EQ(outcome_of_try(scenario, nullptr, 0), scenario.ends ? "ended with 0" : "goes on");
    std::map<std::string, long> calls;
    for (const faults::Fault& fault : faults::all) calls[fault.function] = faults::calls_of(fault.function);
    const Choice choice(step_of(calls));
    long number = 0;
    long all_runs = 0;
    for (const faults::Fault& fault : faults::all) {
      if (std::regex_match(fault.function, std::regex(spared))) continue;
      std::map<std::string, int> outcomes;
      long runs = 0;
      for (long call = 1; call <= calls[fault.function]; ++call) {
        if (!choice.takes(number++)) continue;
        const std::string title = fault.function + std::string(" ") + fault.how;
        SCOPED_TRACE("call " + std::to_string(call) + ": " + title);
        const std::string outcome = outcome_of_any_try(scenario, &fault, call);
        if (outcome.empty()) continue;
        EXPECT_TRUE(std::regex_match(outcome, std::regex(stated))) << outcome;
        ++outcomes[outcome];
        ++runs;
      }
      if (runs == 0) continue;
      all_runs += runs;
      std::cout << fault.function << " " << fault.how << ": " << runs << " runs:";
      for (const auto& [outcome, count] : outcomes) std::cout << " " << count << " " << outcome << ";";
      std::cout << std::endl;
    }
    std::cout << all_runs << " runs, of " << number << " that there could be" << std::endl;
  }

  void keep_what_is_prepared() {
    stop();
    lab::run("rm -rf $LAB/state.before $LAB/archive.before; cp -a " + state +
             " $LAB/state.before && cp -a $LAB_ARCHIVE $LAB/archive.before");
  }

  /* Returns the outcome when that call of a function fails. */
  std::string outcome_of_one(const DaemonsScenario& scenario, const std::string& function, long call_number) {
    return outcome_of_any_try(scenario, &first_fault_of(function), call_number);
  }

  /* One that does not come to its end is an outcome, too: the next one begins anew. */
  std::string outcome_of_any_try(const DaemonsScenario& scenario, const faults::Fault* fault, long call_number) {
    try {
      return outcome_of_try(scenario, fault, call_number);
    } catch (const std::runtime_error& error) {
      if (daemon != -1) stop(SIGKILL);
      return error.what();
    }
  }

  static const faults::Fault& first_fault_of(const std::string& function) {
    return *std::find_if(faults::all.begin(), faults::all.end(),
                         [&](const faults::Fault& each) { return each.function == function; });
  }

  /* The daemon as the tries find it, with tasks that run when they are asked for alone. */
  void prepare_for_tries(const std::string& sections) {
    append("messages", "one\n");
    start(sections);
    for (const char* name : {"ssh_command_timeout", "ssh_connect_timeout", "ssh_shell_start_timeout"}) {
      set_tunable(name, "10");
    }
    set_tunable("failure_retry_interval", "1");
  }

  std::string in_a_year(const std::string& section, const std::string& what) const {
    return "[" + section + "]\n" + what + "\ninterval = 365d\n";
  }

  /* A log of which the first line is archived, and another one is not. */
  void prepare_a_second_line() {
    prepare_for_tries(in_a_year("messages", "follow = " + log("messages")));
    EXPECT_EQ(set_config(), 0);
    run_task("LogTypeTask.messages");
    expect_archived("messages", "one\n");
    append("messages", "two\n");
  }

  /* A start that finds another line of a log. */
  DaemonsScenario a_start() {
    prepare_a_second_line();
    return a_second_line();
  }

  static DaemonsScenario a_second_line() {
    return {true, [] {}, [] { return is_idle(); }, [] { return archive_of("messages") == "one\ntwo\n"; },
            [] { run_task("LogTypeTask.messages"); }};
  }

  DaemonsScenario a_shutdown() {
    prepare_for_tries(in_a_year("messages", "follow = " + log("messages")));
    EXPECT_EQ(set_config(), 0);
    DaemonsScenario scenario{false, [this] { kill(daemon, SIGTERM); }, [] { return false; },
                             [] { return archive_of("messages") == "one\n"; },
                             [] { run_task("LogTypeTask.messages"); }};
    scenario.ends = true;
    return scenario;
  }

  DaemonsScenario a_rotation() {
    prepare_a_second_line();
    lab::run("mv " + log("messages") + " " + log("messages.1"));
    append("messages", "three\n");
    const auto run = [] { run_task("LogTypeTask.messages"); };
    const auto is_good = [] { return archive_of("messages") == "one\ntwo\nthree\n"; };
    return {false, run, [is_good] { return is_good() && is_idle(); }, is_good, run};
  }

  static bool is_idle() {
    int answer = -1;
    return call([&](auto* handle) { return tavren_api_is_tavrend_sleeping(handle, &answer); }) == 0 && answer == 1;
  }

 private:
  static constexpr char stated[] =
      "goes on|ended with [01]( \\(.*\\))?|ended with 2 \\(.*Ran out of heap memory.*\\)|assertion failed: rval == 0.*";

  static long step_of(const std::map<std::string, long>& calls) {
    constexpr long tries_in_brief = 4;
    long all = 0;
    for (const faults::Fault& fault : faults::all) all += calls.at(fault.function);
    return std::max(all / tries_in_brief, 1L);
  }

  /* Starts the daemon with the calls that can fail, and with its words in $LAB/words. */
  void launch_with_faults() {
    daemon = fork();
    if (daemon != 0) return;
    const int words_fd = open(words.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    dup2(words_fd, STDERR_FILENO);
    setenv("LD_PRELOAD", FAULTY_CALLS, 1);
    setenv("FAULTS", control_file.c_str(), 1);
    execl(TAVREND, TAVREND, "--config", config_file.c_str(), "--state", state.c_str(), nullptr);
    _exit(127);
  }

  /* Returns how the daemon has ended, with its reason; nothing while it is there. */
  std::optional<std::string> end_of_daemon() {
    int status = 0;
    if (daemon == -1 || waitpid(daemon, &status, WNOHANG) != daemon) return std::nullopt;
    daemon = -1;
    std::string reason = read_file(words);
    reason = reason.substr(0, reason.find('\n'));
    if (WIFEXITED(status)) {
      return "ended with " + std::to_string(WEXITSTATUS(status)) + (reason.empty() ? "" : " (" + reason + ")");
    }
    std::smatch assertion;
    const std::string all = read_file(words);
    if (std::regex_search(all, assertion, std::regex("assertion failed: [^\n]*"))) return assertion.str();
    return "crash by signal " + std::to_string(WTERMSIG(status)) + " (" + all.substr(0, 300) + ")";
  }

  /* Returns what came of it, nothing when the call was not made this time. */
  std::string outcome_of_try(const DaemonsScenario& scenario, const faults::Fault* fault, long call_number) {
    begin_again();
    faults::disarm();
    if (scenario.starts_armed) faults::arm(fault, call_number);
    launch_with_faults();
    if (!scenario.starts_armed) {
      wait_until_registered();
      faults::arm(fault, call_number);
    }
    scenario.act();
    std::optional<std::string> end;
    wait_until("the end of a try", [&] {
      return (end = end_of_daemon()) || faults::was_injected() || (!scenario.ends && scenario.is_over());
    });
    faults::disarm();
    const bool is_injected = faults::was_injected() || fault == nullptr;
    if (!end && scenario.ends) wait_until("the end of the daemon", [&] { return (end = end_of_daemon()).has_value(); });
    if (!end) wait_until_it_goes_on(scenario, end);
    if (daemon != -1) stop(SIGKILL);
    expect_the_promise_after_the_next_start(scenario);
    return is_injected ? end.value_or("goes on") : "";
  }

  /* Asks again when the daemon has nothing to do and not everything is archived. */
  static bool is_done(const DaemonsScenario& scenario) {
    if (!is_idle()) return false;
    if (scenario.is_good()) return true;
    scenario.ask_again();
    return false;
  }

  void wait_until_it_goes_on(const DaemonsScenario& scenario, std::optional<std::string>& end) {
    wait_until("the daemon has everything archived", [&] { return (end = end_of_daemon()) || is_done(scenario); });
  }

  void expect_the_promise_after_the_next_start(const DaemonsScenario& scenario) {
    start_again();
    wait_until("everything is archived after the next start", [&] { return is_done(scenario); });
    stop(SIGKILL);
  }

  const std::string control_file = lab::value("LAB") + "/faults";
  const std::string words = lab::value("LAB") + "/words";
};

}  // namespace

TEST_F(DaemonsFaults, InAStart) { try_all(a_start()); }

TEST_F(DaemonsFaults, InItsSetUp) {
  prepare_for_tries(in_a_year("messages", "follow = " + log("messages")));
  const auto set_up = [] {
    set_config();
    run_task("LogTypeTask.messages");
  };
  const auto is_good = [] { return archive_of("messages") == "one\n"; };
  try_all({false, set_up, [is_good] { return is_good() && is_idle(); }, is_good, set_up});
}

TEST_F(DaemonsFaults, InAClosedFile) {
  prepare_for_tries(in_a_year("closed", "files = " + log("closed.*")));
  ASSERT_EQ(set_config(), 0);
  append("closed.1", closed_file);
  const auto run = [] { run_task("LogTypeTask.closed"); };
  const auto is_good = [] { return archive_of("closed") == closed_file; };
  try_all({false, run, [is_good] { return is_good() && is_idle(); }, is_good, run});
}

TEST_F(DaemonsFaults, InAGrowingLog) {
  prepare_for_tries(in_a_year("messages", "follow = " + log("messages") + "\ncompress = zstd"));
  ASSERT_EQ(set_config(), 0);
  run_task("LogTypeTask.messages");
  expect_archived("messages", "one\n", plain_archive_of);
  append("messages", "two\n");
  const auto run = [] { run_task("LogTypeTask.messages"); };
  const auto is_good = [] { return plain_archive_of("messages") == "one\ntwo\n"; };
  try_all({false, run, [is_good] { return is_good() && is_idle(); }, is_good, run});
}

TEST_F(DaemonsFaults, InARotation) { try_all(a_rotation()); }

/* Of three files the archive has room for two. */
TEST_F(DaemonsFaults, WhereSpaceIsMade) {
  constexpr size_t size = 400000;
  prepare_for_tries(in_a_year("closed", "files = " + log("closed.*")));
  ASSERT_EQ(set_config(lab::value("LAB_PASSWORD"), -1, 1), 0);
  append("closed.1", std::string(size, '1'));
  append("closed.2", std::string(size, '2'));
  run_task("LogTypeTask.closed");
  expect_archived("closed", std::string(size, '1') + std::string(size, '2'));
  append("closed.3", std::string(size, '3'));
  const auto run = [] { run_task("LogTypeTask.closed"); };
  const auto is_good = [=] { return archive_of("closed") == std::string(size, '2') + std::string(size, '3'); };
  try_all({false, run, [is_good] { return is_good() && is_idle(); }, is_good, run});
}

TEST_F(DaemonsFaults, InAShutdown) { try_all(a_shutdown()); }

TEST_F(DaemonsFaults, InItsProcedures) {
  prepare_for_tries(in_a_year("messages", "follow = " + log("messages")));
  ASSERT_EQ(set_config(), 0);
  const auto ask_everything = [] {
    call([](auto* handle) {
      char text[TAVREN_API_TEXT_SIZE] = "";
      tavren_state_t now{};
      tavren_status_t status{};
      tavren_config_t configuration{};
      int answer = 0;
      for (auto get : {tavren_api_get_errors, tavren_api_get_tunable_table, tavren_api_get_remote_command_table,
                       tavren_api_get_interval_table, tavren_api_clear_stored_data}) {
        char* all = nullptr;
        get(handle, &all);
        free(all);
      }
      for (auto set : {tavren_api_set_tunable, tavren_api_set_remote_command, tavren_api_set_interval}) {
        char* refusal = nullptr;
        set(handle, "LogTypeTask.messages", "365d", &refusal);
        free(refusal);
      }
      tavren_api_load_tunables(handle);
      tavren_api_load_remote_commands(handle);
      tavren_api_get_state(handle, &now);
      tavren_api_set_state(handle, TAVREN_STATE_ENABLED);
      if (tavren_api_get_config(handle, &configuration) == 0) tavren_config_free_contents(&configuration);
      tavren_api_get_status(handle, &status);
      tavren_api_get_archive_host(handle, text);
      tavren_api_get_archive_directory(handle, text);
      tavren_api_audit_file_was_archived(handle, "/no/such/file");
      tavren_api_run_task(handle, "NoTask");
      return tavren_api_is_tavrend_sleeping(handle, &answer);
    });
  };
  try_all({false, ask_everything, [] { return true; }, [] { return archive_of("messages") == "one\n"; },
           [] { run_task("LogTypeTask.messages"); }});
}

/* The parser has no line number for it, which is how it would say that all is well. */
TEST_F(DaemonsFaults, OfMemoryForTheConfigurationRefuseTheStart) {
  const DaemonsScenario start = a_start();
  keep_what_is_prepared();
  EXPECT_THAT(outcome_of_one(start, "ini_parse_stream", 1), testing::HasSubstr("ended with 1 (tavrend: "));
}

/* How many allocations there are depends on when the last caller hangs up. */
TEST_F(DaemonsFaults, OfTheLastMemoryAreAReasonToEnd) {
  const DaemonsScenario shutdown = a_shutdown();
  keep_what_is_prepared();
  constexpr long enough = 9;
  for (long call_number = 1; call_number <= enough; ++call_number) {
    EXPECT_THAT(outcome_of_one(shutdown, "operator new", call_number), testing::AnyOf("", testing::StartsWith("ended")))
        << "allocation " << call_number;
  }
}

/* The session's client has to be ended for that. */
TEST_F(DaemonsFaults, OfTheLastMemoryAreAReasonToEndAlsoInACommand) {
  prepare_a_second_line();
  const std::string home = std::filesystem::path(lab::value("LAB_ARCHIVE")).parent_path();
  ASSERT_EQ(call([&](auto* handle) {
              char* refusal = nullptr;
              const std::string held = "[ ! -e " + home + "/hold ] || { touch " + home + "/held; sleep 1000; }; cd";
              const int status = tavren_api_set_remote_command(handle, "cd", held.c_str(), &refusal);
              free(refusal);
              return status;
            }),
            0);
  keep_what_is_prepared();
  DaemonsScenario scenario = a_second_line();
  scenario.starts_armed = false;
  scenario.ends = true;
  constexpr long enough = 9;
  for (long call_number = 1; call_number <= enough; ++call_number) {
    scenario.act = [&] {
      lab::run("touch " + home + "/hold");
      run_task("LogTypeTask.messages");
      wait_until("a command", [&] { return std::filesystem::exists(home + "/held"); });
      lab::run("rm " + home + "/hold " + home + "/held");
      faults::arm(&first_fault_of("operator new"), call_number);
      kill(daemon, SIGTERM);
    };
    EXPECT_THAT(outcome_of_any_try(scenario, nullptr, 0), testing::StartsWith("ended")) << "allocation " << call_number;
  }
}

/* The moments at which a directory is read are among these. */
TEST_F(DaemonsFaults, OfMemoryForADirectoryAreNoCrash) {
  const DaemonsScenario rotation = a_rotation();
  keep_what_is_prepared();
  for (long call_number = 32; call_number <= 60; call_number += 4) {
    EXPECT_THAT(outcome_of_one(rotation, "operator new", call_number),
                testing::AnyOf("", "goes on", testing::StartsWith("ended")))
        << "allocation " << call_number;
  }
}
