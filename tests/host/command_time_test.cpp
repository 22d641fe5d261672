#include <gtest/gtest.h>
#include <functional>
#include <list>
#include <string>

#include "host/measured_time.h"
#include "support/host_session.h"

/*
 * How long the steps of a remote command wait for the shell, and how long closing waits for its end.
 */
namespace {

/* What run_command is given, unlike any tunable. */
constexpr int given_time = 5; /* seconds */

class CommandTime : public LoopbackTest, protected MeasuredTime {
 protected:
  CommandTime() { open(); }

  /* Has the shell fall silent for good. */
  void silence_shell() { host.run_line(fall_silent, nullptr); }

  /* Expects action to fail after seconds, with the time-out of command. */
  void expect_timeout(const std::string& command, int seconds, const std::function<void()>& action) {
    start_measuring(directory.path("silence"));
    EXPECT_EQ(error_body(action), "  - Timeout occurred while running remote command: \"" + command + "\"\n");
    EXPECT_EQ(passed(), all_of(seconds));
  }

  void run(const std::string& command) {
    std::list<std::string> lines;
    int status = 0;
    host.run_command(command, status, lines, given_time);
  }

  void expect_given_time(const std::string& command) {
    expect_timeout(command, given_time, [&] { run(command); });
  }

  std::string sent_for(const std::string& command) const {
    return "echo '** RUNNING " + command + "'; " + command + "\necho '** EXIT CODE: '$?\n";
  }

  const std::string fall_silent = ": >silence; exec sleep 100";
};

}  // namespace

TEST_F(CommandTime, ACommandIsSentWithinTheTimeThatItIsGiven) {
  recorded_system::refuse_to_write(sent_for("pwd"));
  expect_given_time("pwd");
}

TEST_F(CommandTime, ACommandBeginsWithinTheTimeThatItIsGiven) {
  silence_shell();
  expect_given_time("pwd");
}

TEST_F(CommandTime, ACommandEndsWithinTheTimeThatItIsGiven) { expect_given_time(fall_silent); }

TEST_F(CommandTime, ACommandsOutputHasWhatItsSendingHasLeft) {
  recorded_system::refuse_to_write(sent_for(fall_silent), 1);
  expect_given_time(fall_silent);
}

TEST_F(CommandTime, ALineOfOutputDoesNotProlongTheTime) {
  const ScriptedClient meeting("");
  const std::string pausing = meeting.make_fifo("pausing");
  const std::string command = "echo >" + pausing + "; read x <" + meeting.path("go") + "; echo line; " + fall_silent;
  expect_timeout(command, given_time, [&] { run_with_pause([&] { run(command); }, meeting, 4); });
}

TEST_F(CommandTime, ACheckedCommandHasTheTimeOfACommand) {
  expect_timeout(fall_silent, command_time, [this] { host.run_and_check_ecode(fall_silent); });
}

TEST_F(CommandTime, ALineIsSentWithinTheTimeOfACommand) {
  recorded_system::refuse_to_write("true\n");
  expect_timeout("true", command_time, [this] { host.run_line("true", nullptr); });
}

TEST_F(CommandTime, ALineAndItsAnswerHaveTheTimeOfACommandTogether) {
  std::string output;
  recorded_system::refuse_to_write(fall_silent + "\n", 1);
  expect_timeout(fall_silent, command_time, [&] { host.run_line(fall_silent, &output); });
}

TEST_F(CommandTime, ClosingGivesTheChildTwoSeconds) {
  EXPECT_EQ(output_of(host, "trap '' TERM; echo ready"), "ready");
  MeasuredTime::start_measuring();
  host.close_connection();
  EXPECT_EQ(passed(), 2);
}
