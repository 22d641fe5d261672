#include <errno.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <tuple>

#include "process/children.h"
#include "process/faults.h"
#include "process/log_fixture.h"
#include "process/observe.h"
#include "support/run_in_child.h"

namespace {

using Fault = std::tuple<bool, const char*, int, int, const char*>;

/* With an input pipe or not, the call of a construction that fails, counted from 1, its error, and the result. */
const Fault faults[] = {{false, "pipe2", 1, EMFILE, "24(pipe, 24)"},
                        {true, "pipe2", 1, ENFILE, "24(pipe, 23)"},
                        {true, "pipe2", 2, EMFILE, "24(pipe, 24)"},
                        {true, "F_GETFL", 1, EBADF, "24(fcntl(stdin_pipe), 9)"},
                        {true, "F_SETFL", 1, EBADF, "24(fcntl(stdin_pipe), 9)"},
                        {false, "forkpty", 1, EAGAIN, "24(forkpty, 11)"},
                        {true, "forkpty", 1, ENOENT, "24(forkpty, 2)"},
                        {false, "F_SETFD", 1, EBADF, "24(fcntl(master_fd), 9)"},
                        {false, "F_GETFL", 1, EBADF, "24(fcntl(master_fd), 9)"},
                        {true, "F_GETFL", 2, EBADF, "24(fcntl(master_fd), 9)"},
                        {false, "F_SETFL", 1, EPERM, "24(fcntl(master_fd), 1)"},
                        {false, "tcgetattr", 1, EIO, "24(tcgetattr(master_fd), 5)"},
                        {false, "tcsetattr", 1, EIO, "24(tcsetattr(master_fd), 5)"},
                        {true, "tcsetattr", 1, EINVAL, "24(tcsetattr(master_fd), 22)"}};

/* How starting a child that sleeps ends. */
std::string result_of_a_start(bool separate_stdin) {
  return result_of([separate_stdin] { TavrenProcess("/bin/sleep", {"600"}, separate_stdin); });
}

/* How a start ends whose call of that number cannot move a descriptor off a standard stream, and what is left. */
std::string result_of_a_failed_move(int call) {
  const Outcome outcome = run_in_child([call] {
    close(STDIN_FILENO);
    const std::set<int> before = open_descriptors();
    const Faulty fault("F_DUPFD_CLOEXEC", EMFILE, call);
    printf("%s", result_of_a_start(false).c_str());
    if (open_descriptors() != before) printf(" descriptors left");
    if (has_children()) printf(" child left");
  });
  return outcome.out;
}

}  // namespace

TEST(FailedStart, NamesTheCallAndLeavesNothingThatHindersTheNext) {
  for (const auto& [separate_stdin, name, which, error, result] : faults) {
    SCOPED_TRACE(std::string(name) + ": " + result);
    const std::set<int> before = open_descriptors();
    {
      const Faulty call(name, error, which);
      EXPECT_EQ(result_of_a_start(separate_stdin), result);
    }
    EXPECT_EQ(open_descriptors(), before);
    EXPECT_FALSE(has_children());
    TavrenProcess child("/bin/echo", {"words"}, separate_stdin);
    EXPECT_EQ(next_line(child), "words");
  }
}

TEST(FailedMove, OfAPipeOrTheTerminalOffAStandardStreamLeavesNothing) {
  EXPECT_EQ(result_of_a_failed_move(1), "24(pipe, 24)");
  EXPECT_EQ(result_of_a_failed_move(2), "24(fcntl(master_fd), 24)");
}

TEST(FailedDup2, IsReportedByTheChildWhichEndsWithStatusOne) {
  const Faulty call("dup2", EBADF);
  EXPECT_EQ(result_of_running("/bin/cat", true), "13(/bin/cat) 12(dup2 failed: Bad file descriptor)");
  fflush(stdout);
  TavrenProcess child("/bin/sleep", {"600"}, true);
  const siginfo_t info = end_of_a_child();
  EXPECT_EQ(info.si_code, CLD_EXITED);
  EXPECT_EQ(info.si_status, 1);
}

TEST(FailedDup2, ConcernsOnlyAChildWithAnInputPipe) {
  const Faulty call("dup2", EBADF);
  TavrenProcess child("/bin/echo", {"words"}, false);
  EXPECT_EQ(next_line(child), "words");
}

/* The pipes come first: a child that cannot be started for want of one is not announced. */
TEST_F(ChildOutputLog, IsNotBegunByAChildWhosePipesCannotBeMade) {
  for (const int pipe : {1, 2}) {
    run("1000", [pipe] {
      const Faulty call("pipe2", EMFILE, pipe);
      result_of([] { TavrenProcess("/bin/true", {}, true); });
    });
    EXPECT_FALSE(exists("tavren_child_output.tester")) << pipe;
  }
}

/* It would lie in a directory that cannot be made. */
TEST_F(ChildOutputLog, ThatCannotBeOpenedKeepsTheChildFromBeingStarted) {
  const std::string output = run("1000", [] {
    setenv("TAVREN_HOME", "/no/such/home", 1);
    const Faulty recorder("forkpty");
    printf("%s", result_of([] { TavrenProcess("/bin/true", {}, false); }).c_str());
    printf(" after %zu forks", recorder.calls());
  });
  EXPECT_EQ(output, "24(write(log_child_output), 2) after 0 forks");
}

TEST(LateParent, FindsTheTerminalMadeRawByTheChild) {
  const LateFork late(LateFork::Side::parent);
  TavrenProcess child = counterpart({"terminal"});
  EXPECT_EQ(next_line(child), "raw 0 0 0 0");
}

TEST(LateChild, FindsTheTerminalMadeRawByTheParent) {
  LateFork late(LateFork::Side::child);
  TavrenProcess child("/bin/head", {"-c", "7"}, false);
  child.send("secret\n", patience);
  late.release();
  EXPECT_EQ(all_output(child), "secret\n");
}

TEST(LateChild, FindsTheEndOfFileThatIsThereBeforeIt) {
  LateFork late(LateFork::Side::child);
  TavrenProcess child = counterpart({"sum", "100", "0"});
  child.send_eof(patience);
  late.release();
  EXPECT_EQ(next_line(child), sum_line("", "canonical"));
}

TEST(LateChild, MeetsTheSignalThatCameBeforeIt) {
  LateFork late(LateFork::Side::child);
  TavrenProcess child("/bin/sleep", {"20"}, false);
  child.send_signal(SIGTERM);
  late.release();
  EXPECT_EQ(end_of_a_child().si_status, SIGTERM);
}
