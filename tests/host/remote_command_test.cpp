#include <gtest/gtest.h>

#include <list>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "support/client_dialogue.h"
#include "support/host_session.h"
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

  std::string error_of(const std::string& command) {
    return error_body([&] { run(command); });
  }

  /* Leaves output for the next command to find. */
  void leave_output(const std::string& command) { host.run_line(command, nullptr); }

  int status = -1;
  Lines lines;
};

}  // namespace

/* The first one is quoted, with question marks for what a shell or a line would change. */
TEST_F(RemoteCommand, IsSentInOnePieceBetweenItsMarkers) {
  const std::pair<std::string, const char*> commands[] = {
      {"pwd -P", "pwd -P"}, {"echo 'a'", "echo '\\''a'\\''"}, {"echo 'a\\b\rc'\n#\r\r", "echo '\\''a?b\rc'\\''?#?\?"}};
  recorded_system::record_writes();
  for (const auto& [command, marked] : commands) {
    run(command);
    EXPECT_EQ(recorded_system::take_writes(),
              std::vector<std::string>{std::string("echo '** RUNNING ") + marked + "'; " + command +
                                       "\necho '** EXIT CODE: '$?\n"});
  }
}

TEST_F(RemoteCommand, ReturnsItsOutputAndItsStatus) {
  const std::tuple<std::string, Lines, int> commands[] = {
      {"echo one; echo; echo three", {"one", "", "three"}, 0},
      {"true", {}, 0},
      {"(exit 1)", {}, 1},
      {"(exit 2)", {}, 2},
      {"(exit 127)", {}, 127},
      {"(exit 255)", {}, 255},
      {"printf 'a\\rb\\r\\r\\n'", {"a\rb"}, 0}, /* without carriage returns at the ends */
      {"echo '** RUNNING x'", {"** RUNNING x"}, 0},
      {"printf 'a\\\\b\\n'", {"a\\b"}, 0},
      {"echo a\necho b\n(exit 3)", {"a", "b"}, 3},
      {"echo a\n", {"a"}, 0},
      {"echo a\r\r", {"a"}, 0},
      {"printf '%s\\n' 'a\rb'", {"a\rb"}, 0},
      {"echo '\xc3\xa4\xff\x80'", {"\xc3\xa4\xff\x80"}, 0},
      /* What is left behind the 14 bytes that are taken for the prefix is a number all the same. */
      {"printf 'a\\nb'; false", {"a"}, 1},
  };
  for (const auto& [command, output, its_status] : commands) {
    SCOPED_TRACE(command);
    lines = {"earlier"};
    run(command);
    EXPECT_EQ(lines.front(), "earlier"); /* what is there stays */
    lines.pop_front();
    EXPECT_EQ(lines, output);
    EXPECT_EQ(status, its_status);
  }
}

TEST_F(RemoteCommand, DropsLeftOverOutput) {
  for (const char* left_over : {"echo left; echo over", "echo '** RUNNING echo mine and more'",
                                "echo 'x ** RUNNING echo mine'", "echo '** EXIT CODE: 77'"}) {
    SCOPED_TRACE(left_over);
    lines.clear();
    leave_output(left_over);
    run("echo mine");
    EXPECT_EQ(lines, Lines{"mine"});
    EXPECT_EQ(status, 0);
  }
}

TEST_F(RemoteCommand, IsReadBackWhateverTheShellDoesToItsMarker) {
  for (const char* shell : {"/bin/dash", "/bin/bash"}) {
    host.close_connection();
    set_command("sh", shell);
    host.open_connection();
    for (const char* command : {"echo 'a\\b\\nc\\0d'", "echo a\necho b", "echo a\r", "echo '-e -n'"}) {
      EXPECT_NO_THROW(host.run_and_check_ecode(command)) << shell << ": " << command;
    }
  }
}

TEST_F(RemoteCommand, WithAStatusThatIsNoNumberIsAShellError) {
  for (const auto& [command, text] :
       {std::pair{"echo '** EXIT CODE: many'", "many"}, {"echo '** EXIT CODE: '", ""}, {"printf abc", "E: 0"}}) {
    EXPECT_EQ(error_of(command), "  - Remote shell error: $? evaluated to \"" + std::string(text) + "\"\n");
  }
}

TEST_F(RemoteCommand, ThatFailsNamesOneArgument) {
  EXPECT_EQ(error_codes([this] { run("printf abc"); }), "11(E: 0)");
  EXPECT_EQ(error_codes([this] { host.run_command("exec sleep 100", status, lines, 1); }), "17(exec sleep 100)");
}

TEST_F(RemoteCommand, WithTooMuchOutputIsExcessive) {
  for (const std::string command : {"yes | head -n 100000", "head -c 200000 /dev/zero"}) {
    EXPECT_EQ(error_codes([&] { run(command); }), "16(" + command + ")");
    host.close_connection();
    host.open_connection();
    EXPECT_EQ(error_of(command), "  - Remote command \"" + command + "\" produced excessive output\n");
    host.close_connection();
    host.open_connection();
  }
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
  EXPECT_EQ(error_of("pwd"), "  - Timeout occurred while running remote command: \"pwd\"\n");
}

TEST_F(RemoteCommand, AfterATimeoutSkipsTheLateOutput) {
  const ScriptedClient meeting("");
  EXPECT_THROW(host.run_command("read x <" + meeting.path("go") + "; echo late", status, lines, 1), TavrenError);
  release(meeting.path("go"));
  run("echo mine");
  EXPECT_EQ(lines, Lines{"mine"});
  EXPECT_EQ(status, 0);
}

TEST_F(RemoteCommand, WithMuchOutputIsNotExcessive) {
  run("yes | head -n 40000");
  EXPECT_EQ(lines.size(), 40000u);
}

TEST_F(RemoteCommand, BehindExcessiveOutputOfAnEarlierOneBlamesTheProgram) {
  leave_output("head -c 200000 /dev/zero");
  const std::string error = error_of("pwd");
  EXPECT_EQ(error.find("  - /bin/sh produced excessive output ("), 0u) << error;
}

TEST_F(RemoteCommand, ThatEndsTheShellSaysSo) {
  const std::string error = error_of("echo last words; exit 3");
  EXPECT_EQ(first_lines(error, 1), "  - Program exited unexpectedly: /bin/sh\n");
  EXPECT_NE(error.find("  - Output: \"last words\"\n"), std::string::npos) << error;
}

TEST_F(RemoteCommand, OrRawLineWithoutAChildIsAFailedAssertion) {
  TavrenHost unconnected(false, false);
  expect_assertion("TavrenHost", "process != NULL", [&] { unconnected.run_and_check_ecode("pwd"); });
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

TEST_F(RemoteCommand, LineReturnsOneLineOfOutputOrReadsNothing) {
  std::string first, second, third;
  host.run_line("echo one", nullptr);
  host.run_line("echo two; echo three", &first);
  host.run_line("true", &second);
  host.run_line("true", &third);
  EXPECT_EQ(first + " " + second + " " + third, "one two three");
}
