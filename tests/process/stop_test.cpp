#include <errno.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <memory>

#include "process/children.h"
#include "process/hosts.h"
#include "process/observe.h"
#include "process/signal_storm.h"
#include "support/run_in_child.h"

namespace {

using Clock = std::chrono::steady_clock;

/* Seconds of grace that only a child that will not end uses up. */
constexpr int long_grace = 40;

bool is_gone(pid_t pid) { return kill(pid, 0) == -1 && errno == ESRCH; }

double seconds_to_stop(TavrenProcess& child, int grace_time) {
  const Clock::time_point before = Clock::now();
  child.stop(grace_time);
  return std::chrono::duration<double>(Clock::now() - before).count();
}

/* Stops a child that ends at SIGTERM and one that does not, in a host that does what it likes about its children. */
void stop_both_kinds() {
  for (const bool obeys : {true, false}) {
    TavrenProcess child = shell(obeys ? "echo $$; exec sleep 600" : deaf);
    const pid_t pid = announced_pid(child);
    if (seconds_to_stop(child, obeys ? long_grace : 1) >= long_grace) printf("late ");
    if (!is_gone(pid)) printf("still there ");
    if (child.send_signal(0) != -1) printf("still recorded ");
  }
  printf("done");
}

}  // namespace

TEST(Stop, SendsSigtermFirst) {
  TavrenProcess child = shell("trap 'echo got it; exit' TERM; echo ready; while :; do sleep 0.01; done");
  ASSERT_EQ(next_line(child), "ready");
  EXPECT_LT(seconds_to_stop(child, long_grace), long_grace);
  EXPECT_EQ(next_line(child), "got it");
}

TEST(Stop, SendsSigkillAfterAGraceTimeThatSignalsDoNotCutShort) {
  for (const bool storms : {false, true}) {
    const auto storm = storms ? std::make_unique<SignalStorm>() : nullptr;
    TavrenProcess child = shell(deaf);
    const pid_t pid = announced_pid(child);
    EXPECT_GE(seconds_to_stop(child, 1), 1);
    EXPECT_TRUE(is_gone(pid));
  }
}

TEST(Stop, WithoutGraceKillsAtOnce) {
  for (const int grace_time : {0, -1, -2147483647 - 1}) {
    TavrenProcess child = shell(deaf);
    const pid_t pid = announced_pid(child);
    EXPECT_LT(seconds_to_stop(child, grace_time), 20);
    EXPECT_TRUE(is_gone(pid));
  }
}

/* Such a child meets SIGTERM only when it goes on; SIGKILL does not wait for that. */
TEST(Stop, EndsAChildThatIsItselfStopped) {
  TavrenProcess child = shell("echo $$; exec sleep 600");
  const pid_t pid = announced_pid(child);
  ASSERT_EQ(child.send_signal(SIGSTOP), 0);
  child.stop(1);
  EXPECT_TRUE(is_gone(pid));
}

TEST(Stop, LargestGraceTimeDoesNotOverflow) {
  TavrenProcess child = shell("trap 'sleep 1; exit' TERM; echo ready; while :; do sleep 0.01; done");
  ASSERT_EQ(next_line(child), "ready");
  EXPECT_GE(seconds_to_stop(child, 2147483647), 0.9);
}

TEST(Stop, ReapsTheChildAlsoAfterDisable) {
  for (const bool disabled : {false, true}) {
    TavrenProcess child("/bin/sleep", {"600"}, false);
    if (disabled) child.disable();
    child.stop(long_grace);
    EXPECT_FALSE(has_children());
  }
}

TEST(Stop, ReapsAChildThatHasExitedWithoutUsingTheGraceTime) {
  TavrenProcess child = shell("echo $$");
  ASSERT_TRUE(wait_until_exited(announced_pid(child)));
  EXPECT_LT(seconds_to_stop(child, long_grace), long_grace);
  EXPECT_FALSE(has_children());
}

TEST(Stop, ASecondTimeReturnsAtOnce) {
  TavrenProcess child = shell(deaf);
  child.stop(0);
  EXPECT_LT(seconds_to_stop(child, long_grace), long_grace);
}

TEST(Stop, KeepsTheOutputReadable) {
  TavrenProcess child = shell("printf 'first\\nsecond\\n'; exec sleep 600");
  ASSERT_EQ(next_line(child), "first");
  child.stop(0);
  EXPECT_EQ(next_line(child), "second");
  EXPECT_EQ(result_of_reading_on(child), "13(/bin/sh) 12(first) 12(second)");
}

TEST(Stop, TakesNoOtherChildOfTheHost) {
  const pid_t other = fork();
  if (other == 0) _exit(7);
  TavrenProcess child("/bin/sleep", {"600"}, false);
  child.stop(long_grace);
  int status = 0;
  EXPECT_EQ(waitpid(other, &status, 0), other);
  EXPECT_EQ(WEXITSTATUS(status), 7);
}

TEST(Stop, WorksInHostsThatReapItsChild) {
  for (const Named<Host>& host : hosts_that_reap) {
    const Outcome outcome = run_in_child([&host] {
      host.value.begin();
      stop_both_kinds();
    });
    EXPECT_EQ(outcome.out, "done") << host.name;
  }
}

/* A daemon's fork goes on with the object of its parent, of whose children it can wait for none. */
TEST(Stop, EndsTheChildAlsoInAForkOfTheHost) {
  TavrenProcess child = shell(deaf);
  const pid_t pid = announced_pid(child);
  const Outcome outcome = run_in_child([&child] {
    const double seconds = seconds_to_stop(child, 1);
    printf("%s", seconds >= 1 ? "after the grace time" : "too early");
  });
  EXPECT_EQ(outcome.out, "after the grace time");
  int status = 0;
  ASSERT_EQ(waitpid(pid, &status, 0), pid);
  EXPECT_EQ(WTERMSIG(status), SIGKILL);
}

TEST(SendSignal, ReachesTheChildAndReturnsZero) {
  TavrenProcess child = shell("trap 'echo got it' USR1; echo ready; while :; do sleep 0.01; done");
  ASSERT_EQ(next_line(child), "ready");
  EXPECT_EQ(child.send_signal(SIGUSR1), 0);
  EXPECT_EQ(next_line(child), "got it");
}

TEST(SendSignal, ReturnsTheFailureOfKill) {
  TavrenProcess child("/bin/sleep", {"600"}, false);
  errno = 0;
  EXPECT_EQ(child.send_signal(12345), -1);
  EXPECT_EQ(errno, EINVAL);
}

TEST(SendSignal, WithoutALiveChildSignalsNobody) {
  TavrenProcess child("/bin/sleep", {"600"}, false);
  child.stop(0);
  errno = 0;
  EXPECT_EQ(child.send_signal(0), -1);
  EXPECT_EQ(errno, ESRCH);
}

TEST(Destruction, EndsTheChildReapsItAndLeavesNoDescriptorAlsoOfADisabledObject) {
  const std::set<int> before = open_descriptors();
  for (const bool separate_stdin : {false, true}) {
    for (const bool disabled : {false, true}) {
      pid_t pid = -1;
      {
        TavrenProcess child = shell("echo $$; exec sleep 600", separate_stdin);
        pid = announced_pid(child);
        if (disabled) child.disable();
      }
      EXPECT_TRUE(is_gone(pid));
      EXPECT_FALSE(has_children());
      EXPECT_EQ(open_descriptors(), before);
    }
  }
}

TEST(Destruction, LeavesNoDescriptorWhateverTheChildDid) {
  const std::set<int> before = open_descriptors();
  for (const char* program : {"/no-such-command", "/bin/true", "/bin/cat"}) {
    for (const bool separate_stdin : {false, true}) {
      TavrenProcess child(program, {}, separate_stdin);
      result_of([&] { child.send("words", patience); });
      if (!separate_stdin) result_of([&] { child.send_eof(0); });
      child.stop(0);
    }
  }
  EXPECT_EQ(open_descriptors(), before);
}
