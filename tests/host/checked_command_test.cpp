#include <gtest/gtest.h>

#include <list>
#include <string>
#include <utility>
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

  /* How an error shows lines of output. */
  static std::string shown(const Lines& output) {
    std::string text;
    for (const std::string& line : output) text += "  - Command output: \"" + line + "\"\n";
    return text;
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

TEST_F(CheckedCommand, ThatFailsNamesItsStatusAndShowsFiveLinesAtTheMostWhichItTakesOffTheList) {
  EXPECT_EQ(error_of("(exit 3)"), "  - Remote command \"(exit 3)\" failed with error code 3\n");
  EXPECT_EQ(error_of("echo one; echo two; false"),
            "  - Remote command \"echo one; echo two; false\" failed with error code 1\n" + shown({"one", "two"}));
  EXPECT_EQ(error_of("seq 6; false"),
            "  - Remote command \"seq 6; false\" failed with error code 1\n" + shown({"1", "2", "3", "4", "5"}));
  EXPECT_EQ(lines, Lines{"6"});
}

TEST_F(CheckedCommand, WithoutAListFailsAlike) {
  EXPECT_EQ(error_body([this] { host.run_and_check_ecode("echo one; false"); }),
            "  - Remote command \"echo one; false\" failed with error code 1\n"
            "  - Command output: \"one\"\n");
}

TEST_F(CheckedCommand, ThatFailsWarnsOnTheConsoleWithoutAHostAndOnceIn900Seconds) {
  host.run_and_check_ecode("true");
  EXPECT_EQ(take_console(), std::vector<std::string>{});
  recorded_system::set_time(1000000);
  error_of("false");
  EXPECT_EQ(take_console(), warning);
  recorded_system::set_time(1000900);
  error_of("false");
  EXPECT_EQ(take_console(), std::vector<std::string>{});
}

TEST_F(ExpectedLine, IsAccepted) { EXPECT_NO_THROW(host.run_and_expect_line("echo OK", "OK")); }

TEST_F(ExpectedLine, AFailureIsReportedFirst) {
  EXPECT_EQ(error_of("echo OK; false", "OK"),
            "  - Remote command \"echo OK; false\" failed with error code 1\n"
            "  - Command output: \"OK\"\n");
}

TEST_F(ExpectedLine, AnythingElseIsIncorrectOutputThatIsShownWithoutLimitAndDoesNotWarnOnTheConsole) {
  Lines thirty;
  for (int i = 1; i <= 30; ++i) thirty.push_back(std::to_string(i));
  const std::pair<std::string, Lines> others[] = {
      {"echo OK?", {"OK?"}}, {"echo OK; echo OK", {"OK", "OK"}}, {"true", {}}, {"seq 30", thirty}};
  for (const auto& [command, output] : others) {
    EXPECT_EQ(error_of(command, "OK"), "  - Remote command \"" + command +
                                           "\" produced incorrect output: " + std::to_string(output.size()) +
                                           " line(s) of output\n" + shown(output) + "  - Expected output: \"OK\"\n");
  }
  EXPECT_EQ(take_console(), std::vector<std::string>{});
}
