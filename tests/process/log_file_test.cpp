#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/close_range.h>
#include <signal.h>
#include <stdio.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <set>

#include "process/children.h"
#include "process/log_fixture.h"
#include "process/observe.h"

namespace {

const std::string banner_of_true = rule + "STARTING CHILD: /bin/true\n";

void log_a_child() { TavrenProcess("/bin/true", {}, false).stop(0); }

/* Prints how a child's construction ended. */
void print_result_of_a_start() {
  printf("%s", result_of([] { TavrenProcess("/bin/true", {}, false); }).c_str());
}

}  // namespace

TEST_F(ChildOutputLog, OfAnEarlierRunIsMovedAtTheFirstWrite) {
  write_file(path(), "earlier run");
  write_file(path() + ".0", "still earlier run");
  run("10000", log_a_child);
  EXPECT_EQ(previous(), "earlier run");
  EXPECT_EQ(current(), banner_of_true);
}

TEST_F(ChildOutputLog, OfAnEarlierRunStaysWhileTheLogIsOff) {
  write_file(path(), "earlier run");
  run("0", log_a_child);
  EXPECT_EQ(current(), "earlier run");
}

TEST_F(ChildOutputLog, OfAnEarlierRunThatCannotBeMovedIsCutOff) {
  make_unmovable();
  write_file(path(), std::string(1000, 'x'));
  run("10000", log_a_child);
  EXPECT_EQ(current(), banner_of_true);
}

TEST_F(ChildOutputLog, StaysOpenOnceOpened) {
  run("0", [this] {
    TavrenProcess child("/bin/cat", {}, false);
    set_limit("1000");
    for (const char* line : {"first", "second"}) {
      child.send(std::string(line) + "\n", patience);
      next_line(child);
      if (exists("tavren_child_output.tester")) std::filesystem::rename(path(), path("elsewhere"));
    }
  });
  EXPECT_EQ(read_file(path("elsewhere")), "first\nsecond\n");
}

TEST_F(ChildOutputLog, IsReadableAndWritableByAllTheUmaskAllows) {
  for (const mode_t mask : {0U, 027U}) {
    run("10000", [mask] {
      umask(mask);
      log_a_child();
    });
    struct stat status {};
    ASSERT_EQ(stat(path().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0666U & ~mask);
  }
}

TEST_F(ChildOutputLog, ClosesTheFileItMovesAway) {
  const std::string output = run("1", [] {
    TavrenProcess("/bin/true", {"one", "two"}, false).stop(0);
    const size_t before = open_descriptors().size();
    TavrenProcess("/bin/true", {"one", "two"}, false).stop(0);
    printf("%zu more", open_descriptors().size() - before);
  });
  EXPECT_EQ(output, "0 more");
}

TEST_F(ChildOutputLog, ReachesNoChild) {
  const std::string output = run("10000", [] {
    close_range(3, ~0U, CLOSE_RANGE_CLOEXEC);
    TavrenProcess first("/bin/true", {}, false);
    TavrenProcess child = shell("echo $$; read -r line");
    const pid_t pid = announced_pid(child);
    printf("%zu", open_descriptors(pid).size());
  });
  EXPECT_EQ(output, "3");
}

TEST_F(ChildOutputLog, TakesNoStandardStreamThatTheHostHasClosed) {
  const std::string output = run("10000", [] {
    const int report = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 100);
    for (const int fd : {0, 1, 2}) close(fd);
    TavrenProcess child("/bin/true", {}, false);
    dprintf(report, "%s", *open_descriptors().begin() > STDERR_FILENO ? "none" : "taken");
  });
  EXPECT_EQ(output, "none");
}

TEST_F(ChildOutputLog, ThatCannotBeOpenedFailsTheConstructionAndLeavesNothing) {
  make_unwritable();
  const std::string output = run("10000", [] {
    const std::set<int> before = open_descriptors();
    printf("%s", result_of([] { TavrenProcess("/bin/true", {}, true).stop(0); }).c_str());
    printf("%s", open_descriptors() == before && !has_children() ? "" : " something left");
  });
  EXPECT_EQ(output, "24(write(log_child_output), 21)");
}

/* Everybody may put something in its place; what cannot be moved away is not written to, nor waited for. */
TEST_F(ChildOutputLog, FollowsNoLinkThatLeadsNowhere) {
  std::filesystem::create_symlink(path("planted"), path());
  EXPECT_EQ(run("10000", print_result_of_a_start), "24(write(log_child_output), 40)");
  EXPECT_FALSE(exists("planted"));
}

TEST_F(ChildOutputLog, FollowsNoLinkAndWaitsForNoNamedPipeThatCannotBeMoved) {
  make_unmovable();
  write_file(path("victim"), "untouched");
  std::filesystem::create_symlink(path("victim"), path());
  EXPECT_EQ(run("10000", print_result_of_a_start), "24(write(log_child_output), 40)");
  EXPECT_EQ(read_file(path("victim")), "untouched");
  std::filesystem::remove(path());
  ASSERT_EQ(mkfifo(path().c_str(), 0666), 0);
  EXPECT_EQ(run("10000", print_result_of_a_start), "24(write(log_child_output), 6)");
}

TEST_F(ChildOutputLog, MovesALinkAwayAndLeavesItsFileAlone) {
  write_file(path("victim"), "untouched");
  std::filesystem::create_symlink(path("victim"), path());
  run("10000", log_a_child);
  EXPECT_EQ(read_file(path("victim")), "untouched");
  EXPECT_EQ(current(), banner_of_true);
}

TEST_F(ChildOutputLog, ThatCannotBeOpenedFailsTheReadAndTakesNothingFromIt) {
  make_unwritable();
  const std::string output = run("0", [] {
    TavrenProcess child("/bin/echo", {"line"}, false);
    set_limit("10000");
    printf("%s, ", result_of([&child] { next_line(child); }).c_str());
    set_limit("0");
    printf("%s", next_line(child).c_str());
  });
  EXPECT_EQ(output, "24(write(log_child_output), 21), line");
}

/* Nothing that is written fits into a file that may have no bytes; the host has chosen to live through that. */
TEST_F(ChildOutputLog, ThatCannotBeWrittenFailsTheConstruction) {
  const std::string output = run("10000", [] {
    signal(SIGXFSZ, SIG_IGN);
    rlimit largest{};
    getrlimit(RLIMIT_FSIZE, &largest);
    const rlimit none{0, largest.rlim_max};
    setrlimit(RLIMIT_FSIZE, &none);
    const std::string result = result_of([] { TavrenProcess("/bin/true", {}, false); });
    setrlimit(RLIMIT_FSIZE, &largest);
    printf("%s", result.c_str());
  });
  EXPECT_EQ(output, "24(write(log_child_output), 27)");
}

/* A write across the largest size of a file takes a part, as one does that fills the disk, and sets no errno. */
TEST_F(ChildOutputLog, ThatTakesOnlyAPartIsTakenForAFullDisk) {
  const std::string output = run("10000", [] {
    const rlimit largest{50, 50};
    setrlimit(RLIMIT_FSIZE, &largest);
    print_result_of_a_start();
  });
  EXPECT_EQ(current(), rule.substr(0, 50));
  EXPECT_EQ(output, "24(write(log_child_output), 28)");
}

/* Such a piece takes nothing of what the file may hold: 50 bytes behind 60 that the file does not take fit into 100. */
TEST_F(ChildOutputLog, DoesNotGrowByAPieceThatFailsOrIsWrittenInPart) {
  for (const rlim_t taken : {0U, 55U}) {
    const std::string output = run("0", [taken] {
      signal(SIGXFSZ, SIG_IGN);
      TavrenProcess child = shell("for i in 60 50; do read -r go; head -c $i /dev/zero | tr '\\0' x; done; read -r go");
      set_limit("100");
      rlimit largest{};
      getrlimit(RLIMIT_FSIZE, &largest);
      const rlimit small{taken, largest.rlim_max};
      setrlimit(RLIMIT_FSIZE, &small);
      child.send("\n", patience);
      printf("%s", result_of([&child] { next_bytes(child, 60); }).c_str());
      setrlimit(RLIMIT_FSIZE, &largest);
      child.send("\n", patience);
      next_bytes(child, 60 + 50);
    });
    ASSERT_EQ(output.find("24(write(log_child_output), "), 0U) << output;
    EXPECT_FALSE(exists("tavren_child_output.tester.0")) << taken;
    std::filesystem::remove(path());
  }
}

TEST_F(ChildOutputLog, OpensAgainOnceItCan) {
  make_unwritable();
  run("10000", [this] {
    result_of([] { TavrenProcess("/bin/false", {}, false).stop(0); });
    std::filesystem::remove(path());
    log_a_child();
  });
  EXPECT_EQ(current(), banner_of_true);
}
