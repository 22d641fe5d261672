#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <new>
#include <set>

#include "process/children.h"
#include "process/observe.h"

namespace {

using Dispositions = std::array<struct sigaction, NSIG>;

/* What this process does with each signal. */
Dispositions dispositions() {
  Dispositions actions{};
  for (int number = 1; number < NSIG; ++number) sigaction(number, nullptr, &actions[static_cast<size_t>(number)]);
  return actions;
}

bool have_equal_handlers(const Dispositions& a, const Dispositions& b) {
  const auto equal = [](const struct sigaction& x, const struct sigaction& y) {
    return x.sa_handler == y.sa_handler && x.sa_flags == y.sa_flags;
  };
  return std::equal(a.begin(), a.end(), b.begin(), equal);
}

sigset_t signal_mask() {
  sigset_t mask{};
  pthread_sigmask(SIG_SETMASK, nullptr, &mask);
  return mask;
}

std::set<int> blocked_signals() {
  const sigset_t mask = signal_mask();
  std::set<int> blocked;
  for (int number = 1; number < NSIG; ++number) {
    if (sigismember(&mask, number) == 1) blocked.insert(number);
  }
  return blocked;
}

/* The signals of a host while the object lives: as they were before, after it. */
class HostSignals {
 public:
  HostSignals() : mask(signal_mask()), actions(dispositions()) {}
  ~HostSignals() {
    pthread_sigmask(SIG_SETMASK, &mask, nullptr);
    for (int number = 1; number < NSIG; ++number) sigaction(number, &actions[static_cast<size_t>(number)], nullptr);
  }
  HostSignals(const HostSignals&) = delete;
  HostSignals& operator=(const HostSignals&) = delete;

  static void block_all() {
    sigset_t all{};
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, nullptr);
  }
  static void ignore_all() {
    for (int number = 1; number < NSIG; ++number) signal(number, SIG_IGN);
  }

 private:
  sigset_t mask;
  Dispositions actions;
};

std::string status_of_signals(void (*host_does)()) {
  const HostSignals restored_afterwards;
  host_does();
  TavrenProcess child("/bin/grep", {"-E", "SigBlk|SigIgn", "/proc/self/status"}, false);
  return all_output(child);
}

/* Starts children that sleep and sends each a SIGTERM as soon as there is one, which must be its end. */
void expect_sigterm_to_end_children_that_start() {
  for (int i = 0; i < 300; ++i) {
    TavrenProcess child("/bin/sleep", {"20"}, false);
    child.send_signal(SIGTERM);
    ASSERT_EQ(end_of_a_child().si_status, SIGTERM);
  }
}

/* Starts a child, sends it SIGTERM and tells whether that was the end of it. */
bool ends_by_sigterm(void (*host_does)()) {
  const HostSignals restored_afterwards;
  host_does();
  TavrenProcess child = shell("echo $$; exec sleep 600");
  const pid_t pid = announced_pid(child);
  child.send_signal(SIGTERM);
  return wait_until_exited(pid) && end_of_a_child().si_status == SIGTERM;
}

pid_t test_pid;
std::atomic<int>* handled_elsewhere; /* shared with the children */

void count_elsewhere(int) {
  if (getpid() != test_pid) ++*handled_elsewhere;
}

}  // namespace

TEST(Signals, ProgramStartsWithNoneBlockedAndNoneIgnored) {
  constexpr char none[] = "SigBlk:\t0000000000000000\nSigIgn:\t0000000000000000\n";
  EXPECT_EQ(status_of_signals(HostSignals::block_all), none);
  EXPECT_EQ(status_of_signals(HostSignals::ignore_all), none);
}

TEST(Signals, SigtermEndsTheChildOfAHostThatBlocksOrIgnoresIt) {
  EXPECT_TRUE(ends_by_sigterm(HostSignals::block_all));
  EXPECT_TRUE(ends_by_sigterm([] { signal(SIGTERM, SIG_IGN); }));
}

TEST(Signals, HostKeepsItsOwn) {
  const HostSignals restored_afterwards;
  signal(SIGPIPE, SIG_DFL);
  signal(SIGUSR1, SIG_IGN);
  signal(SIGUSR2, count_elsewhere);
  const Dispositions dispositions_before = dispositions();
  const std::set<int> blocked_before = blocked_signals();
  {
    TavrenProcess child = shell("read -r line; echo $line", true);
    child.send("line\n", patience);
    next_line(child);
    child.stop(1);
  }
  EXPECT_TRUE(have_equal_handlers(dispositions(), dispositions_before));
  EXPECT_EQ(blocked_signals(), blocked_before);
}

/* Between fork and execve a child still has its host's handlers, which must not run there. */
TEST(Signals, OneThatComesDuringTheStartEndsTheChildAndRunsNoHandlerOfTheHost) {
  const HostSignals restored_afterwards;
  void* const shared = mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(shared, MAP_FAILED);
  handled_elsewhere = new (shared) std::atomic<int>(0);
  test_pid = getpid();
  signal(SIGTERM, count_elsewhere);
  expect_sigterm_to_end_children_that_start();
  EXPECT_EQ(*handled_elsewhere, 0);
  munmap(shared, 4096);
}

TEST(Signals, OneThatComesDuringTheStartEndsTheChildOfAHostThatIgnoresIt) {
  const HostSignals restored_afterwards;
  signal(SIGTERM, SIG_IGN);
  expect_sigterm_to_end_children_that_start();
}
