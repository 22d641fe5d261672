#include <gtest/gtest.h>
#include <unistd.h>

#include <future>
#include <list>
#include <string>

#include "host/measured_time.h"
#include "support/host_session.h"
#include "support/process_state.h"
#include "support/scripted_client.h"

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

  void start_measuring() { MeasuredTime::start_measuring(directory.path("silence")); }

  void run(const std::string& command) {
    std::list<std::string> lines;
    int status = 0;
    EXPECT_EQ(error_body([&] { host.run_command(command, status, lines, given_time); }),
              "  - Timeout occurred while running remote command: \"" + command + "\"\n");
  }

  std::string sent_for(const std::string& command) const {
    return "echo '** RUNNING " + command + "'; " + command + "\necho '** EXIT CODE: '$?\n";
  }

  const std::string fall_silent = ": >silence; exec sleep 100";
};

}  // namespace

TEST_F(CommandTime, ACommandIsSentWithinTheTimeThatItIsGiven) {
  recorded_system::refuse_to_write(sent_for("pwd"));
  start_measuring();
  run("pwd");
  EXPECT_EQ(passed(), all_of(given_time));
}

TEST_F(CommandTime, ACommandBeginsWithinTheTimeThatItIsGiven) {
  silence_shell();
  start_measuring();
  run("pwd");
  EXPECT_EQ(passed(), all_of(given_time));
}

TEST_F(CommandTime, ACommandEndsWithinTheTimeThatItIsGiven) {
  start_measuring();
  run(fall_silent);
  EXPECT_EQ(passed(), all_of(given_time));
}

TEST_F(CommandTime, ACommandsOutputHasWhatItsSendingHasLeft) {
  recorded_system::refuse_to_write(sent_for(fall_silent), 1);
  start_measuring();
  run(fall_silent);
  EXPECT_EQ(passed(), all_of(given_time));
}

TEST_F(CommandTime, ALineOfOutputDoesNotProlongTheTime) {
  const ScriptedClient meeting("");
  const std::string pausing = meeting.make_fifo("pausing");
  start_measuring();
  std::promise<pid_t> thread;
  auto command = std::async(std::launch::async, [&] {
    thread.set_value(gettid());
    run("echo >" + pausing + "; read x <" + meeting.path("go") + "; echo line; " + fall_silent);
  });
  wait_at(pausing);
  wait_until_it_stays_asleep(thread.get_future().get());
  recorded_system::pass_uptime(4);
  release(meeting.path("go"));
  command.get();
  EXPECT_EQ(passed(), all_of(given_time));
}

TEST_F(CommandTime, ACheckedCommandHasTheTimeOfACommand) {
  start_measuring();
  error_body([this] { host.run_and_check_ecode(fall_silent); });
  EXPECT_EQ(passed(), all_of(command_time));
}

TEST_F(CommandTime, ALineIsSentWithinTheTimeOfACommand) {
  recorded_system::refuse_to_write("true\n");
  start_measuring();
  error_body([this] { host.run_line("true", nullptr); });
  EXPECT_EQ(passed(), all_of(command_time));
}

TEST_F(CommandTime, TheAnswerToALineHasTheTimeOfACommand) {
  std::string output;
  start_measuring();
  error_body([&] { host.run_line(fall_silent, &output); });
  EXPECT_EQ(passed(), all_of(command_time));
}

TEST_F(CommandTime, TheAnswerToALineHasWhatItsSendingHasLeft) {
  std::string output;
  recorded_system::refuse_to_write(fall_silent + "\n", 1);
  start_measuring();
  error_body([&] { host.run_line(fall_silent, &output); });
  EXPECT_EQ(passed(), all_of(command_time));
}

TEST_F(CommandTime, ClosingGivesTheChildTwoSeconds) {
  EXPECT_EQ(output_of(host, "trap '' TERM; echo ready"), "ready");
  start_measuring();
  host.close_connection();
  EXPECT_EQ(passed(), 2);
}
