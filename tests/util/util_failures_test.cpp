/* A machine whose calls fail. */
#include <errno.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <functional>
#include <string>

#include "support/files.h"
#include "support/real_function.h"
#include "support/run_in_child.h"
#include "support/temporary_directory.h"
#include "tavren_basic.h"
#include "tavren_share.h"
#include "util/private_directory.h"

namespace {

/* The function that fails; set in children only. */
const char* failing = "";

/* What the monotonic clock shows, NULL for the time; set in children only. */
const timespec* shown = nullptr;

/* What the last lock asked for. */
int lock_command = -1;
off_t lock_size = -1;

/* Why no lock can be had when lockf fails; set in children only. */
int lock_error = ENOLCK;

/* Called before a directory is removed, and before a lock is taken; set in children only. */
std::function<void()> at_rmdir = [] {};
std::function<void()> at_lockf = [] {};

bool fails(const char* name) { return strcmp(failing, name) == 0; }

}  // namespace

STANDS_BEFORE_THE_REAL_ONE int clock_gettime(clockid_t clock, timespec* now) noexcept {
  if (fails("clock_gettime")) return -1;
  if (shown == nullptr || clock != CLOCK_MONOTONIC) return real<int(clockid_t, timespec*)>("clock_gettime")(clock, now);
  *now = *shown;
  return 0;
}

STANDS_BEFORE_THE_REAL_ONE int fclose(FILE* file) {
  const int result = real<int(FILE*)>("fclose")(file);
  if (!fails("fclose")) return result;
  errno = EIO;
  return EOF;
}

STANDS_BEFORE_THE_REAL_ONE int isatty(int fd) noexcept { return fails("isatty") ? 1 : real<int(int)>("isatty")(fd); }

STANDS_BEFORE_THE_REAL_ONE int mkdir(const char* path, mode_t mode) noexcept {
  return fails("mkdir") ? -1 : real<int(const char*, mode_t)>("mkdir")(path, mode);
}

STANDS_BEFORE_THE_REAL_ONE int rmdir(const char* path) noexcept {
  at_rmdir();
  return real<int(const char*)>("rmdir")(path);
}

/* The headers give this function the name that programs with 64-bit file offsets call. */
STANDS_BEFORE_THE_REAL_ONE int lockf(int fd, int command, off_t size) {
  at_lockf();
  lock_command = command;
  lock_size = size;
  if (!fails("lockf")) return real<int(int, int, off_t)>("lockf64")(fd, command, size);
  errno = lock_error;
  return -1;
}

namespace {

TEST(FailingClock, FailsAnAssertion) {
  expect_assertion("tavren_basic", "rval == 0", [] {
    failing = "clock_gettime";
    tavren_get_uptime();
  });
  expect_assertion("tavren_basic", "rval == 0", [] {
    failing = "clock_gettime";
    tavren_get_uptime_ms();
  });
}

/* After 25 days the milliseconds need more than 31 bits. */
TEST(Uptime, OfAMonthIsWholeInSecondsAndInMilliseconds) {
  const Outcome outcome = run_in_child([] {
    static const timespec month{30 * 24 * 60 * 60, 7999999};
    shown = &month;
    const int seconds = tavren_get_uptime();
    const int64_t milliseconds = tavren_get_uptime_ms();
    shown = nullptr;
    printf("%d %s", seconds, std::to_string(milliseconds).c_str());
  });
  EXPECT_EQ(outcome.out, "2592000 2592000007");
}

TEST(FailingTerminal, WithoutAttributesFailsAnAssertionWhenInputIsHidden) {
  expect_assertion("tavren_share", "rc == 0", [] {
    /* The standard input is said to be a terminal and is none. */
    failing = "isatty";
    char buffer[20];
    tavren_read_input("", buffer, sizeof buffer, 1);
  });
}

TEST(FailingClose, IsAFailureOfTheTextFileAndOfTheLineFromAFile) {
  const TemporaryDirectory directory;
  const std::string path = directory.path("file"), with_a_line = directory.path("line");
  write_file(with_a_line, "abc\n");
  const Outcome outcome = run_in_child([&] {
    failing = "fclose";
    char buffer[20];
    const bool failed = tavren_create_text_file(path.c_str(), "x") == -1 && errno == EIO;
    _exit(failed && tavren_read_line_from_file(with_a_line.c_str(), buffer, sizeof buffer) == -1 ? 3 : 4);
  });
  EXPECT_TRUE(outcome.exited_with(3)) << outcome.wait_status;
}

class FailingLock : public PrivateDirectory {};

/* Some systems give EACCES when another process holds the lock; here only EAGAIN says that. */
TEST_F(FailingLock, RefusesThePrivateDirectoryWithTheReasonAndLeavesNothing) {
  for (const int error : {ENOLCK, EACCES}) {
    EXPECT_EQ(in_instance([this, error] {
                failing = "lockf";
                lock_error = error;
                const std::string refusal = set_up_and_name();
                return refusal + " " + count_of_descriptors(lock);
              }),
              "-1 Failed to lock " + lock + ", errno=" + std::to_string(error) + ". NULL 0");
  }
}

/* Set is set, and the machine's own root directory stays as it is. */
TEST(TemporaryRoot, OfAnEmptyHomeIsBelowTheRootDirectory) {
  const Outcome outcome = run_in_child([] {
    setenv("TAVREN_HOME", "", 1);
    failing = "mkdir";
    fputs(tavren_get_tmp_root(), stdout);
  });
  EXPECT_EQ(outcome.out, "/tavren_tmp");
}

class Lock : public PrivateDirectory {};

TEST_F(Lock, IsOnTheWholeFileNotWaitedForAndTakenWithTheHostsUmask) {
  EXPECT_EQ(in_instance([] {
              umask(027);
              mode_t at_locking = 0;
              at_lockf = [&at_locking] { umask(at_locking = umask(0)); };
              set_up();
              return std::to_string(lock_command) + " " + std::to_string(lock_size) + " " + std::to_string(at_locking);
            }),
            std::to_string(F_TLOCK) + " 0 " + std::to_string(027));
}

/* What the predecessor locked is no lock any more once it has gone: the next instance would make one of its own. */
TEST_F(Lock, IsThatOfTheFileThatIsThereAfterAPredecessorTookItsOwnAway) {
  EXPECT_EQ(in_instance([this] {
              int predecessors = 2;
              at_lockf = [&] {
                if (predecessors-- <= 0) return;
                std::filesystem::remove(lock);
                std::filesystem::remove(directory);
              };
              const std::string result = set_up();
              return result + " " + count_of_descriptors(lock) + " " + count_of_descriptors(lock + " (deleted)");
            }),
            std::string(success) + " 1 0");
}

TEST_F(Lock, IsThatOfTheFileThatAPredecessorPutInItsPlace) {
  EXPECT_EQ(in_instance([this] {
              const auto put_another_one_there = [this] {
                std::filesystem::rename(lock, lock + ".old");
                write_file(lock, "");
              };
              int lockings = 0;
              at_lockf = [&] {
                if (++lockings == 1) put_another_one_there();
              };
              const std::string result = set_up();
              return result + " " + count_of_descriptors(lock);
            }),
            std::string(success) + " 1");
}

TEST_F(Lock, IsNotThatOfAFileToWhichALinkInItsPlaceLeads) {
  EXPECT_EQ(in_instance([this] {
              at_lockf = [this] {
                std::filesystem::rename(lock, lock + ".old");
                std::filesystem::create_symlink(lock + ".old", lock);
              };
              return set_up();
            }),
            "-1 Failed to open " + lock + ", errno=40.");
}

TEST_F(Lock, CannotBeTakenByAnotherProcessBeforeTheDirectoryIsGone) {
  EXPECT_EQ(in_instance([this] {
              set_up();
              const int fd = *descriptors_of(lock).begin();
              std::string seen = "no directory was removed";
              at_rmdir = [&] {
                seen = count_of_descriptors(lock + " (deleted)") + " ";
                seen += run_in_child([fd] { fputs(lockf(fd, F_TEST, 0) == 0 ? "free" : "locked", stdout); }).out;
              };
              tavren_cleanup_tmp_dir();
              return seen;
            }),
            "1 locked");
}

}  // namespace
