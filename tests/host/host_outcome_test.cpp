#include <gtest/gtest.h>

#include <exception>
#include <string>
#include <vector>

#include "TavrenHost.h"
#include "support/host_session.h"
#include "support/recorded_system.h"
#include "support/scripted_client.h"

using recorded_system::LogEntry;
using recorded_system::take_console;
using recorded_system::take_log;

namespace {

using Log = std::vector<LogEntry>;
const LogEntry failed{0, "failed to connect to archive host"};
const LogEntry failed_for_good{
    0, "failed to connect to archive host 5 consecutive times: further failures will not be logged"};
const LogEntry connected{0, "successfully connected to archive host"};

constexpr char unreachable_warning[] =
    "\nWARNING: Log Archiving unable to communicate with archive host archive.example\n";

class HostOutcome : public LoopbackTest {
 protected:
  HostOutcome() { recorded_system::reset(); }
  ~HostOutcome() override {
    logging_host.close_connection();
    recorded_system::reset();
  }

  /* Connects again and again, a plus being a success and a minus a failure. Returns what is logged. */
  Log logged(const std::string& outcomes) {
    TavrenError error(TAVREN_E_LOGIN_DENIED, "", "");
    for (const char outcome : outcomes) logging_host.log_connection_outcome(outcome == '-' ? &error : nullptr);
    return take_log();
  }
  TavrenHost logging_host{false, true};
};

/* A host whose client ends at once, and one whose login works. */
class LoginOutcome : public HostOutcome {
 protected:
  LoginOutcome() : broken_client("exit 255") {
    logging_host.set_settings(settings.record());
    logging_host.enable();
  }

  void fail_to_log_in(TavrenHost& session) {
    set_tunable("loopback_login", "0");
    set_command("ssh", broken_client.path());
    EXPECT_THROW(session.open_connection(), TavrenError);
    session.close_connection();
  }

  /* The same with logins. */
  Log logged_by_logins(const std::string& outcomes) {
    for (const char outcome : outcomes) {
      if (outcome == '-') fail_to_log_in(logging_host);
      if (outcome == '+') log_in();
    }
    return take_log();
  }

  void log_in() {
    set_tunable("loopback_login", "1");
    logging_host.open_connection();
    logging_host.close_connection();
  }

  ScriptedClient broken_client;
};

}  // namespace

TEST_F(HostOutcome, FailuresAreLoggedUpToTheFifthAndSoIsTheSuccessAfterTheSilence) {
  EXPECT_EQ(logged("----"), Log(4, failed));
  EXPECT_EQ(logged("-"), Log{failed_for_good});
  EXPECT_EQ(logged("---"), Log{});
  EXPECT_EQ(logged("+"), Log{connected});
  EXPECT_EQ(logged("+"), Log{});
  EXPECT_EQ(logged("-----"), (Log{failed, failed, failed, failed, failed_for_good}));
}

TEST_F(HostOutcome, ASuccessAfterFewerFailuresIsDeliberatelyNotLoggedAndResetsTheirCount) {
  EXPECT_EQ(logged("----"), Log(4, failed));
  EXPECT_EQ(logged("+"), Log{});
  EXPECT_EQ(logged("----"), Log(4, failed));
}

TEST_F(HostOutcome, NothingIsLoggedUnlessAskedFor) {
  TavrenError error(TAVREN_E_LOGIN_DENIED, "", "");
  for (int i = 0; i < 6; ++i) host.log_connection_outcome(&error);
  host.log_connection_outcome(nullptr);
  EXPECT_EQ(take_log(), Log{});
}

TEST_F(HostOutcome, IsLoggedInTheUsersLanguage) {
  recorded_system::translate("failed to connect to archive host", "100% weg");
  EXPECT_EQ(logged("-"), (Log{{0, "100% weg"}}));
  recorded_system::translate(
      "failed to connect to archive host %d consecutive times: further failures will not be logged", "%d mal weg");
  EXPECT_EQ(logged("----").back(), (LogEntry{0, "5 mal weg"}));
  recorded_system::translate("successfully connected to archive host", "100% da");
  EXPECT_EQ(logged("+"), (Log{{0, "100% da"}}));
}

TEST_F(LoginOutcome, SuccessIsLoggedAlsoWhenTheDirectoryIsMissing) {
  logged_by_logins("-----");
  set_tunable("loopback_login", "1");
  set_command("cd", "false");
  EXPECT_THROW(logging_host.open_connection(), TavrenError);
  EXPECT_EQ(take_log(), Log{connected});
}

TEST_F(LoginOutcome, OfFiveFailuresIsLoggedAndThatOfTheSixthIsNotNorOfASuccessAfterTwo) {
  EXPECT_EQ(logged_by_logins("------"), (Log{failed, failed, failed, failed, failed_for_good}));
  EXPECT_EQ(logged_by_logins("+"), Log{connected});
  EXPECT_EQ(logged_by_logins("--"), Log(2, failed));
  EXPECT_EQ(logged_by_logins("+"), Log{});
}

TEST_F(LoginOutcome, OfAFailureIsOnTheConsoleOnceAndThatOfASuccessIsNot) {
  log_in();
  EXPECT_EQ(take_console(), std::vector<std::string>{});
  for (const time_t now : {1000000, 1000900}) {
    recorded_system::set_time(now);
    fail_to_log_in(logging_host);
  }
  EXPECT_EQ(take_console(), std::vector<std::string>{unreachable_warning});
}

TEST_F(LoginOutcome, OfAFailureIsInTheStatusBeforeItIsLoggedAndThenInTheErrorBeforeItIsOnTheConsole) {
  /* Returns the first line of the error that is being handled. */
  const auto first_line = [] {
    return first_lines(error_body([] { std::rethrow_exception(std::current_exception()); }), 1);
  };
  tavren_connection_status_t status = TAVREN_CONNECTION_NONE;
  long when = 0;
  Log log;
  std::string when_logged, when_on_the_console;
  recorded_system::at_next("syslog", [&] {
    logging_host.get_connection_status(status, when);
    when_logged = first_line();
  });
  recorded_system::at_next("console", [&] {
    log = take_log();
    when_on_the_console = first_line();
  });
  fail_to_log_in(logging_host);
  EXPECT_EQ(status, TAVREN_CONNECTION_FAILED);
  EXPECT_EQ(when_logged, "  - Program exited unexpectedly: " + broken_client.path() + "\n");
  EXPECT_EQ(log, Log{failed});
  EXPECT_EQ(when_on_the_console, "  - Failed to start secure shell session on archive.example\n");
}

TEST_F(LoginOutcome, ASessionThatDoesNotLogStillWarnsOnTheConsole) {
  enable();
  fail_to_log_in(host);
  EXPECT_EQ(take_log(), Log{});
  EXPECT_EQ(take_console(), std::vector<std::string>{unreachable_warning});
}
