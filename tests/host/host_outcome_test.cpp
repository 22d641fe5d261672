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

  void fail(int times) {
    TavrenError error(TAVREN_E_LOGIN_DENIED, "", "");
    for (int i = 0; i < times; ++i) logging_host.log_connection_outcome(&error);
  }
  void succeed() { logging_host.log_connection_outcome(nullptr); }

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

  void log_in() {
    set_tunable("loopback_login", "1");
    logging_host.open_connection();
    logging_host.close_connection();
  }

  ScriptedClient broken_client;
};

}  // namespace

TEST_F(HostOutcome, FailuresBelowFiveAreLoggedAlike) {
  fail(4);
  EXPECT_EQ(take_log(), std::vector<LogEntry>(4, failed));
}

TEST_F(HostOutcome, TheFifthFailureIsLoggedAsTheLast) {
  fail(4);
  take_log();
  fail(1);
  EXPECT_EQ(take_log(), std::vector<LogEntry>{failed_for_good});
}

TEST_F(HostOutcome, LaterFailuresAreNotLogged) {
  fail(5);
  take_log();
  fail(3);
  EXPECT_EQ(take_log(), std::vector<LogEntry>{});
}

TEST_F(HostOutcome, TheSuccessAfterASilenceIsLogged) {
  fail(7);
  take_log();
  succeed();
  EXPECT_EQ(take_log(), std::vector<LogEntry>{connected});
}

TEST_F(HostOutcome, ASuccessAfterFewerFailuresIsDeliberatelyNotLogged) {
  fail(4);
  take_log();
  succeed();
  EXPECT_EQ(take_log(), std::vector<LogEntry>{});
}

TEST_F(HostOutcome, ASuccessResetsTheCountOfFewerFailures) {
  fail(4);
  succeed();
  take_log();
  fail(1);
  EXPECT_EQ(take_log(), std::vector<LogEntry>{failed});
}

TEST_F(HostOutcome, ASuccessResetsTheCountAfterASilence) {
  fail(6);
  succeed();
  take_log();
  fail(5);
  EXPECT_EQ(take_log(), (std::vector<LogEntry>{failed, failed, failed, failed, failed_for_good}));
}

TEST_F(HostOutcome, ARepeatedSuccessIsNotLogged) {
  fail(5);
  succeed();
  take_log();
  succeed();
  EXPECT_EQ(take_log(), std::vector<LogEntry>{});
}

TEST_F(HostOutcome, NothingIsLoggedUnlessAskedFor) {
  TavrenError error(TAVREN_E_LOGIN_DENIED, "", "");
  for (int i = 0; i < 6; ++i) host.log_connection_outcome(&error);
  host.log_connection_outcome(nullptr);
  EXPECT_EQ(take_log(), std::vector<LogEntry>{});
}

TEST_F(HostOutcome, TheFailureIsLoggedInTheUsersLanguage) {
  recorded_system::translate("failed to connect to archive host", "100% weg");
  fail(1);
  EXPECT_EQ(take_log(), (std::vector<LogEntry>{{0, "100% weg"}}));
}

TEST_F(HostOutcome, TheLastFailureIsLoggedInTheUsersLanguage) {
  recorded_system::translate(
      "failed to connect to archive host %d consecutive times: further failures will not be logged", "%d mal weg");
  fail(4);
  take_log();
  fail(1);
  EXPECT_EQ(take_log(), (std::vector<LogEntry>{{0, "5 mal weg"}}));
}

TEST_F(HostOutcome, TheSuccessIsLoggedInTheUsersLanguage) {
  recorded_system::translate("successfully connected to archive host", "100% da");
  fail(5);
  take_log();
  succeed();
  EXPECT_EQ(take_log(), (std::vector<LogEntry>{{0, "100% da"}}));
}

TEST_F(LoginOutcome, SuccessIsLoggedAlsoWhenTheDirectoryIsMissing) {
  for (int i = 0; i < 5; ++i) fail_to_log_in(logging_host);
  take_log();
  set_tunable("loopback_login", "1");
  set_command("cd", "false");
  EXPECT_THROW(logging_host.open_connection(), TavrenError);
  EXPECT_EQ(take_log(), std::vector<LogEntry>{connected});
}

TEST_F(LoginOutcome, FiveFailedLoginsAreLoggedTheSixthIsNot) {
  for (int i = 0; i < 6; ++i) fail_to_log_in(logging_host);
  EXPECT_EQ(take_log(), (std::vector<LogEntry>{failed, failed, failed, failed, failed_for_good}));
}

TEST_F(LoginOutcome, TheLoginAfterASilenceIsLogged) {
  for (int i = 0; i < 6; ++i) fail_to_log_in(logging_host);
  take_log();
  log_in();
  EXPECT_EQ(take_log(), std::vector<LogEntry>{connected});
}

TEST_F(LoginOutcome, TheLoginAfterTwoFailuresIsNotLogged) {
  for (int i = 0; i < 2; ++i) fail_to_log_in(logging_host);
  take_log();
  log_in();
  EXPECT_EQ(take_log(), std::vector<LogEntry>{});
}

TEST_F(LoginOutcome, AFailedLoginWarnsOnTheConsole) {
  fail_to_log_in(logging_host);
  EXPECT_EQ(take_console(), std::vector<std::string>{unreachable_warning});
}

/* What has been done about a failed login when the log, and when the console, is turned to. */
class FailedLogin : public LoginOutcome {
 protected:
  /* Returns the first line of the error that is being handled. */
  static std::string first_line() {
    return first_lines(error_body([] { std::rethrow_exception(std::current_exception()); }), 1);
  }

  tavren_connection_status_t status() {
    tavren_connection_status_t result{};
    long when = 0;
    logging_host.get_connection_status(result, when);
    return result;
  }

  const std::string reason = "  - Program exited unexpectedly: " + broken_client.path() + "\n";
  const std::string what_failed = "  - Failed to start secure shell session on archive.example\n";
};

TEST_F(FailedLogin, HasItsStatusBeforeItIsLogged) {
  tavren_connection_status_t seen = TAVREN_CONNECTION_NONE;
  recorded_system::at_next("syslog", [&] { seen = status(); });
  fail_to_log_in(logging_host);
  EXPECT_EQ(seen, TAVREN_CONNECTION_FAILED);
}

TEST_F(FailedLogin, IsLoggedBeforeItsErrorSaysWhatFailed) {
  std::string seen;
  recorded_system::at_next("syslog", [&] { seen = first_line(); });
  fail_to_log_in(logging_host);
  EXPECT_EQ(seen, reason);
}

TEST_F(FailedLogin, SaysInItsErrorWhatFailedBeforeItIsOnTheConsole) {
  std::string seen;
  recorded_system::at_next("console", [&] { seen = first_line(); });
  fail_to_log_in(logging_host);
  EXPECT_EQ(seen, what_failed);
}

TEST_F(FailedLogin, IsLoggedBeforeItIsOnTheConsole) {
  std::vector<LogEntry> seen;
  recorded_system::at_next("console", [&] { seen = take_log(); });
  fail_to_log_in(logging_host);
  EXPECT_EQ(seen, std::vector<LogEntry>{failed});
}

TEST_F(LoginOutcome, TwoFailedLoginsWarnOnce) {
  recorded_system::set_time(1000000);
  fail_to_log_in(logging_host);
  recorded_system::set_time(1000900);
  fail_to_log_in(logging_host);
  EXPECT_EQ(take_console().size(), 1u);
}

TEST_F(LoginOutcome, ASessionThatDoesNotLogStillWarnsOnTheConsole) {
  enable();
  fail_to_log_in(host);
  EXPECT_EQ(take_log(), std::vector<LogEntry>{});
  EXPECT_EQ(take_console(), std::vector<std::string>{unreachable_warning});
}

TEST_F(LoginOutcome, ASuccessfulLoginDoesNotWarn) {
  log_in();
  EXPECT_EQ(take_console(), std::vector<std::string>{});
}
