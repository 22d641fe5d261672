#include <gtest/gtest.h>
#include <unistd.h>

#include <functional>
#include <future>
#include <string>

#include "TavrenExceptions.h"
#include "host/measured_time.h"
#include "host/transfer_fixture.h"
#include "support/process_state.h"
#include "support/run_in_child.h"

/*
 * How long each step of a transfer waits for the far side.
 */
namespace {

class TransferTime : public SinkTest, protected MeasuredTime {
 protected:
  /* Begins to measure; the sink falls silent at its fall_silent. */
  void start_measuring() { MeasuredTime::start_measuring(sink == nullptr ? "" : sink->path("silence")); }

  std::string call_of_sink() const {
    return "echo '_TAV/REN_' BEGIN; " + sink_command("file") + "; echo; echo '_TAV/REN_' END\n";
  }

  /* Has the shell fall silent for good. */
  void silence_shell() { host.run_line(": >" + sink->path("silence") + "; exec sleep 100", nullptr); }

  /* Expects a file of three bytes, sent to a sink with the lines body, to fail with error after seconds. */
  void expect_failure(const std::string& body, const std::string& error, int seconds) {
    use_sink(body);
    start_measuring();
    const std::string whole = error_body([this] { host.send_data("abc", 3, "file", 0644); });
    EXPECT_NE(whole.find(error), std::string::npos) << whole;
    EXPECT_EQ(passed(), seconds);
  }

  /* Runs action while seconds of uptime pass once the far side has come to pause and the action waits for it. */
  void run_with_pause(int seconds, const std::function<void()>& action) {
    sink->make_fifo("pausing");
    std::promise<pid_t> thread;
    auto running = std::async(std::launch::async, [&] {
      thread.set_value(gettid());
      action();
    });
    wait_at(sink->path("pausing"));
    wait_until_it_stays_asleep(thread.get_future().get());
    recorded_system::pass_uptime(seconds);
    release(sink->path("go"));
    running.get();
  }

  const std::string fall_silent = ": >$dir/silence; exec sleep 100\n";
  const std::string pause = "echo >$dir/pausing; read -r go <$dir/go\n";
  const std::string starting = "(0)\"\n", ending = "(1)\"\n";
};

}  // namespace

TEST_F(TransferTime, TheCopyProgramIsCalledWithinTheTimeOfACommand) {
  use_sink(wait_forever);
  recorded_system::refuse_to_write(call_of_sink());
  start_measuring();
  EXPECT_NE(error_body([this] { host.start_send_file("file", 3, 0644); }).find(starting), std::string::npos);
  EXPECT_EQ(passed(), all_of(command_time));
}

TEST_F(TransferTime, TheShellCallsTheCopyProgramWithinTheTimeOfACommand) {
  use_sink(wait_forever);
  silence_shell();
  start_measuring();
  EXPECT_NE(error_body([this] { host.start_send_file("file", 3, 0644); }).find(starting), std::string::npos);
  EXPECT_EQ(passed(), all_of(command_time));
}

TEST_F(TransferTime, TheShellHasWhatTheCallHasLeft) {
  use_sink(wait_forever);
  silence_shell();
  recorded_system::refuse_to_write(call_of_sink(), 1);
  start_measuring();
  EXPECT_NE(error_body([this] { host.start_send_file("file", 3, 0644); }).find(starting), std::string::npos);
  EXPECT_EQ(passed(), all_of(command_time));
}

TEST_F(TransferTime, TheSinkStartsWithinTheTimeOfACommand) {
  expect_failure(fall_silent, starting, all_of(command_time));
}

TEST_F(TransferTime, TheHeaderIsTakenWithinTheTimeOfACommand) {
  recorded_system::refuse_to_write("C0644 3 file\n");
  expect_failure("printf '\\0'\n" + wait_forever, starting, all_of(command_time));
}

TEST_F(TransferTime, TheHeaderIsAnsweredWithinTheTimeOfACommand) {
  expect_failure(header + fall_silent, starting, all_of(command_time));
}

TEST_F(TransferTime, EachAnswerHasATimeOfItsOwn) {
  use_sink(pause + header + fall_silent);
  start_measuring();
  run_with_pause(2, [this] { error_body([this] { host.start_send_file("file", 3, 0644); }); });
  EXPECT_EQ(passed(), 2 + all_of(command_time));
}

TEST_F(TransferTime, DataIsTakenWithinTheTimeOfACommand) {
  use_sink(header + "printf '\\0'\n" + wait_forever);
  host.start_send_file("file", 3, 0644);
  recorded_system::refuse_to_write("abc");
  start_measuring();
  EXPECT_THROW(host.continue_send_file("abc", 3), TavrenTimeout);
  EXPECT_EQ(passed(), all_of(command_time));
}

TEST_F(TransferTime, NoComplaintIsWaitedFor) {
  use_sink(header + "printf '\\0'\n" + fall_silent);
  host.start_send_file("file", 3, 0644);
  start_measuring();
  host.continue_send_file("abc", 3);
  EXPECT_EQ(passed(), 0);
}

TEST_F(TransferTime, TheEndIsTakenWithinTheTimeOfACommand) {
  recorded_system::refuse_to_write(std::string("\0E\n", 3));
  expect_failure(header + "printf '\\0'\n" + wait_forever, ending, all_of(command_time));
}

TEST_F(TransferTime, TheDataIsAnsweredWithinTheTimeOfACommand) {
  expect_failure(data + fall_silent, ending, all_of(command_time));
}

TEST_F(TransferTime, TheEndIsAnsweredWithinTheTimeOfACommand) {
  expect_failure(end + fall_silent, ending, all_of(command_time));
}

TEST_F(TransferTime, TheSinkExitsWithinTheTimeOfACommand) {
  expect_failure(end + "printf '\\0'\n" + fall_silent, ending, all_of(command_time));
}

TEST_F(TransferTime, TheSinksExitHasWhatItsAnswersHaveLeft) {
  use_sink(end + pause + "printf '\\0'\n" + fall_silent);
  start_measuring();
  run_with_pause(2, [this] { error_body([this] { host.send_data("abc", 3, "file", 0644); }); });
  EXPECT_EQ(passed(), all_of(command_time));
}

TEST_F(TransferTime, AFileThatDidNotEndInTimeKeepsTheShellToItself) {
  expect_failure(end + fall_silent, ending, all_of(command_time));
  expect_assertion("TavrenHost", "running_command.size() == 0", [this] { host.run_and_check_ecode("pwd"); });
}

TEST_F(TransferTime, AnUnfinishedErrorHasWhatItsFirstByteHasLeft) {
  use_sink(pause + "printf '\\002no'\n" + fall_silent);
  start_measuring();
  run_with_pause(2, [this] { error_body([this] { host.start_send_file("file", 3, 0644); }); });
  EXPECT_EQ(passed(), all_of(command_time));
}

TEST_F(TransferTime, TheAnswerToAWarningHasFiveSeconds) {
  recorded_system::refuse_to_write("E\n");
  expect_failure(header + "printf '\\001trouble\\n'\n" + wait_forever, "  - Command output: \"trouble\"\n",
                 all_of(fixed_send_time));
}

TEST_F(TransferTime, ASinkThatIsToExitHasWhatItsWarningHasLeft) {
  use_sink(pause + "printf '\\001trouble\\n'\n" + fall_silent);
  start_measuring();
  run_with_pause(2, [this] { error_body([this] { host.start_send_file("file", 3, 0644); }); });
  EXPECT_EQ(passed(), all_of(command_time));
}

TEST_F(TransferTime, AStreamsWriterIsCalledWithinTheTimeOfACommand) {
  recorded_system::refuse_to_write("echo '_TAV/REN_' BEGIN; /bin/cat >'file' || /bin/cat >/dev/null\n");
  start_measuring();
  EXPECT_NE(error_body([this] { host.start_send_stream("file"); }).find(starting), std::string::npos);
  EXPECT_EQ(passed(), all_of(command_time));
}

TEST_F(TransferTime, TheShellCallsAStreamsWriterWithinTheTimeOfACommand) {
  use_sink("");
  silence_shell();
  start_measuring();
  EXPECT_NE(error_body([this] { host.start_send_stream("file"); }).find(starting), std::string::npos);
  EXPECT_EQ(passed(), all_of(command_time));
}
