#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/close_range.h>
#include <stdio.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <set>
#include <thread>
#include <vector>

#include "process/children.h"
#include "process/observe.h"
#include "support/run_in_child.h"

using testing::ElementsAre;
using testing::StartsWith;

namespace {

/* What the test program itself was started with must not confuse the picture. */
class Descriptors : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(close_range(3, ~0U, CLOSE_RANGE_CLOEXEC), 0); }
};

/* A child that tells its process id and lives on. */
TavrenProcess living_child(bool separate_stdin) { return shell("echo $$; read -r line; echo $line", separate_stdin); }

/* Starts children with ever more descriptors left, until it works, and prints how each attempt ended. */
void start_with_ever_more_room(bool separate_stdin) {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  std::string last;
  for (unsigned int room = 0; last != "done"; ++room) {
    limit.rlim_cur = 3 + room;
    setrlimit(RLIMIT_NOFILE, &limit);
    const std::string result = result_of([separate_stdin] { shell("exit", separate_stdin); });
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
    if (open_descriptors().size() != 3) printf("descriptors left ");
    if (has_children()) printf("child left ");
    if (result != last) printf("%s ", result.c_str());
    last = result;
  }
}

/* What is wrong with a child started in a host that lacks standard streams; empty: nothing. */
std::string faults_of_a_child(bool separate_stdin) {
  const std::set<int> before = open_descriptors();
  TavrenProcess child = living_child(separate_stdin);
  for (const int fd : new_descriptors(before)) {
    if (fd <= STDERR_FILENO) return "took a standard stream";
    if (!is_close_on_exec(fd)) return "not close-on-exec";
  }
  const pid_t pid = announced_pid(child);
  if (open_descriptors(pid) != std::set<int>{0, 1, 2}) return "child holds the wrong descriptors";
  child.send("words\n", patience);
  if (next_line(child) != "words") return "wrong answer";
  return "";
}

}  // namespace

TEST_F(Descriptors, StandardStreamsOfTheChildAreOneTerminalButForASeparateInput) {
  for (const bool separate_stdin : {false, true}) {
    TavrenProcess child = living_child(separate_stdin);
    const pid_t pid = announced_pid(child);
    EXPECT_THAT(open_descriptors(pid), ElementsAre(0, 1, 2));
    EXPECT_THAT(descriptor_target(pid, 1), StartsWith("/dev/pts/"));
    EXPECT_EQ(descriptor_target(pid, 2), descriptor_target(pid, 1));
    EXPECT_THAT(descriptor_target(pid, 0), StartsWith(separate_stdin ? "pipe:" : descriptor_target(pid, 1)));
  }
}

TEST_F(Descriptors, SecondOfTwoChildrenHoldsNothingOfTheFirst) {
  for (const bool separate_stdin : {false, true}) {
    TavrenProcess first = living_child(separate_stdin);
    TavrenProcess second = living_child(separate_stdin);
    const pid_t first_pid = announced_pid(first);
    const pid_t second_pid = announced_pid(second);
    EXPECT_THAT(open_descriptors(second_pid), ElementsAre(0, 1, 2));
    for (const int fd : {0, 1, 2}) EXPECT_NE(descriptor_target(first_pid, fd), descriptor_target(second_pid, fd));
  }
}

TEST_F(Descriptors, ChildrenOfSeveralThreadsHoldNothingOfEachOther) {
  std::atomic<int> faults{0};
  const auto start_many = [&faults](bool separate_stdin) {
    for (int i = 0; i < 40; ++i) {
      TavrenProcess child = living_child(separate_stdin);
      if (open_descriptors(announced_pid(child)) != std::set<int>{0, 1, 2}) ++faults;
      child.stop(0);
    }
  };
  std::vector<std::thread> threads;
  for (int i = 0; i < 6; ++i) threads.emplace_back(start_many, i % 2 == 0);
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(faults, 0);
}

TEST_F(Descriptors, AllOfTheLibraryAreCloseOnExec) {
  for (const bool separate_stdin : {false, true}) {
    const std::set<int> before = open_descriptors();
    const TavrenProcess child = living_child(separate_stdin);
    const std::set<int> added = new_descriptors(before);
    EXPECT_EQ(added.size(), separate_stdin ? 5U : 3U);
    for (const int fd : added) EXPECT_TRUE(is_close_on_exec(fd)) << fd;
  }
}

TEST_F(Descriptors, ThoseThatTheHostLeavesInheritableReachTheChild) {
  const int inheritable = fcntl(STDERR_FILENO, F_DUPFD, 50);
  TavrenProcess child = living_child(false);
  EXPECT_THAT(open_descriptors(announced_pid(child)), ElementsAre(0, 1, 2, inheritable));
  close(inheritable);
}

TEST_F(Descriptors, HostWithClosedStandardStreamsGetsNoneOfOursThere) {
  for (unsigned int closed = 0; closed < 8; ++closed) {
    const Outcome outcome = run_in_child([closed] {
      const int report = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 100);
      for (const int fd : {0, 1, 2}) {
        if ((closed >> fd & 1) != 0) close(fd);
      }
      for (const bool separate_stdin : {false, true}) dprintf(report, "%s", faults_of_a_child(separate_stdin).c_str());
    });
    EXPECT_TRUE(outcome.exited_with(0)) << closed;
    EXPECT_EQ(outcome.out, "") << closed;
  }
}

TEST_F(Descriptors, HostWithThousandsOpenWorksAsEver) {
  const Outcome outcome = run_in_child([] {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
    int opened = 0;
    while (opened < 3500 && fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3) != -1) ++opened;
    printf("%d", opened);
    for (const bool separate_stdin : {false, true}) printf("%s", faults_of_a_child(separate_stdin).c_str());
  });
  EXPECT_TRUE(outcome.exited_with(0));
  EXPECT_EQ(outcome.out, "3500");
}

/* With and without a pipe for the input. */
TEST_F(Descriptors, ConstructionThatFindsNoneLeftNamesTheCallAndReleasesEverything) {
  for (const bool separate_stdin : {false, true}) {
    const Outcome outcome = run_in_child([separate_stdin] {
      close_range(3, ~0U, 0);
      start_with_ever_more_room(separate_stdin);
    });
    EXPECT_EQ(outcome.out, "24(pipe, 24) 24(forkpty, 24) done ") << separate_stdin;
  }
}
