#include <errno.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include "TavrenTunables.h"
#include "process/children.h"
#include "process/faults.h"
#include "process/log_fixture.h"
#include "process/observe.h"
#include "support/named.h"
#include "support/run_in_child.h"
#include "support/temporary_directory.h"

namespace {

/* One call of a construction that fails. */
struct Fault {
  bool separate_stdin;
  const char* name;
  int call;
  int error;
  const char* result;
};

const Named<Fault> faults[] = {
    {"PipeToCancel", {false, "pipe2", 1, EMFILE, "24(pipe, 24)"}},
    {"PipeToCancelBeforeTheInputPipe", {true, "pipe2", 1, ENFILE, "24(pipe, 23)"}},
    {"PipeForInput", {true, "pipe2", 2, EMFILE, "24(pipe, 24)"}},
    {"FlagsOfTheInputPipe", {true, "F_GETFL", 1, EBADF, "24(fcntl(stdin_pipe), 9)"}},
    {"NewFlagsOfTheInputPipe", {true, "F_SETFL", 1, EBADF, "24(fcntl(stdin_pipe), 9)"}},
    {"Fork", {false, "forkpty", 1, EAGAIN, "24(forkpty, 11)"}},
    {"ForkWithAnInputPipe", {true, "forkpty", 1, ENOENT, "24(forkpty, 2)"}},
    {"CloseOnExec", {false, "F_SETFD", 1, EBADF, "24(fcntl(master_fd), 9)"}},
    {"Flags", {false, "F_GETFL", 1, EBADF, "24(fcntl(master_fd), 9)"}},
    {"FlagsWithAnInputPipe", {true, "F_GETFL", 2, EBADF, "24(fcntl(master_fd), 9)"}},
    {"NewFlags", {false, "F_SETFL", 1, EPERM, "24(fcntl(master_fd), 1)"}},
    {"Settings", {false, "tcgetattr", 1, EIO, "24(tcgetattr(master_fd), 5)"}},
    {"NewSettings", {false, "tcsetattr", 1, EIO, "24(tcsetattr(master_fd), 5)"}},
    {"NewSettingsWithAnInputPipe", {true, "tcsetattr", 1, EINVAL, "24(tcsetattr(master_fd), 22)"}},
};

class FailedStart : public testing::TestWithParam<Named<Fault>> {
 protected:
  static std::string result() {
    const Fault& fault = GetParam().value;
    const Faulty call(fault.name, fault.error, fault.call);
    return result_of([&fault] { TavrenProcess("/bin/sleep", {"600"}, fault.separate_stdin); });
  }
};

}  // namespace

INSTANTIATE_TEST_SUITE_P(Calls, FailedStart, testing::ValuesIn(faults), by_name);

TEST_P(FailedStart, NamesTheCallAndTheError) { EXPECT_EQ(result(), GetParam().value.result); }

TEST_P(FailedStart, LeavesNoDescriptor) {
  const std::set<int> before = open_descriptors();
  result();
  EXPECT_EQ(open_descriptors(), before);
}

TEST_P(FailedStart, LeavesNoChild) {
  result();
  EXPECT_FALSE(has_children());
}

TEST_P(FailedStart, DoesNotHinderTheNext) {
  result();
  TavrenProcess child("/bin/echo", {"words"}, GetParam().value.separate_stdin);
  EXPECT_EQ(next_line(child), "words");
}

TEST(FailedMove, OfAPipeOffAStandardStreamLeavesNoDescriptor) {
  const Outcome outcome = run_in_child([] {
    close(STDIN_FILENO);
    const std::set<int> before = open_descriptors();
    const Faulty call("F_DUPFD_CLOEXEC", EMFILE);
    printf("%s", result_of([] { TavrenProcess("/bin/true", {}, false); }).c_str());
    if (open_descriptors() != before) printf(" descriptors left");
  });
  EXPECT_EQ(outcome.out, "24(pipe, 24)");
}

TEST(FailedMove, OfTheTerminalOffAStandardStreamLeavesNothing) {
  const Outcome outcome = run_in_child([] {
    close(STDIN_FILENO);
    const std::set<int> before = open_descriptors();
    /* The first call moves the cancel pipe's read end. */
    const Faulty call("F_DUPFD_CLOEXEC", EMFILE, 2);
    printf("%s", result_of([] { TavrenProcess("/bin/sleep", {"600"}, false); }).c_str());
    if (open_descriptors() != before) printf(" descriptors left");
    if (has_children()) printf(" child left");
  });
  EXPECT_EQ(outcome.out, "24(fcntl(master_fd), 24)");
}

TEST(FailedDup2, IsReportedByTheChild) {
  const Faulty call("dup2", EBADF);
  EXPECT_EQ(result_of_running("/bin/cat", true), "13(/bin/cat) 12(dup2 failed: Bad file descriptor)");
}

TEST(FailedDup2, EndsTheChildWithStatusOne) {
  const Faulty call("dup2", EBADF);
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

/* The log would lie in a directory that cannot be made. */
TEST(FailedLog, KeepsTheChildFromBeingStarted) {
  const TemporaryDirectory home;
  const Outcome outcome = run_in_child([&home] {
    setenv("TAVREN_HOME", home.path("missing").c_str(), 1);
    std::string refusal;
    TavrenTunables::instance().set_tunable("subprocess_log_size", "1000", refusal);
    const Faulty recorder("forkpty");
    printf("%s", result_of([] { TavrenProcess("/bin/true", {}, false); }).c_str());
    printf(" after %zu forks", recorder.calls());
  });
  EXPECT_EQ(outcome.out, "24(write(log_child_output), 2) after 0 forks");
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
