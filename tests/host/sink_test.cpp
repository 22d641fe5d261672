#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "TavrenExceptions.h"
#include "host/transfer_fixture.h"

/*
 * What the sink, the remote copy program, may answer: a zero byte when all is well, or anything else.
 */
namespace {

class Sink : public SinkTest {
 protected:
  /* The error of a file of three bytes that is sent to a sink with the lines body. */
  std::string error_of(const std::string& body) {
    use_sink(body);
    return error_body([this] { host.send_data("abc", 3, "file", 0644); });
  }

  /* Expects that to be what a sink says behind a byte of that code. */
  void expect_failure(const std::string& body, const std::string& code, const std::string& output) {
    const std::string error = error_of(body);
    EXPECT_EQ(error, failure(code, output)) << body;
    start_over();
  }
};

}  // namespace

TEST_F(Sink, ReadsTheHeaderTheDataAndTheEnd) {
  use_sink(end + "printf '\\0'");
  host.send_data("abc", 3, "file", 0644);
  EXPECT_EQ(sink->taken("header"), "C0644 3 file\n");
  EXPECT_EQ(sink->taken("data"), std::string("abc\0", 4));
  EXPECT_EQ(sink->taken("end"), "E\n");
}

TEST_F(Sink, AnErrorIsReportedAtEachOfItsAnswers) {
  for (const std::string& before : {std::string(), header, data, end}) {
    expect_failure(before + "printf '\\002scp: no room\\n'\n" + wait_forever, "2", "scp: no room");
  }
}

TEST_F(Sink, AnErrorWarnsOnTheConsoleWithoutAHostAndIsNotAnswered) {
  error_of("printf '\\002scp: no room\\n'; take_rest\n");
  EXPECT_EQ(recorded_system::take_console(),
            std::vector<std::string>{"\nWARNING: Log Archiving unable to communicate with archive host \n"});
  EXPECT_EQ(sink->rest(), "");
}

TEST_F(Sink, AWarningIsReportedWhateverComesBehindIt) {
  for (const std::string behind :
       {"next_line end; printf '\\0'", "next_line end; printf '\\002x\\n'; sleep 100", "", "kill -KILL $PPID"}) {
    expect_failure(header + "printf '\\001scp: no such directory\\n'\n" + behind, "1", "scp: no such directory");
  }
}

TEST_F(Sink, AWarningIsAnsweredWithTheEndAndWarnsOnTheConsole) {
  error_of(header + "printf '\\001scp: no such directory\\n'; next_line end; printf '\\0'\n");
  EXPECT_EQ(sink->taken("end"), "E\n");
  EXPECT_EQ(recorded_system::take_console().size(), 1u);
}

TEST_F(Sink, AnErrorOfASinkThatTakesTheShellWithItIsReported) {
  expect_failure("printf '\\002scp: no r'; kill -KILL $PPID\n", "2", "");
}

TEST_F(Sink, AnUnknownByteIsReportedAndShownWhereItIsPrintable) {
  expect_failure("printf '\\007bell\\n'\n" + wait_forever, "7", "bell");
  expect_failure("printf '\\200x\\n'\n" + wait_forever, "128", "x");
  expect_failure("echo 'trouble ahead'\n" + wait_forever, "116", "trouble ahead");
}

TEST_F(Sink, AMissingCopyProgramShowsTheShellsComplaintWhole) {
  set_command("scp", "no-such-copy -q -t");
  const std::string error = error_body([this] { host.send_data("abc", 3, "file", 0644); });
  const std::string front =
      "  - Remote command \"no-such-copy -q -t 'file'\" failed with error code 47\n"
      "  - Command output: \"/bin/sh: ";
  EXPECT_EQ(error.find(front), 0u) << error;
  EXPECT_NE(error.find(": no-such-copy: not found\"\n"), std::string::npos) << error;
}

TEST_F(Sink, ARealWarningIsReported) {
  const std::string error = error_body([this] { host.send_data("abc", 3, "no/such/file", 0644); });
  EXPECT_EQ(first_lines(error, 1), "  - Remote command \"scp -q -t 'no/such/file'\" failed with error code 1\n");
  EXPECT_NE(error.find("No such file or directory\"\n"), std::string::npos) << error;
}

TEST_F(Sink, AComplaintWhileDataIsSentIsIncorrectOutput) {
  const std::string error = error_of(header + "printf '\\0complaint\\n'\n" + wait_forever);
  EXPECT_EQ(error, "  - Remote command \"" + sink_command("file") +
                       "\" produced incorrect output: 1 line(s) of output\n"
                       "  - Command output: \"complaint\"\n"
                       "  - Expected output: \"\"\n");
}

TEST_F(Sink, TheBeginningOfALineWhileDataIsSentIsNoComplaintYet) {
  use_sink(header + "printf '\\0compl'\n" + wait_forever);
  host.start_send_file("file", 3, 0644);
  EXPECT_NO_THROW(host.continue_send_file("abc", 3));
}

TEST_F(Sink, AComplaintThatComesInPiecesIsShownWhole) {
  use_sink(header + "printf '\\0compl'; head -c 3 >/dev/null; echo aint\n" + wait_forever);
  host.start_send_file("file", 1000000, 0644);
  const std::string error = error_body([this] {
    for (int i = 0; i < 1000000; ++i) host.continue_send_file("abc", 3);
  });
  EXPECT_NE(error.find("  - Command output: \"complaint\"\n"), std::string::npos) << error;
}

/* With the real clock and a far side that never stops writing: TransferTime has the others. */
TEST_F(Sink, AFloodInItsPlaceIsATimeout) {
  set_tunable("ssh_command_timeout", "1");
  host.run_line("exec yes noise", nullptr);
  const std::string error_at_its_start = error_of("");
  EXPECT_EQ(error_at_its_start, timeout("0"));
  start_over();
  const std::string error_at_its_end = error_of(end + "printf '\\0'\nexec yes noise\n");
  EXPECT_EQ(error_at_its_end, timeout("1"));
}

TEST_F(Sink, ThatLeavesAnUnfinishedLineDoesNotHideTheEndMarker) {
  use_sink(end + "printf '\\0unfinished'\n");
  EXPECT_NO_THROW(host.send_data("abc", 3, "file", 0644));
}

/* For the rest of its complaint, and for its answer to the end after a warning. */
TEST_F(Sink, WaitingForItIsCancelledByDisabling) {
  for (const auto& [body, made] : {std::pair{"printf '\\002half a line'; echo so >$dir/said\n", "said"},
                                   {"printf '\\001scp: no\\n'; next_line end\n", "end"}}) {
    use_sink(body + wait_forever);
    std::thread other([this, file = sink->path(made)] {
      while (!std::filesystem::exists(file)) usleep(1000);
      host.disable();
    });
    EXPECT_THROW(host.send_data("abc", 3, "file", 0644), TavrenOperationCancelled) << body;
    other.join();
    host.close_connection();
    open();
  }
  host.disable();
  EXPECT_THROW(host.send_data("abc", 3, "file", 0644), TavrenOperationCancelled);
}
