#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "TavrenExceptions.h"
#include "host/measured_time.h"
#include "host/transfer_fixture.h"
#include "support/run_in_child.h"

/*
 * How long each step of a transfer waits for the far side.
 */
namespace {

class TransferTime : public SinkTest, protected MeasuredTime {
 protected:
  std::string call_of_sink() const {
    return "echo '_TAV/REN_' BEGIN; " + sink_command("file") + "; echo; echo '_TAV/REN_' END\n";
  }

  /* Has the shell fall silent for good. */
  void silence_shell() { host.run_line(": >" + sink->path("silence") + "; exec sleep 100", nullptr); }

  /* Expects action, in which the far side comes to its fall_silent, to fail with error after seconds. */
  void expect_failure(const std::function<void()>& action, const std::string& error,
                      int seconds = all_of(command_time)) {
    start_measuring(sink->path("silence"));
    EXPECT_EQ(error_body(action), error);
    EXPECT_EQ(passed(), seconds);
  }

  /* The same; two seconds of uptime pass when the far side comes to its pause and the action waits for it. */
  void expect_failure_with_pause(const std::function<void()>& action, const std::string& error, int seconds) {
    sink->make_fifo("pausing");
    expect_failure([&] { run_with_pause(action, *sink, 2); }, error, seconds);
  }

  const std::function<void()> start_file = [this] { host.start_send_file("file", 3, 0644); };
  const std::function<void()> send_file = [this] { host.send_data("abc", 3, "file", 0644); };
  const std::function<void()> start_stream = [this] { host.start_send_stream("file"); };
  const std::string stream_timeout = "  - Timeout occurred while running remote command: \"/bin/cat >'file' (0)\"\n";
  const std::string fall_silent = ": >$dir/silence; exec sleep 100\n";
  const std::string pause = "echo >$dir/pausing; read -r go <$dir/go\n";
};

}  // namespace

TEST_F(TransferTime, TheCopyProgramIsCalledWithinTheTimeOfACommand) {
  use_sink(wait_forever);
  recorded_system::refuse_to_write(call_of_sink());
  expect_failure(start_file, timeout("0"));
}

TEST_F(TransferTime, TheCallOfTheCopyProgramAndTheShellHaveTheTimeOfACommandTogether) {
  use_sink(wait_forever);
  silence_shell();
  recorded_system::refuse_to_write(call_of_sink(), 1);
  expect_failure(start_file, timeout("0"));
}

TEST_F(TransferTime, TheHeaderIsTakenWithinTheTimeOfACommand) {
  use_sink("printf '\\0'\n" + wait_forever);
  recorded_system::refuse_to_write("C0644 3 file\n");
  expect_failure(start_file, timeout("0"));
}

/* To its call, to the header, to the data and to the "E", and at last its exit. */
TEST_F(TransferTime, EachAnswerOfTheSinkComesWithinTheTimeOfACommand) {
  for (const std::string& answers : {std::string(), header, data, end, end + "printf '\\0'\n"}) {
    SCOPED_TRACE(answers);
    use_sink(answers + fall_silent);
    expect_failure(send_file, timeout(answers.size() < data.size() ? "0" : "1"));
    expect_assertion("TavrenHost", "running_command.size() == 0", [this] { host.run_and_check_ecode("pwd"); });
    start_measuring();
    start_over();
  }
}

TEST_F(TransferTime, EachAnswerHasATimeOfItsOwn) {
  use_sink(pause + header + fall_silent);
  expect_failure_with_pause(start_file, timeout("0"), 2 + all_of(command_time));
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
  start_measuring(sink->path("silence"));
  host.continue_send_file("abc", 3);
  EXPECT_EQ(passed(), 0);
}

TEST_F(TransferTime, TheEndIsTakenWithinTheTimeOfACommand) {
  use_sink(header + "printf '\\0'\n" + wait_forever);
  recorded_system::refuse_to_write(std::string("\0E\n", 3));
  expect_failure(send_file, timeout("1"));
}

TEST_F(TransferTime, TheSinksExitHasWhatItsAnswersHaveLeft) {
  use_sink(end + pause + "printf '\\0'\n" + fall_silent);
  expect_failure_with_pause(send_file, timeout("1"), all_of(command_time));
}

TEST_F(TransferTime, AnUnfinishedErrorHasWhatItsFirstByteHasLeft) {
  use_sink(pause + "printf '\\002no'\n" + fall_silent);
  expect_failure_with_pause(start_file, failure("2", ""), all_of(command_time));
}

TEST_F(TransferTime, TheAnswerToAWarningHasFiveSeconds) {
  use_sink(header + "printf '\\001trouble\\n'\n" + wait_forever);
  recorded_system::refuse_to_write("E\n");
  expect_failure(send_file, failure("1", "trouble"), all_of(fixed_send_time));
}

TEST_F(TransferTime, ASinkThatIsToExitHasWhatItsWarningHasLeft) {
  use_sink(pause + "printf '\\001trouble\\n'\n" + fall_silent);
  expect_failure_with_pause(start_file, failure("1", "trouble"), all_of(command_time));
}

TEST_F(TransferTime, AStreamsWriterIsCalledWithinTheTimeOfACommand) {
  use_sink("");
  recorded_system::refuse_to_write("echo '_TAV/REN_' BEGIN; /bin/cat >'file' || /bin/cat >/dev/null\n");
  expect_failure(start_stream, stream_timeout);
}

TEST_F(TransferTime, TheShellCallsAStreamsWriterWithinTheTimeOfACommand) {
  use_sink("");
  silence_shell();
  expect_failure(start_stream, stream_timeout);
}
