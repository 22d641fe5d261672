#include <errno.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdio.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "process/children.h"
#include "process/faults.h"
#include "process/observe.h"
#include "support/run_in_child.h"
#include "tavren_basic.h"

using testing::AllOf;
using testing::Each;
using testing::Ge;
using testing::Le;

namespace {

/*
 * Prints whether a host that leads a session without a terminal still has none once the library has looked from the
 * other side of one. The child has ended by then: while it leads its session, its terminal cannot become another's.
 */
void find_no_terminal_of_the_hosts() {
  setsid();
  TavrenProcess child = shell("echo $$");
  wait_until_exited(announced_pid(child));
  result_of_send_eof(child, 0);
  printf("%s", open("/dev/tty", O_RDONLY | O_CLOEXEC) == -1 ? "none" : "taken");
}

}  // namespace

/* The terminal of a child that has ended is empty too: it must not be taken for one that has read everything. */
TEST(SendEof, SeesAChildThatEndsWhileItLooks) {
  TavrenProcess child = shell("echo $$; exec sleep 100");
  const pid_t pid = announced_pid(child);
  const Faulty look("poll", 2, [pid] {
    kill(pid, SIGKILL);
    wait_until_exited(pid);
  });
  EXPECT_EQ(result_of_send_eof(child, 5), "13(/bin/sh) 12(" + std::to_string(pid) + ")");
}

TEST(FailedPoll, IsNamedByTheNapsOfSendEof) {
  TavrenProcess child("/bin/sleep", {"600"}, false);
  child.send("unread", patience);
  const Faulty call("poll", ENOMEM, Faulty::every);
  EXPECT_EQ(result_of_send_eof(child, patience), "24(poll, 12)");
}

TEST(FailedSendEof, NamesTheCall) {
  for (const char* call : {"tcgetattr", "tcsetattr"}) {
    TavrenProcess child("/bin/cat", {}, false);
    const Faulty fault(call, EIO);
    EXPECT_EQ(result_of_send_eof(child, patience), "24(" + std::string(call) + "(master_fd), 5)");
  }
}

TEST(FailedSendEof, QueryOfTheTerminalIsAFailedAssertion) {
  expect_assertion("TavrenProcess", "ecode == 0", [] {
    TavrenProcess child("/bin/cat", {}, false);
    const Faulty fault("TIOCOUTQ", ENOTTY);
    child.send_eof(patience);
  });
}

TEST(SendEof, WaitsWhileBytesAreQueuedAndWhenItCannotLookFromTheOtherSide) {
  for (const auto& [call, error] : {std::pair{"TIOCOUTQ", 0}, {"FIONREAD", EIO}}) {
    TavrenProcess child = counterpart({"sum", "100", "0"});
    const Faulty fault(call, error, Faulty::every);
    EXPECT_EQ(result_of_send_eof(child, 1), "TavrenTimeout") << call;
  }
}

TEST(SendEof, LooksTenTimesASecondAndOnceMore) {
  TavrenProcess child("/bin/cat", {}, false);
  const Faulty fault("TIOCOUTQ", 0, Faulty::every);
  result_of_send_eof(child, 2);
  EXPECT_EQ(fault.calls(), 21U);
}

/* Kernels before 4.13 know the other side of a terminal by its name only. */
TEST(SendEof, FindsTheOtherSideByNameOnAnOldKernel) {
  TavrenProcess child = counterpart({"sum", "100", "20000"});
  const std::string data(2000, 'x');
  child.send(data, patience);
  const Faulty fault("TIOCGPTPEER", ENOTTY, Faulty::every);
  EXPECT_EQ(result_of_send_eof(child, patience), "done");
  EXPECT_EQ(next_line(child), sum_line(data, "canonical"));
  EXPECT_GT(fault.calls(), 0U);
}

TEST(SendEof, TakesNoTerminalForTheHostByNameEither) {
  EXPECT_EQ(run_in_child(find_no_terminal_of_the_hosts).out, "none");
  const Outcome outcome = run_in_child([] {
    const Faulty fault("TIOCGPTPEER", ENOTTY, Faulty::every);
    find_no_terminal_of_the_hosts();
    if (fault.calls() == 0) printf(" without a look");
  });
  EXPECT_EQ(outcome.out, "none");
}

/* A nap may end a little early, and is then finished by a shorter one. */
TEST(SendEof, NapsATenthOfASecondTenTimesASecond) {
  TavrenProcess child("/bin/sleep", {"600"}, false);
  child.send("unread", patience);
  const Faulty recorder("poll");
  EXPECT_EQ(result_of_send_eof(child, 2), "TavrenTimeout");
  EXPECT_THAT(recorder.arguments(), Each(AllOf(Ge(0), Le(100))));
  EXPECT_EQ(std::count(recorder.arguments().begin(), recorder.arguments().end(), 100), 20);
}

/* The terminal is ready to take the end-of-file character all the while, and takes it never. */
TEST(SendEof, GivesItsCharacterTheTimeoutToo) {
  for (const int timeout : {0, 1}) {
    TavrenProcess child = counterpart({"sum", "100", "0"});
    const Faulty fault("write", EAGAIN, Faulty::every);
    const int before = tavren_get_uptime();
    EXPECT_EQ(result_of_send_eof(child, timeout), "TavrenTimeout");
    EXPECT_GT(tavren_get_uptime(), before + timeout);
    EXPECT_GT(fault.calls(), 0U);
  }
}
