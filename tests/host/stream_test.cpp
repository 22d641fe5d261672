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
#include "support/run_in_child.h"

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

class Stream : public StreamTest {};

/* The far end of a loopback session reads from a pipe, where the end of file is an ordinary byte. */
class LoopbackStream : public TransferTest {};

}  // namespace

TEST_F(Stream, StartsARemoteWriterAndSendsItsDataAsItStands) {
  recorded_system::record_writes();
  host.start_send_stream("it's");
  host.continue_send_stream("two\nlines", 9);
  EXPECT_EQ(recorded_system::take_writes(),
            (std::vector<std::string>{"echo '_TAV/REN_' BEGIN; /bin/cat >'it'\\''s' || /bin/cat >/dev/null\n",
                                      "two\nlines"}));
}

TEST_F(Stream, StartsTheConfiguredWriter) {
  set_command("cat", "tr a b");
  send("banana");
  EXPECT_EQ(received("file"), "bbnbnb");
}

TEST_F(Stream, OfAnySizeArrivesWholeWithAndWithoutAFinalNewline) {
  std::vector<std::string> texts;
  for (const size_t size : std::vector<size_t>{0, 1, 2047, 2048, 2049, 4095, 4096, 4097, 100000, 5000000}) {
    texts.insert(texts.end(), {text_of(size), text_of(size) + "\n"});
  }
  for (size_t size = 1; size < 40000; size += 1999) texts.push_back(text_of(size));
  for (const std::string& text : texts) {
    send(text);
    ASSERT_TRUE(received("file") == text) << text.size();
    reopen();
  }
}

TEST_F(Stream, KeepsAnyName) {
  for (const auto& [what, name] : odd_names) {
    send("content", name);
    EXPECT_EQ(received(name), "content") << what;
    reopen();
  }
}

TEST_F(Stream, EndsTheChildAndKeepsTheSessionFromFurtherCommandsUntilANewConnection) {
  const pid_t child = std::stoi(output_of(host, "echo $PPID"));
  send("content");
  expect_assertion("TavrenHost", "running_command.size() == 0", [this] { host.run_and_check_ecode("pwd"); });
  host.close_connection();
  EXPECT_EQ(kill(child, 0), -1);
  host.open_connection();
  EXPECT_EQ(output_of(host, "cat file; echo"), "content");
}

/* Behind a redirection no name is taken for an option. */
TEST_F(Stream, ToAFileThatCannotBeOpenedIsIncorrectOutputAndNotExecuted) {
  for (const std::string name : {"-no/such/file", "no/such/file"}) {
    host.start_send_stream(name);
    const std::string error = complaint_about("echo >executed\n");
    EXPECT_EQ(first_lines(error, 1),
              "  - Remote command \"/bin/cat >'" + name + "'\" produced incorrect output: 1 line(s) of output\n");
    EXPECT_EQ(std::count(error.begin(), error.end(), '\n'), 3) << error;
    EXPECT_THAT(error, HasSubstr(name + ": "));
    EXPECT_THAT(error, EndsWith("\n  - Expected output: \"\"\n"));
    host.end_send_stream();
    EXPECT_FALSE(std::filesystem::exists(directory.path("executed")));
    reopen();
  }
}

TEST_F(Stream, AComplaintAfterItsEndIsIncorrectOutputAlsoAsTheFarSidesLastAct) {
  const ScriptedClient writer("cat; echo no room >&2", "writer");
  set_command("cat", writer.path());
  const EarlyEnds ends(EIO);
  for (int i = 0; i < 20; ++i) {
    EXPECT_EQ(error_body([this] { send("content"); }), "  - Remote command \"" + writer.path() +
                                                           " >'file'\" produced incorrect output: 1 line(s) of output\n"
                                                           "  - Command output: \"no room\"\n"
                                                           "  - Expected output: \"\"\n")
        << i;
    reopen();
  }
  EXPECT_GT(EarlyEnds::count(), 0);
}

TEST_F(Stream, MuchOutputWithoutANewlineAfterItsEndIsExcessive) {
  const ScriptedClient writer("cat; head -c 200000 /dev/zero >&2", "writer");
  set_command("cat", writer.path());
  const std::string error = error_body([this] { send("content"); });
  EXPECT_EQ(error.find("  - " + client->path() + " produced excessive output ("), 0u) << error;
}

TEST_F(Stream, AChildThatEndedBeforeIsNoSuccess) {
  const pid_t child = std::stoi(output_of(host, "echo $PPID"));
  host.start_send_stream("file");
  host.continue_send_stream("content", 7);
  kill(child, SIGKILL);
  wait_for_exit(child);
  const std::string error = error_body([this] { host.end_send_stream(); });
  EXPECT_EQ(first_lines(error, 1), "  - Program exited unexpectedly: " + client->path() + "\n");
}

/* What a client that has heard its far end out does is what it knows of the connection and the far shell. */
TEST_F(Stream, IsASuccessWhateverStatusTheFarShellEndsWith) {
  for (const std::string end : {"exit 0", "exit 1", "exit 254", "exec <&- >&- 2>&-; sleep 0.3; exit 0"}) {
    open_with(polling_shell_that_then(end));
    send(end);
    EXPECT_EQ(received("file"), end);
  }
}

TEST_F(Stream, CutOffIsAnEndOfTheProgramWithItsLastLinesThatLeavesTheChildToBeReaped) {
  for (const std::string end :
       {"exit 255", "kill -TERM $$; sleep 100", "kill -KILL $$; sleep 100",
        "cd $dir; ulimit -c unlimited; kill -SEGV $$; sleep 100", "exec <&- >&- 2>&-; sleep 0.3; exit 255"}) {
    SCOPED_TRACE(end);
    open_with(polling_shell_that_then(end));
    const std::string error = error_body([this] { send("content"); });
    EXPECT_THAT(error, StartsWith("  - Program exited unexpectedly: " + client->path() + "\n  - Output: "));
    EXPECT_THAT(error, EndsWith("  - Output: \"** EXIT CODE: 0\"\n  - Output: \"_TAV/REN_ BEGIN\"\n"));
    siginfo_t info{};
    EXPECT_EQ(waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT), 0);
    EXPECT_NE(info.si_pid, 0);
  }
}

/* Nobody can tell then how the client ended. */
TEST_F(Stream, OfALostConnectionIsASuccessInAHostThatReapsAllChildren) {
  open_with(polling_shell_that_then("exit 255"));
  signal(SIGCHLD, SIG_IGN);
  EXPECT_NO_THROW(send("content"));
  signal(SIGCHLD, SIG_DFL);
}

/* The client closes its terminal, and does not end. */
TEST_F(Stream, OfAClientThatStaysIsATimeoutOrCancelledByDisabling) {
  open_with(polling_shell_that_then("exec <&- >&- 2>&-; [ ! -p $dir/closed ] || : >$dir/closed; sleep 100"));
  set_tunable("ssh_command_timeout", "1");
  EXPECT_EQ(error_body([this] { send("content"); }),
            "  - Timeout occurred while running remote command: \"/bin/cat >'file' (1)\"\n");
  set_tunable("ssh_command_timeout", "30");
  reopen();
  host.start_send_stream("file");
  client->make_fifo("closed");
  std::thread other([this] {
    wait_at(client->path("closed"));
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

TEST_F(LoopbackStream, ContinuingOrEndingWithoutAStartIsAFailedAssertion) {
  expect_assertion("TavrenHost", "running_command.size() != 0", [this] { host.continue_send_stream("x", 1); });
  expect_assertion("TavrenHost", "running_command.size() != 0", [this] { host.end_send_stream(); });
}
