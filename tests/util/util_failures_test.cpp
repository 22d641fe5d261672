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

TEST(FailingClose, IsAFailureOfTheTextFile) {
  const TemporaryDirectory directory;
  const std::string path = directory.path("file");
  const Outcome outcome = run_in_child([&] {
    failing = "fclose";
    _exit(tavren_create_text_file(path.c_str(), "x") == -1 && errno == EIO ? 3 : 4);
  });
  EXPECT_TRUE(outcome.exited_with(3)) << outcome.wait_status;
}

TEST(FailingClose, IsAFailureOfTheLineFromAFile) {
  const TemporaryDirectory directory;
  const std::string path = directory.path("file");
  write_file(path, "abc\n");
  const Outcome outcome = run_in_child([&] {
    failing = "fclose";
    char buffer[20];
    _exit(tavren_read_line_from_file(path.c_str(), buffer, sizeof buffer) == -1 ? 3 : 4);
  });
  EXPECT_TRUE(outcome.exited_with(3)) << outcome.wait_status;
}

class FailingLock : public PrivateDirectory {
 protected:
  /* Returns what show returns in an instance that has not got its lock. */
  std::string after_set_up(const std::function<std::string()>& show) const {
    return in_instance([&] {
      failing = "lockf";
      return set_up() == success ? "locked" : show();
    });
  }
};

TEST_F(FailingLock, RefusesThePrivateDirectoryWithTheReason) {
  EXPECT_EQ(in_instance([] {
              failing = "lockf";
              return set_up();
            }),
            "-1 Failed to lock " + lock + ", errno=37.");
}

/* Some systems say this when another process holds the lock; here only EAGAIN does. */
TEST_F(FailingLock, WithoutPermissionIsNoRunningInstance) {
  EXPECT_EQ(in_instance([] {
              failing = "lockf";
              lock_error = EACCES;
              return set_up();
            }),
            "-1 Failed to lock " + lock + ", errno=13.");
}

TEST_F(FailingLock, LeavesNoDescriptorBehind) {
  EXPECT_EQ(after_set_up([this] { return std::to_string(descriptors_of(lock).size()); }), "0");
}

TEST_F(FailingLock, LeavesTheDirectoryUnnamed) {
  EXPECT_EQ(after_set_up([] { return tavren_get_tmp_dir() == nullptr ? "NULL" : "not NULL"; }), "NULL");
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

TEST_F(Lock, IsOnTheWholeFileAndNotWaitedFor) {
  EXPECT_EQ(in_instance([] {
              set_up();
              return std::to_string(lock_command) + " " + std::to_string(lock_size);
            }),
            std::to_string(F_TLOCK) + " 0");
}

TEST_F(Lock, IsTakenWithTheUmaskAsItWas) {
  EXPECT_EQ(in_instance([] {
              umask(027);
              mode_t at_locking = 0;
              at_lockf = [&at_locking] { umask(at_locking = umask(0)); };
              set_up();
              return std::to_string(at_locking);
            }),
            std::to_string(027));
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
              return result + " " + std::to_string(descriptors_of(lock).size()) + " " +
                     std::to_string(descriptors_of(lock + " (deleted)").size());
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
              return result + " " + std::to_string(descriptors_of(lock).size());
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

/* Otherwise a new instance could take the directory and have its files removed. */
TEST_F(Lock, IsHeldUntilTheDirectoryIsGone) {
  EXPECT_EQ(in_instance([this] {
              set_up();
              std::string locks = "no directory was removed";
              at_rmdir = [&] {
                locks = std::to_string(descriptors_of(lock).size() + descriptors_of(lock + " (deleted)").size());
              };
              tavren_cleanup_tmp_dir();
              return locks;
            }),
            "1");
}

TEST_F(Lock, CannotBeTakenByAnotherProcessBeforeTheDirectoryIsGone) {
  EXPECT_EQ(in_instance([this] {
              set_up();
              const int fd = *descriptors_of(lock).begin();
              std::string seen = "no directory was removed";
              at_rmdir = [&] {
                seen = run_in_child([fd] { fputs(lockf(fd, F_TEST, 0) == 0 ? "free" : "locked", stdout); }).out;
              };
              tavren_cleanup_tmp_dir();
              return seen;
            }),
            "locked");
}

}  // namespace
