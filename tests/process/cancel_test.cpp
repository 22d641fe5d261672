#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <set>
#include <thread>
#include <type_traits>
#include <vector>

#include "TavrenExceptions.h"
#include "process/children.h"
#include "process/observe.h"
#include "support/named.h"
#include "tavren_basic.h"

namespace {

/* One way to wait for a child that neither reads nor writes. */
struct Wait {
  bool separate_stdin;
  void (*action)(TavrenProcess&);
};

const Named<Wait> waits[] = {
    {"ReadLine", {false, [](TavrenProcess& child) { read_a_line(child, patient_deadline()); }}},
    {"ReadByte", {false, [](TavrenProcess& child) { read_a_byte(child, patient_deadline()); }}},
    {"Expect", {false, [](TavrenProcess& child) { expect_the_end(child, patient_deadline()); }}},
    {"ReadUntilLineStartsWith", {false, [](TavrenProcess& child) { skip_to_the_end(child, 2147483647); }}},
    {"SendToATerminal", {false, [](TavrenProcess& child) { child.send(megabyte, patience); }}},
    {"SendToAPipe", {true, [](TavrenProcess& child) { child.send(megabyte, patience); }}},
    {"SendEof", {false, [](TavrenProcess& child) { child.send_eof(patience); }}},
};

class Cancel : public testing::TestWithParam<Named<Wait>> {
 protected:
  /* Its terminal holds a byte that it leaves unread. */
  Cancel() : child("/bin/sleep", {"600"}, GetParam().value.separate_stdin) { child.send("x", patience); }

  std::string result() {
    return result_of([this] { GetParam().value.action(child); });
  }

  TavrenProcess child;
};

/* Waits in another thread until the one that waits is asleep, then calls action. */
class WhileAsleep {
 public:
  template <typename Action>
  explicit WhileAsleep(Action action)
      : thread([sleeper = gettid(), action] {
          wait_until_asleep(sleeper);
          action();
        }) {}
  ~WhileAsleep() { thread.join(); }
  WhileAsleep(const WhileAsleep&) = delete;
  WhileAsleep& operator=(const WhileAsleep&) = delete;

 private:
  std::thread thread;
};

}  // namespace

INSTANTIATE_TEST_SUITE_P(Waits, Cancel, testing::ValuesIn(waits), by_name);

TEST_P(Cancel, DuringTheWaitEndsItAtOnce) {
  const int before = tavren_get_uptime();
  const WhileAsleep disabled([this] { child.disable(); });
  EXPECT_EQ(result(), cancelled);
  EXPECT_LT(tavren_get_uptime(), before + patience);
}

TEST_P(Cancel, BeforeAWaitEndsThatAndEachLaterOneAndNotTheChild) {
  for (int cancels = 3; cancels > 0; --cancels) {
    for (int i = 0; i < cancels; ++i) child.disable();
    for (int i = 0; i < 2; ++i) EXPECT_EQ(result(), cancelled);
  }
  EXPECT_EQ(child.send_signal(0), 0);
}

TEST_P(Cancel, FromManyThreadsIsSafe) {
  std::atomic<bool> enough{false};
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; ++i) {
    threads.emplace_back([this, &enough] {
      for (int n = 0; n < 1000 && !enough; ++n) {
        child.disable();
        child.send_signal(0);
      }
    });
  }
  EXPECT_EQ(result(), cancelled);
  enough = true;
  for (std::thread& thread : threads) thread.join();
}

TEST(CancelledRead, TakesWhatNeedsNoWait) {
  TavrenProcess child = shell("echo first; echo second; exec sleep 600");
  ASSERT_EQ(next_line(child), "first");
  ASSERT_EQ(child.read_byte(patient_deadline()), 's');
  child.disable();
  EXPECT_EQ(next_line(child), "econd");
}

TEST(CancelledRead, LeavesWhatCameUnread) {
  TavrenProcess child = shell("printf 'line\\nunfinished'; exec sleep 600");
  ASSERT_EQ(next_line(child), "line");
  child.disable();
  EXPECT_EQ(result_of_reading(read_a_line, child), cancelled);
  EXPECT_EQ(next_bytes(child, 10), "unfinished");
}

/* A wait looks at its deadline before it looks whether it is cancelled. */
TEST(CancelledRead, IsATimeoutOnceItsDeadlineHasPassed) {
  TavrenProcess child("/bin/cat", {}, false);
  child.disable();
  EXPECT_EQ(result_of_reading(read_a_byte, child, past_deadline()), "TavrenTimeout");
}

TEST(CancelledSend, IsATimeoutOnceItsDeadlineHasPassed) {
  for (const bool separate_stdin : {false, true}) {
    TavrenProcess child("/bin/sleep", {"600"}, separate_stdin);
    child.disable();
    EXPECT_EQ(result_of_sending(child, megabyte, -1), "TavrenTimeout");
  }
}

TEST(CancelledSend, ToAChildThatExitedReportsItsEnd) {
  for (const bool separate_stdin : {false, true}) {
    TavrenProcess child = shell("echo $$; read -r line; echo last words", separate_stdin);
    const pid_t pid = announced_pid(child);
    child.send("go\n", patience);
    ASSERT_TRUE(wait_until_exited(pid));
    child.disable();
    EXPECT_EQ(result_of_sending(child, megabyte), "13(/bin/sh) 12(" + std::to_string(pid) + ") 12(last words)");
  }
}

TEST(CancelledSend, SendsWhatNeedsNoWait) {
  TavrenProcess child("/bin/head", {"-c", "5"}, false);
  child.disable();
  child.send("words", patience);
  /* Only the program's end is waited for here: the object itself does not wait any more. */
  end_of_a_child();
  EXPECT_EQ(next_bytes(child, 5), "words");
}

/* A descendant holds the terminal, so that the last output of the child that has exited is waited for. */
TEST(CancelledSend, EndsAlsoTheWaitForTheLastOutputOfAChildThatExited) {
  for (const bool separate_stdin : {false, true}) {
    TavrenProcess child = shell("trap '' HUP; (while [ -t 1 ]; do sleep 0.05; done) & echo $$", separate_stdin);
    ASSERT_TRUE(wait_until_exited(announced_pid(child)));
    const int before = tavren_get_uptime();
    const WhileAsleep disabled([&child] { child.disable(); });
    EXPECT_EQ(result_of_sending(child, megabyte), cancelled);
    EXPECT_LT(tavren_get_uptime(), before + patience);
  }
}

TEST(CancelledObject, MayBeCancelledAgain) {
  TavrenProcess child("/bin/cat", {}, false);
  for (int i = 0; i < 1000; ++i) child.disable();
  EXPECT_EQ(result_of_reading(read_a_byte, child), cancelled);
}

/* A newline in the pipe that the waits look at, and nothing else. */
TEST(CancelledObject, IsToldByOneByteEachTime) {
  const std::set<int> before = open_descriptors();
  TavrenProcess child("/bin/cat", {}, false);
  for (int i = 0; i < 2; ++i) child.disable();
  std::string told;
  for (const int fd : new_descriptors(before)) {
    pollfd entry{fd, POLLIN, 0};
    if (poll(&entry, 1, 0) != 1 || entry.revents != POLLIN) continue;
    char bytes[10];
    const ssize_t n = read(fd, bytes, sizeof bytes);
    if (n > 0) told.append(bytes, static_cast<size_t>(n));
  }
  EXPECT_EQ(told, "\n\n");
}

static_assert(std::is_empty_v<TavrenTimeout> && !std::is_polymorphic_v<TavrenTimeout>);
static_assert(std::is_empty_v<TavrenOperationCancelled> && !std::is_polymorphic_v<TavrenOperationCancelled>);

TEST(CancelledObject, LeavesOthersAlone) {
  TavrenProcess first("/bin/cat", {}, false);
  TavrenProcess second("/bin/cat", {}, false);
  first.disable();
  second.send("words\n", patience);
  EXPECT_EQ(next_line(second), "words");
}

TEST(SendSignalFromAnotherThread, EndsAChildThatIsWaitedFor) {
  TavrenProcess child = shell("echo last words; exec sleep 600");
  ASSERT_EQ(next_line(child), "last words");
  const WhileAsleep killed([&child] { child.send_signal(SIGKILL); });
  EXPECT_EQ(result_of_reading_on(child), "13(/bin/sh) 12(last words)");
}

TEST(SendSignalFromAnotherThread, IsSafeWhileTheChildIsStopped) {
  for (int i = 0; i < 50; ++i) {
    TavrenProcess child("/bin/sleep", {"600"}, false);
    std::atomic<bool> begun{false};
    std::thread signals([&] {
      while (child.send_signal(0) == 0) begun = true;
    });
    while (!begun) std::this_thread::yield();
    child.stop(0);
    signals.join();
    EXPECT_EQ(child.send_signal(0), -1);
  }
}
