#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <atomic>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "TavrenExceptions.h"
#include "host/odd_names.h"
#include "host/stream_fixture.h"
#include "host/transfer_fixture.h"
#include "support/early_ends.h"
#include "support/named.h"
#include "support/run_in_child.h"

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

class Stream : public StreamTest {};

/* The far end of a loopback session reads from a pipe, where the end of file is an ordinary byte. */
class LoopbackStream : public TransferTest {};

/* What a client that has heard its far end out does is what it knows of the connection and the far shell. */
class StreamEnd : public StreamTest, public testing::WithParamInterface<Named<const char*>> {
 protected:
  StreamEnd() : StreamTest(polling_shell_that_then(GetParam().value)) {}
};

class StreamCutOff : public StreamEnd {};

class StreamOfALostConnection : public StreamTest {
 protected:
  StreamOfALostConnection() : StreamTest(polling_shell_that_then("exit 255")) {}
};

/* The client closes its terminal, and does not end. */
class StreamOfAClientThatStays : public StreamTest {
 protected:
  StreamOfAClientThatStays()
      : StreamTest(polling_shell_that_then("exec <&- >&- 2>&-; [ ! -p $dir/closed ] || : >$dir/closed; sleep 100")) {}
};

class StreamSize : public Stream, public testing::WithParamInterface<size_t> {};
class StreamName : public Stream, public testing::WithParamInterface<Named<const char*>> {};

}  // namespace

TEST_F(Stream, StartsARemoteWriter) {
  recorded_system::record_writes();
  host.start_send_stream("it's");
  EXPECT_EQ(recorded_system::take_writes(),
            std::vector<std::string>{"echo '_TAV/REN_' BEGIN; /bin/cat >'it'\\''s' || /bin/cat >/dev/null\n"});
}

TEST_F(Stream, StartsTheConfiguredWriter) {
  set_command("cat", "tr a b");
  send("banana");
  EXPECT_EQ(received("file"), "bbnbnb");
}

TEST_F(Stream, SendsItsDataAsItStands) {
  host.start_send_stream("file");
  recorded_system::record_writes();
  host.continue_send_stream("two\nlines", 9);
  EXPECT_EQ(recorded_system::take_writes(), std::vector<std::string>{"two\nlines"});
}

TEST_P(StreamSize, ArrivesWhole) {
  send(text_of(GetParam()));
  EXPECT_EQ(received("file"), text_of(GetParam()));
}

TEST_P(StreamSize, ArrivesWholeWithAFinalNewline) {
  send(text_of(GetParam()) + "\n");
  EXPECT_EQ(received("file"), text_of(GetParam()) + "\n");
}

INSTANTIATE_TEST_SUITE_P(, StreamSize, testing::Values(0, 1, 2047, 2048, 2049, 4095, 4096, 4097, 100000, 5000000),
                         testing::PrintToStringParamName());

TEST_P(StreamName, IsKept) {
  send("content", GetParam().value);
  EXPECT_EQ(received(GetParam().value), "content");
}

INSTANTIATE_TEST_SUITE_P(, StreamName, testing::ValuesIn(odd_names), by_name);

TEST_F(Stream, KeepsANameOfTwoLines) {
  send("content", "two\nlines");
  EXPECT_EQ(received("two\nlines"), "content");
}

TEST_F(Stream, ManyInARowArriveWhole) {
  for (size_t size = 1; size < 40000; size += 1999) {
    send(text_of(size));
    ASSERT_EQ(received("file"), text_of(size)) << size;
    reopen();
  }
}

TEST_F(Stream, EndsTheChild) {
  const pid_t child = std::stoi(output_of(host, "echo $PPID"));
  send("content");
  host.close_connection();
  EXPECT_EQ(kill(child, 0), -1);
}

TEST_F(Stream, ThatEndedKeepsTheSessionFromFurtherCommands) {
  send("content");
  expect_assertion("TavrenHost", "running_command.size() == 0", [this] { host.run_and_check_ecode("pwd"); });
}

TEST_F(Stream, ANewConnectionWorksAfterIt) {
  send("content");
  reopen();
  EXPECT_EQ(output_of(host, "cat file; echo"), "content");
}

TEST_F(Stream, ToAFileThatCannotBeOpenedIsIncorrectOutput) {
  host.start_send_stream("no/such/file");
  const std::string error = complaint_about("text\n");
  EXPECT_EQ(first_lines(error, 1),
            "  - Remote command \"/bin/cat >'no/such/file'\" produced incorrect output: 1 line(s) of output\n");
  EXPECT_NE(error.find("no/such/file"), std::string::npos) << error;
  EXPECT_NE(error.find("\n  - Expected output: \"\"\n"), std::string::npos) << error;
}

/* Behind a redirection no name is taken for an option. */
TEST_F(Stream, ToANameWithALeadingHyphenHasItAsItIs) {
  host.start_send_stream("-no/such/file");
  EXPECT_EQ(first_lines(complaint_about("text\n"), 1),
            "  - Remote command \"/bin/cat >'-no/such/file'\" produced incorrect output: 1 line(s) of output\n");
}

TEST_F(Stream, ToAFileThatCannotBeOpenedIsNotExecuted) {
  host.start_send_stream("no/such/file");
  complaint_about("echo >executed\n");
  host.end_send_stream();
  EXPECT_FALSE(std::filesystem::exists(directory.path("executed")));
}

TEST_F(Stream, AComplaintAfterItsEndIsIncorrectOutput) {
  const ScriptedClient writer("cat; echo no room >&2", "writer");
  set_command("cat", writer.path());
  EXPECT_EQ(error_body([this] { send("content"); }), "  - Remote command \"" + writer.path() +
                                                         " >'file'\" produced incorrect output: 1 line(s) of output\n"
                                                         "  - Command output: \"no room\"\n"
                                                         "  - Expected output: \"\"\n");
}

TEST_F(Stream, AComplaintAsTheFarSidesLastActIsIncorrectOutput) {
  const ScriptedClient writer("cat; echo no room >&2", "writer");
  set_command("cat", writer.path());
  const EarlyEnds ends(EIO);
  for (int i = 0; i < 20; ++i) {
    EXPECT_THAT(error_body([this] { send("content"); }), HasSubstr("  - Command output: \"no room\"\n")) << i;
    reopen();
  }
  EXPECT_GT(EarlyEnds::count(), 0);
}

TEST_F(Stream, MuchOutputWithoutANewlineAfterItsEndIsExcessive) {
  const ScriptedClient writer("cat; head -c 200000 /dev/zero >&2", "writer");
  set_command("cat", writer.path());
  const std::string error = error_body([this] { send("content"); });
  EXPECT_EQ(error.find("  - " + client.path() + " produced excessive output ("), 0u) << error;
}

TEST_F(Stream, AChildThatEndedBeforeIsNoSuccess) {
  const pid_t child = std::stoi(output_of(host, "echo $PPID"));
  host.start_send_stream("file");
  host.continue_send_stream("content", 7);
  kill(child, SIGKILL);
  wait_for_exit(child);
  const std::string error = error_body([this] { host.end_send_stream(); });
  EXPECT_EQ(first_lines(error, 1), "  - Program exited unexpectedly: " + client.path() + "\n");
}

TEST_P(StreamEnd, IsASuccess) {
  send("content");
  EXPECT_EQ(received("file"), "content");
}

INSTANTIATE_TEST_SUITE_P(
    , StreamEnd,
    testing::Values(Named<const char*>{"WithStatus0", "exit 0"}, Named<const char*>{"WithStatus1", "exit 1"},
                    Named<const char*>{"WithStatus254", "exit 254"},
                    Named<const char*>{"AMomentAfterTheTerminalWasClosed", "exec <&- >&- 2>&-; sleep 0.3; exit 0"}),
    by_name);

TEST_P(StreamCutOff, IsAnEndOfTheProgramWithItsLastLines) {
  const std::string error = error_body([this] { send("content"); });
  EXPECT_THAT(error, StartsWith("  - Program exited unexpectedly: " + client.path() + "\n  - Output: "));
  EXPECT_THAT(error, EndsWith("  - Output: \"** EXIT CODE: 0\"\n  - Output: \"_TAV/REN_ BEGIN\"\n"));
}

TEST_P(StreamCutOff, LeavesTheChildToBeReaped) {
  error_body([this] { send("content"); });
  siginfo_t info{};
  EXPECT_EQ(waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT), 0);
  EXPECT_NE(info.si_pid, 0);
}

INSTANTIATE_TEST_SUITE_P(
    , StreamCutOff,
    testing::Values(Named<const char*>{"ByALostConnection", "exit 255"},
                    Named<const char*>{"BySigterm", "kill -TERM $$; sleep 100"},
                    Named<const char*>{"BySigkill", "kill -KILL $$; sleep 100"},
                    Named<const char*>{"ByACrash", "cd $dir; ulimit -c unlimited; kill -SEGV $$; sleep 100"},
                    Named<const char*>{"AMomentAfterTheTerminalWasClosed", "exec <&- >&- 2>&-; sleep 0.3; exit 255"}),
    by_name);

/* Nobody can tell then how the client ended. */
TEST_F(StreamOfALostConnection, IsASuccessInAHostThatReapsAllChildren) {
  signal(SIGCHLD, SIG_IGN);
  EXPECT_NO_THROW(send("content"));
  signal(SIGCHLD, SIG_DFL);
}

TEST_F(StreamOfAClientThatStays, IsATimeout) {
  set_tunable("ssh_command_timeout", "1");
  EXPECT_EQ(error_body([this] { send("content"); }),
            "  - Timeout occurred while running remote command: \"/bin/cat >'file' (1)\"\n");
}

TEST_F(StreamOfAClientThatStays, IsCancelledByDisabling) {
  host.start_send_stream("file");
  client.make_fifo("closed");
  std::thread other([this] {
    wait_at(client.path("closed"));
    host.disable();
  });
  EXPECT_THROW(host.end_send_stream(), TavrenOperationCancelled);
  other.join();
}

TEST_F(Stream, MayBeKilledByAnotherThreadWhileItEnds) {
  /* The thread sanitizer has the last word on this one. */
  host.start_send_stream("file");
  std::atomic<bool> started{false}, ended{false};
  std::thread killer([&] {
    do {
      host.kill_ssh();
      started = true;
    } while (!ended);
  });
  while (!started) std::this_thread::yield();
  try {
    host.end_send_stream();
  } catch (const TavrenError& error) {
    EXPECT_EQ(error.get_ecode(), TAVREN_E_PROGRAM_EXITED);
  }
  ended = true;
  killer.join();
}

TEST_F(Stream, AShellThatDoesNotStartTheWriterIsATimeout) {
  set_tunable("ssh_command_timeout", "1");
  host.run_line("exec sleep 100", nullptr);
  EXPECT_EQ(error_body([this] { host.start_send_stream("file"); }),
            "  - Timeout occurred while running remote command: \"/bin/cat >'file' (0)\"\n");
}

TEST_F(Stream, WaitingForItsEndIsCancelledByDisabling) {
  host.start_send_stream("file");
  host.disable();
  EXPECT_THROW(host.end_send_stream(), TavrenOperationCancelled);
}

TEST_F(LoopbackStream, CannotEndAndIsATimeout) {
  set_tunable("ssh_command_timeout", "1");
  host.start_send_stream("file");
  host.continue_send_stream("content", 7);
  EXPECT_EQ(error_body([this] { host.end_send_stream(); }),
            "  - Timeout occurred while running remote command: \"/bin/cat >'file' (1)\"\n");
}

TEST_F(LoopbackStream, ThatDidNotStartKeepsTheShellToItself) {
  set_tunable("ssh_command_timeout", "1");
  host.run_line("exec sleep 100", nullptr);
  EXPECT_THROW(host.start_send_stream("file"), TavrenError);
  expect_assertion("TavrenHost", "running_command.size() == 0", [this] { host.run_and_check_ecode("pwd"); });
}

TEST_F(LoopbackStream, ContinuingWithoutAStartIsAFailedAssertion) {
  expect_assertion("TavrenHost", "running_command.size() != 0", [this] { host.continue_send_stream("x", 1); });
}

TEST_F(LoopbackStream, EndingWithoutAStartIsAFailedAssertion) {
  expect_assertion("TavrenHost", "running_command.size() != 0", [this] { host.end_send_stream(); });
}
