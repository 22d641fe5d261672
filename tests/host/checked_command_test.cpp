#include <gtest/gtest.h>

#include <list>
#include <string>
#include <vector>

#include "support/host_session.h"
#include "support/recorded_system.h"

using Lines = std::list<std::string>;
using recorded_system::take_console;

namespace {

const std::vector<std::string> warning = {"\nWARNING: Log Archiving unable to communicate with archive host \n"};

class CheckedCommand : public LoopbackTest {
 protected:
  CheckedCommand() {
    recorded_system::reset();
    open();
  }
  ~CheckedCommand() override { recorded_system::reset(); }

  std::string error_of(const std::string& command) {
    return error_body([&] { host.run_and_check_ecode(command, lines); });
  }

  Lines lines;
};

class ExpectedLine : public CheckedCommand {
 protected:
  std::string error_of(const std::string& command, const std::string& expected) {
    return error_body([&] { host.run_and_expect_line(command, expected); });
  }
};

}  // namespace

TEST_F(CheckedCommand, ReturnsItsOutput) {
  host.run_and_check_ecode("echo one; echo two", lines);
  EXPECT_EQ(lines, (Lines{"one", "two"}));
}

TEST_F(CheckedCommand, ThatFailsNamesItsStatus) {
  EXPECT_EQ(error_of("(exit 3)"), "  - Remote command \"(exit 3)\" failed with error code 3\n");
}

TEST_F(CheckedCommand, ThatFailsShowsItsOutput) {
  EXPECT_EQ(error_of("echo one; echo two; false"),
            "  - Remote command \"echo one; echo two; false\" failed with error code 1\n"
            "  - Command output: \"one\"\n"
            "  - Command output: \"two\"\n");
}

TEST_F(CheckedCommand, ThatFailsShowsFiveLinesAtTheMost) {
  EXPECT_EQ(error_of("for i in 1 2 3 4 5 6; do echo $i; done; false"),
            "  - Remote command \"for i in 1 2 3 4 5 6; do echo $i; done; false\" failed with error code 1\n"
            "  - Command output: \"1\"\n"
            "  - Command output: \"2\"\n"
            "  - Command output: \"3\"\n"
            "  - Command output: \"4\"\n"
            "  - Command output: \"5\"\n");
}

TEST_F(CheckedCommand, TheLinesShownAreTakenOffTheList) {
  error_of("for i in 1 2 3 4 5 6; do echo $i; done; false");
  EXPECT_EQ(lines, Lines{"6"});
}

TEST_F(CheckedCommand, WithoutAListFailsAlike) {
  EXPECT_EQ(error_body([this] { host.run_and_check_ecode("echo one; false"); }),
            "  - Remote command \"echo one; false\" failed with error code 1\n"
            "  - Command output: \"one\"\n");
}

TEST_F(CheckedCommand, ThatFailsWarnsOnTheConsoleWithoutAHost) {
  error_of("false");
  EXPECT_EQ(take_console(), warning);
}

TEST_F(CheckedCommand, ThatSucceedsDoesNotWarn) {
  host.run_and_check_ecode("true");
  EXPECT_EQ(take_console(), std::vector<std::string>{});
}

TEST_F(CheckedCommand, FailuresWithin900SecondsWarnOnce) {
  recorded_system::set_time(1000000);
  error_of("false");
  recorded_system::set_time(1000900);
  error_of("false");
  EXPECT_EQ(take_console(), warning);
}

TEST_F(CheckedCommand, MayTakeTheCommandTimeout) {
  set_tunable("ssh_command_timeout", "1");
  EXPECT_EQ(error_of("exec sleep 100"), "  - Timeout occurred while running remote command: \"exec sleep 100\"\n");
}

TEST_F(ExpectedLine, IsAccepted) { EXPECT_NO_THROW(host.run_and_expect_line("echo OK", "OK")); }

TEST_F(ExpectedLine, AFailureIsReportedFirst) {
  EXPECT_EQ(error_of("echo OK; false", "OK"),
            "  - Remote command \"echo OK; false\" failed with error code 1\n"
            "  - Command output: \"OK\"\n");
}

TEST_F(ExpectedLine, AnotherLineIsIncorrectOutput) {
  EXPECT_EQ(error_of("echo OK?", "OK"),
            "  - Remote command \"echo OK?\" produced incorrect output: 1 line(s) of output\n"
            "  - Command output: \"OK?\"\n"
            "  - Expected output: \"OK\"\n");
}

TEST_F(ExpectedLine, TheSameLineTwiceIsIncorrectOutput) {
  EXPECT_EQ(error_of("echo OK; echo OK", "OK"),
            "  - Remote command \"echo OK; echo OK\" produced incorrect output: 2 line(s) of output\n"
            "  - Command output: \"OK\"\n"
            "  - Command output: \"OK\"\n"
            "  - Expected output: \"OK\"\n");
}

TEST_F(ExpectedLine, NoLineIsIncorrectOutput) {
  EXPECT_EQ(error_of("true", "OK"),
            "  - Remote command \"true\" produced incorrect output: 0 line(s) of output\n"
            "  - Expected output: \"OK\"\n");
}

TEST_F(ExpectedLine, IncorrectOutputIsShownWithoutLimit) {
  std::string shown;
  for (int i = 1; i <= 30; ++i) shown += "  - Command output: \"" + std::to_string(i) + "\"\n";
  EXPECT_EQ(error_of("seq 30", "OK"),
            "  - Remote command \"seq 30\" produced incorrect output: 30 line(s) of output\n" + shown +
                "  - Expected output: \"OK\"\n");
}

TEST_F(ExpectedLine, IncorrectOutputDoesNotWarnOnTheConsole) {
  error_of("echo no", "OK");
  EXPECT_EQ(take_console(), std::vector<std::string>{});
}
