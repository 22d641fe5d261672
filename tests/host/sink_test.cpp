#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <thread>
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

  std::string failure(const std::string& code, const std::string& output) const {
    return "  - Remote command \"" + sink_command("file") + "\" failed with error code " + code +
           "\n  - Command output: \"" + output + "\"\n";
  }

  /* Waits until the sink has made a file of that name beside itself. */
  void wait_until_it_has_made(const std::string& name) const {
    while (!std::filesystem::exists(std::filesystem::path(sink->path()).replace_filename(name))) usleep(1000);
  }

  std::string timeout(const std::string& step) const {
    return "  - Timeout occurred while running remote command: \"" + sink_command("file") + " (" + step + ")\"\n";
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

TEST_F(Sink, AnErrorAtItsStartIsReported) {
  const std::string error = error_of("printf '\\002scp: no room\\n'\n" + wait_forever);
  EXPECT_EQ(error, failure("2", "scp: no room"));
}

TEST_F(Sink, AnErrorAfterTheHeaderIsReported) {
  const std::string error = error_of(header + "printf '\\002scp: no room\\n'\n" + wait_forever);
  EXPECT_EQ(error, failure("2", "scp: no room"));
}

TEST_F(Sink, AnErrorAfterTheDataIsReported) {
  const std::string error = error_of(data + "printf '\\002scp: no room\\n'\n" + wait_forever);
  EXPECT_EQ(error, failure("2", "scp: no room"));
}

TEST_F(Sink, AnErrorAfterTheEndIsReported) {
  const std::string error = error_of(end + "printf '\\002scp: no room\\n'\n" + wait_forever);
  EXPECT_EQ(error, failure("2", "scp: no room"));
}

TEST_F(Sink, AnErrorWarnsOnTheConsoleWithoutAHost) {
  error_of("printf '\\002scp: no room\\n'\n" + wait_forever);
  EXPECT_EQ(recorded_system::take_console(),
            std::vector<std::string>{"\nWARNING: Log Archiving unable to communicate with archive host \n"});
}

TEST_F(Sink, AnErrorIsNotAnswered) {
  error_of("printf '\\002scp: no room\\n'; take_rest\n");
  EXPECT_EQ(sink->rest(), "");
}

TEST_F(Sink, AWarningIsReported) {
  const std::string error = error_of(header + "printf '\\001scp: no such directory\\n'; next_line end; printf '\\0'\n");
  EXPECT_EQ(error, failure("1", "scp: no such directory"));
}

TEST_F(Sink, AWarningIsAnsweredWithTheEnd) {
  error_of(header + "printf '\\001scp: no such directory\\n'; next_line end; printf '\\0'\n");
  EXPECT_EQ(sink->taken("end"), "E\n");
}

TEST_F(Sink, TheAnswerToTheEndAfterAWarningIsIgnored) {
  const std::string error =
      error_of(header + "printf '\\001scp: no such directory\\n'; next_line end; printf '\\002x\\n'\n" + wait_forever);
  EXPECT_EQ(error, failure("1", "scp: no such directory"));
}

TEST_F(Sink, AWarningWarnsOnTheConsole) {
  error_of(header + "printf '\\001scp: no such directory\\n'; next_line end; printf '\\0'\n");
  EXPECT_EQ(recorded_system::take_console().size(), 1u);
}

TEST_F(Sink, AWarningOfASinkThatExitsIsReported) {
  const std::string error = error_of(header + "printf '\\001scp: no such directory\\n'\n");
  EXPECT_EQ(error, failure("1", "scp: no such directory"));
}

TEST_F(Sink, AWarningOfASinkThatTakesTheShellWithItIsReported) {
  const std::string error = error_of(header + "printf '\\001scp: no such directory\\n'; kill -KILL $PPID\n");
  EXPECT_EQ(error, failure("1", "scp: no such directory"));
}

TEST_F(Sink, AWarningOfASinkThatStaysSilentIsReportedAtTheDeadline) {
  set_tunable("ssh_command_timeout", "1");
  const std::string error = error_of(header + "printf '\\001scp: no such directory\\n'\n" + wait_forever);
  EXPECT_EQ(error, failure("1", "scp: no such directory"));
}

TEST_F(Sink, AnErrorWithoutTheEndOfItsLineIsReportedAtTheDeadline) {
  set_tunable("ssh_command_timeout", "1");
  const std::string error = error_of("printf '\\002scp: no r'\n" + wait_forever);
  EXPECT_EQ(error, failure("2", ""));
}

TEST_F(Sink, AnErrorOfASinkThatTakesTheShellWithItIsReported) {
  const std::string error = error_of("printf '\\002scp: no r'; kill -KILL $PPID\n");
  EXPECT_EQ(error, failure("2", ""));
}

TEST_F(Sink, AnUnknownByteIsReportedWithoutBeingShown) {
  const std::string error = error_of("printf '\\007bell\\n'\n" + wait_forever);
  EXPECT_EQ(error, failure("7", "bell"));
}

TEST_F(Sink, AnUnknownByteOfTheUpperHalfIsReportedWithoutBeingShown) {
  const std::string error = error_of("printf '\\200x\\n'\n" + wait_forever);
  EXPECT_EQ(error, failure("128", "x"));
}

TEST_F(Sink, APrintableByteBelongsToTheMessage) {
  const std::string error = error_of("echo 'trouble ahead'\n" + wait_forever);
  EXPECT_EQ(error, failure("116", "trouble ahead"));
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

TEST_F(Sink, SilenceAtItsStartIsATimeout) {
  set_tunable("ssh_command_timeout", "1");
  const std::string error = error_of(wait_forever);
  EXPECT_EQ(error, timeout("0"));
}

TEST_F(Sink, SilenceAfterTheHeaderIsATimeout) {
  set_tunable("ssh_command_timeout", "1");
  const std::string error = error_of(header + wait_forever);
  EXPECT_EQ(error, timeout("0"));
}

TEST_F(Sink, AShellThatDoesNotStartItIsATimeout) {
  host.run_line("exec sleep 100", nullptr);
  set_tunable("ssh_command_timeout", "1");
  const std::string error = error_of("");
  EXPECT_EQ(error, timeout("0"));
}

TEST_F(Sink, AShellThatFloodsInsteadOfStartingItIsATimeout) {
  host.run_line("exec yes noise", nullptr);
  set_tunable("ssh_command_timeout", "1");
  const std::string error = error_of("");
  EXPECT_EQ(error, timeout("0"));
}

TEST_F(Sink, SilenceAfterTheDataIsATimeout) {
  set_tunable("ssh_command_timeout", "1");
  const std::string error = error_of(data + wait_forever);
  EXPECT_EQ(error, timeout("1"));
}

TEST_F(Sink, SilenceAfterTheEndIsATimeout) {
  set_tunable("ssh_command_timeout", "1");
  const std::string error = error_of(end + wait_forever);
  EXPECT_EQ(error, timeout("1"));
}

TEST_F(Sink, ThatDoesNotExitIsATimeout) {
  set_tunable("ssh_command_timeout", "1");
  const std::string error = error_of(end + "printf '\\0'\n" + wait_forever);
  EXPECT_EQ(error, timeout("1"));
}

TEST_F(Sink, ThatFloodsInsteadOfExitingIsATimeout) {
  set_tunable("ssh_command_timeout", "1");
  const std::string error = error_of(end + "printf '\\0'\nexec yes noise\n");
  EXPECT_EQ(error, timeout("1"));
}

TEST_F(Sink, ThatLeavesAnUnfinishedLineDoesNotHideTheEndMarker) {
  use_sink(end + "printf '\\0unfinished'\n");
  EXPECT_NO_THROW(host.send_data("abc", 3, "file", 0644));
}

TEST_F(Sink, ThatTakesNoDataIsAnUnconvertedTimeout) {
  set_tunable("ssh_command_timeout", "1");
  use_sink(header + "printf '\\0'\n" + wait_forever);
  host.start_send_file("file", 1000000, 0644);
  const std::string much = some_bytes(1000000);
  EXPECT_THROW(host.continue_send_file(much.data(), 1000000), TavrenTimeout);
}

TEST_F(Sink, WaitingForTheRestOfItsComplaintIsCancelledByDisabling) {
  use_sink("printf '\\002half a line'; echo so >$dir/said\n" + wait_forever);
  std::thread other([this] {
    wait_until_it_has_made("said");
    host.disable();
  });
  EXPECT_THROW(host.send_data("abc", 3, "file", 0644), TavrenOperationCancelled);
  other.join();
}

TEST_F(Sink, WaitingForItsAnswerToTheEndAfterAWarningIsCancelledByDisabling) {
  use_sink("printf '\\001scp: no\\n'; next_line end\n" + wait_forever);
  std::thread other([this] {
    wait_until_it_has_made("end");
    host.disable();
  });
  EXPECT_THROW(host.send_data("abc", 3, "file", 0644), TavrenOperationCancelled);
  other.join();
}

TEST_F(Sink, WaitingForItIsCancelledByDisabling) {
  use_sink(wait_forever);
  host.disable();
  EXPECT_THROW(host.send_data("abc", 3, "file", 0644), TavrenOperationCancelled);
}
