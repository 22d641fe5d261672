#include <gtest/gtest.h>

#include <list>
#include <string>
#include <vector>

#include "support/client_dialogue.h"
#include "support/host_session.h"
#include "support/named.h"
#include "support/recorded_system.h"
#include "support/run_in_child.h"
#include "support/scripted_client.h"

using Lines = std::list<std::string>;

namespace {

class RemoteCommand : public LoopbackTest {
 protected:
  RemoteCommand() {
    recorded_system::reset();
    open();
  }
  ~RemoteCommand() override { recorded_system::reset(); }

  /* Runs command with plenty of time, its exit status in status and its output behind what is in lines. */
  void run(const std::string& command) { host.run_command(command, status, lines, 60); }

  /* Leaves output for the next command to find. */
  void leave_output(const std::string& command) { host.run_line(command, nullptr); }

  int status = -1;
  Lines lines;
};

}  // namespace

TEST_F(RemoteCommand, IsSentInOnePieceBetweenItsMarkers) {
  recorded_system::record_writes();
  run("pwd -P");
  EXPECT_EQ(recorded_system::take_writes(),
            std::vector<std::string>{"echo '** RUNNING pwd -P'; pwd -P\necho '** EXIT CODE: '$?\n"});
}

TEST_F(RemoteCommand, QuotesItsMarker) {
  recorded_system::record_writes();
  run("echo 'a'");
  EXPECT_EQ(recorded_system::take_writes(),
            std::vector<std::string>{"echo '** RUNNING echo '\\''a'\\'''; echo 'a'\necho '** EXIT CODE: '$?\n"});
}

TEST_F(RemoteCommand, ReturnsItsOutputInOrder) {
  run("echo one; echo; echo three");
  EXPECT_EQ(lines, (Lines{"one", "", "three"}));
}

TEST_F(RemoteCommand, AddsItsOutputToTheList) {
  lines = {"earlier"};
  run("echo later");
  EXPECT_EQ(lines, (Lines{"earlier", "later"}));
}

TEST_F(RemoteCommand, ReturnsOutputWithoutCarriageReturnsAtItsEnds) {
  run("printf 'a\\rb\\r\\r\\n'");
  EXPECT_EQ(lines, (Lines{"a\rb"}));
}

TEST_F(RemoteCommand, ThatPrintsNothingReturnsNoLines) {
  run("true");
  EXPECT_EQ(lines, Lines{});
  EXPECT_EQ(status, 0);
}

TEST_F(RemoteCommand, ReturnsAnyExitStatus) {
  for (const int wanted : {1, 2, 127, 255}) {
    run("(exit " + std::to_string(wanted) + ")");
    EXPECT_EQ(status, wanted);
  }
}

TEST_F(RemoteCommand, DropsLeftOverOutput) {
  leave_output("echo left; echo over");
  run("echo mine");
  EXPECT_EQ(lines, Lines{"mine"});
}

TEST_F(RemoteCommand, IsNotConfusedByTheMarkerOfALongerCommand) {
  leave_output("echo '** RUNNING echo mine and more'");
  run("echo mine");
  EXPECT_EQ(lines, Lines{"mine"});
}

TEST_F(RemoteCommand, IsNotConfusedByItsMarkerBehindOtherText) {
  leave_output("echo 'x ** RUNNING echo mine'");
  run("echo mine");
  EXPECT_EQ(lines, Lines{"mine"});
}

TEST_F(RemoteCommand, IsNotConfusedByALeftOverStatus) {
  leave_output("echo '** EXIT CODE: 77'");
  run("echo mine");
  EXPECT_EQ(status, 0);
  EXPECT_EQ(lines, Lines{"mine"});
}

TEST_F(RemoteCommand, OutputThatIsItsOwnMarkerIsOutput) {
  run("echo '** RUNNING x'");
  EXPECT_EQ(lines, Lines{"** RUNNING x"});
}

TEST_F(RemoteCommand, MayHoldBackslashes) {
  run("printf 'a\\\\b\\n'");
  EXPECT_EQ(lines, Lines{"a\\b"});
}

TEST_F(RemoteCommand, MayHoldNewlines) {
  run("echo a\necho b\n(exit 3)");
  EXPECT_EQ(lines, (Lines{"a", "b"}));
  EXPECT_EQ(status, 3);
}

TEST_F(RemoteCommand, MayEndInANewline) {
  run("echo a\n");
  EXPECT_EQ(lines, Lines{"a"});
}

TEST_F(RemoteCommand, MayEndInCarriageReturns) {
  run("echo a\r\r");
  EXPECT_EQ(lines, Lines{"a"});
}

TEST_F(RemoteCommand, MayHoldACarriageReturn) {
  run("printf '%s\\n' 'a\rb'");
  EXPECT_EQ(lines, Lines{"a\rb"});
}

TEST_F(RemoteCommand, MayHoldEightBitCharacters) {
  run("echo '\xc3\xa4\xff\x80'");
  EXPECT_EQ(lines, Lines{"\xc3\xa4\xff\x80"});
}

TEST_F(RemoteCommand, ItsMarkerHasQuestionMarksForWhatAShellOrALineWouldChange) {
  recorded_system::record_writes();
  run("echo 'a\\b\rc'\n#\r\r");
  EXPECT_EQ(recorded_system::take_writes(),
            std::vector<std::string>{"echo '** RUNNING echo '\\''a?b\rc'\\''?#?\?'; echo 'a\\b\rc'\n#\r\r\n"
                                     "echo '** EXIT CODE: '$?\n"});
}

class RemoteShell : public LoopbackTest, public testing::WithParamInterface<Named<const char*>> {};

TEST_P(RemoteShell, ReadsEveryMarkerBack) {
  set_command("sh", GetParam().value);
  open();
  for (const char* command : {"echo 'a\\b\\nc\\0d'", "echo a\necho b", "echo a\r", "echo '-e -n'"}) {
    EXPECT_NO_THROW(host.run_and_check_ecode(command)) << command;
  }
}

using Shell = Named<const char*>;
INSTANTIATE_TEST_SUITE_P(, RemoteShell, testing::Values(Shell{"dash", "/bin/dash"}, Shell{"bash", "/bin/bash"}),
                         by_name);

TEST_F(RemoteCommand, WithAStatusThatIsNoNumberIsAShellError) {
  EXPECT_EQ(error_body([this] { run("echo '** EXIT CODE: many'"); }),
            "  - Remote shell error: $? evaluated to \"many\"\n");
}

TEST_F(RemoteCommand, WithAnEmptyStatusIsAShellError) {
  EXPECT_EQ(error_body([this] { run("echo '** EXIT CODE: '"); }), "  - Remote shell error: $? evaluated to \"\"\n");
}

TEST_F(RemoteCommand, OutputWithoutANewlineDisplacesTheStatus) {
  EXPECT_EQ(error_body([this] { run("printf abc"); }), "  - Remote shell error: $? evaluated to \"E: 0\"\n");
}

/* What is left behind the 14 bytes that are taken for the prefix is a number all the same. */
TEST_F(RemoteCommand, OneByteOfOutputWithoutANewlineIsLost) {
  run("printf 'a\\nb'; false");
  EXPECT_EQ(lines, std::list<std::string>{"a"});
  EXPECT_EQ(status, 1);
}

TEST_F(RemoteCommand, WithAnOddStatusIsAFailureWithoutASecondArgument) {
  EXPECT_EQ(error_codes([this] { run("printf abc"); }), "11(E: 0)");
}

TEST_F(RemoteCommand, WithTooMuchOutputIsAFailureWithoutASecondArgument) {
  EXPECT_EQ(error_codes([this] { run("head -c 200000 /dev/zero"); }), "16(head -c 200000 /dev/zero)");
}

TEST_F(RemoteCommand, WithoutAnEndIsAFailureWithoutASecondArgument) {
  EXPECT_EQ(error_codes([this] { host.run_command("exec sleep 100", status, lines, 1); }), "17(exec sleep 100)");
}

TEST_F(RemoteCommand, ThatTakesTooLongIsATimeout) {
  EXPECT_EQ(error_body([this] { host.run_command("exec sleep 100", status, lines, 1); }),
            "  - Timeout occurred while running remote command: \"exec sleep 100\"\n");
}

TEST_F(RemoteCommand, ThatCannotBeSentIsATimeout) {
  leave_output("exec sleep 100");
  const std::string command(200000, 'x');
  const std::string error = error_body([&] { host.run_command(command, status, lines, 1); });
  EXPECT_EQ(error.find("  - Timeout occurred while running remote command: \"xxx"), 0u) << error;
}

TEST_F(RemoteCommand, BehindAnEndlessFloodEndsAtTheDeadline) {
  leave_output("exec yes noise");
  EXPECT_EQ(error_body([this] { host.run_command("pwd", status, lines, 1); }),
            "  - Timeout occurred while running remote command: \"pwd\"\n");
}

TEST_F(RemoteCommand, BehindNoiseHasNoMoreTimeForIt) {
  leave_output("seq 200");
  recorded_system::hurry_uptime();
  EXPECT_EQ(error_body([this] { run("pwd"); }), "  - Timeout occurred while running remote command: \"pwd\"\n");
}

TEST_F(RemoteCommand, AfterATimeoutSkipsTheLateOutput) {
  const ScriptedClient meeting("");
  EXPECT_THROW(host.run_command("read x <" + meeting.path("go") + "; echo late", status, lines, 1), TavrenError);
  release(meeting.path("go"));
  run("echo mine");
  EXPECT_EQ(lines, Lines{"mine"});
  EXPECT_EQ(status, 0);
}

TEST_F(RemoteCommand, WithTooMuchOutputInLinesIsExcessive) {
  EXPECT_EQ(error_body([this] { run("yes | head -n 100000"); }),
            "  - Remote command \"yes | head -n 100000\" produced excessive output\n");
}

TEST_F(RemoteCommand, WithTooMuchOutputWithoutANewlineIsExcessive) {
  EXPECT_EQ(error_body([this] { run("head -c 200000 /dev/zero"); }),
            "  - Remote command \"head -c 200000 /dev/zero\" produced excessive output\n");
}

TEST_F(RemoteCommand, WithMuchOutputIsNotExcessive) {
  run("yes | head -n 40000");
  EXPECT_EQ(lines.size(), 40000u);
}

TEST_F(RemoteCommand, BehindExcessiveOutputOfAnEarlierOneBlamesTheProgram) {
  leave_output("head -c 200000 /dev/zero");
  const std::string error = error_body([this] { run("pwd"); });
  EXPECT_EQ(error.find("  - /bin/sh produced excessive output ("), 0u) << error;
}

TEST_F(RemoteCommand, ThatEndsTheShellSaysSo) {
  const std::string error = error_body([this] { run("echo last words; exit 3"); });
  EXPECT_EQ(first_lines(error, 1), "  - Program exited unexpectedly: /bin/sh\n");
  EXPECT_NE(error.find("  - Output: \"last words\"\n"), std::string::npos) << error;
}

TEST_F(RemoteCommand, WithoutAChildIsAFailedAssertion) {
  TavrenHost unconnected(false, false);
  expect_assertion("TavrenHost", "process != NULL", [&] { unconnected.run_and_check_ecode("pwd"); });
}

TEST_F(RemoteCommand, OfOneRawLineWithoutAChildIsAFailedAssertion) {
  TavrenHost unconnected(false, false);
  expect_assertion("TavrenHost", "process != NULL", [&] { unconnected.run_line("pwd", nullptr); });
}

TEST_F(RemoteCommand, DuringATransferIsAFailedAssertion) {
  host.start_send_stream("stream");
  expect_assertion("TavrenHost", "running_command.size() == 0", [this] { run("pwd"); });
}

TEST_F(RemoteCommand, WorksOnATerminalThatEchoes) {
  host.close_connection();
  host.disable();
  set_tunable("loopback_login", "0");
  const ScriptedClient client("become_shell() { stty sane; exec /bin/sh +i 2>&1; }\n" + ClientDialogue().login());
  set_command("ssh", client.path());
  host.enable();
  host.open_connection();
  run("echo mine");
  EXPECT_EQ(lines, Lines{"mine"});
}

TEST_F(RemoteCommand, LineIsSentAsItStands) {
  recorded_system::record_writes();
  host.run_line("echo 'a'", nullptr);
  EXPECT_EQ(recorded_system::take_writes(), std::vector<std::string>{"echo 'a'\n"});
}

TEST_F(RemoteCommand, LineReturnsOneLineOfOutput) {
  std::string first, second;
  host.run_line("echo one; echo two", &first);
  host.run_line("true", &second);
  EXPECT_EQ(first, "one");
  EXPECT_EQ(second, "two");
}

TEST_F(RemoteCommand, LineWithoutOutputWantedReadsNothing) {
  std::string next;
  host.run_line("echo one", nullptr);
  host.run_line("echo two", &next);
  EXPECT_EQ(next, "one");
}

TEST_F(RemoteCommand, LineWithoutAnAnswerIsATimeout) {
  set_tunable("ssh_command_timeout", "1");
  std::string output;
  EXPECT_EQ(error_body([&] { host.run_line("true", &output); }),
            "  - Timeout occurred while running remote command: \"true\"\n");
}

TEST_F(RemoteCommand, LineThatCannotBeSentIsATimeout) {
  set_tunable("ssh_command_timeout", "1");
  leave_output("exec sleep 100");
  const std::string error = error_body([this] { host.run_line(std::string(200000, 'x'), nullptr); });
  EXPECT_EQ(error.find("  - Timeout occurred while running remote command: \"xxx"), 0u) << error;
}
