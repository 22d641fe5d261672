#include "hodra.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>

#include "hodrahelper.h"
#include "support/files.h"
#include "support/temporary_directory.h"

namespace {

class Hodra : public testing::Test {
 protected:
  Hodra() { setenv("HODRA_DIR", directory.path("a/b").c_str(), 1); }

  /* Runs the tool that writes records. Returns its exit status. */
  static int put(const std::string& arguments) {
    const int status = system((HODRA_PUT " " + arguments + " 2>/dev/null").c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  /* Returns a record of database 1, or the number of the error. */
  static std::string get(const std::string& record, int flags = 0) {
    void* data = nullptr;
    size_t length = 0;
    const int error = hodra_get(1, record.c_str(), &data, &length, flags);
    if (error != 0) return "error " + std::to_string(error);
    const std::string content(static_cast<char*>(data), length);
    free(data);
    return content;
  }

  static void open_and_lock() {
    ASSERT_EQ(open_conf_db(1), 0);
    ASSERT_EQ(hodra_lock(1), 0);
  }

  static std::string error(int number) { return "error " + std::to_string(number); }

  TemporaryDirectory directory;
};

TEST_F(Hodra, ADatabaseThatIsNotThereCannotBeOpened) {
  EXPECT_EQ(open_conf_db(1), ENODEV);
  EXPECT_EQ(open_conf_db(-1), ENODEV);
  EXPECT_EQ(open_conf_db(HODRA_DATABASES), ENODEV);
}

TEST_F(Hodra, AFileIsNoDatabase) {
  ASSERT_EQ(put("2 r 1"), 0);
  write_file(directory.path("a/b/1"), "");
  EXPECT_EQ(open_conf_db(1), ENODEV);
}

TEST_F(Hodra, ADatabaseThatIsClosedAsOftenAsOpenedOrNotLockedIsRefused) {
  ASSERT_EQ(put("1 r 1"), 0);
  EXPECT_EQ(hodra_lock(1), EBADF);
  EXPECT_EQ(hodra_unlock(1), EBADF);
  EXPECT_EQ(get("r"), error(EBADF));
  EXPECT_EQ(close_conf_db(1), EBADF);
  for (int i = 0; i < 2; ++i) EXPECT_EQ(open_conf_db(1), 0);
  EXPECT_EQ(get("r"), error(ENOLCK));
  EXPECT_EQ(hodra_unlock(1), ENOLCK);
  for (int i = 0; i < 2; ++i) EXPECT_EQ(close_conf_db(1), 0);
  EXPECT_EQ(close_conf_db(1), EBADF);
}

TEST_F(Hodra, TheLastClosingGivesTheLockBack) {
  ASSERT_EQ(put("1 r 1"), 0);
  open_and_lock();
  close_conf_db(1);
  open_and_lock();
  EXPECT_EQ(hodra_unlock(1), 0);
}

TEST_F(Hodra, ARecordThatIsNotThereANameThatLeavesTheDatabaseAndFlagsAreRefused) {
  ASSERT_EQ(put("1 r 1"), 0);
  open_and_lock();
  EXPECT_EQ(get("other"), error(ENOENT));
  for (const char* name : {"../1/r", "..", ""}) EXPECT_EQ(get(name), error(EINVAL)) << name;
  EXPECT_EQ(get("r", 1), error(EINVAL));
}

TEST_F(Hodra, ARecordIsReadWholeAndMayBeEmpty) {
  std::string content;
  for (int i = 0; i < 100000; ++i) content += static_cast<char>(i);
  ASSERT_EQ(hodrahelper_make(1), 0);
  ASSERT_EQ(hodrahelper_put(1, "r", content.data(), content.size()), 0);
  ASSERT_EQ(put("1 empty 0"), 0);
  open_and_lock();
  EXPECT_EQ(get("r"), content);
  EXPECT_EQ(get("empty"), "");
}

TEST_F(Hodra, TheToolWritesTextsBytesAndIntegers) {
  const int32_t integer = -2;
  std::string expected("\0\0ab\0\0\xff\0\0\0\0\0", 12);
  memcpy(&expected[8], &integer, sizeof integer);
  ASSERT_EQ(put("1 r 12 2=ab 6:byte=255 8:int=-2"), 0);
  open_and_lock();
  EXPECT_EQ(get("r"), expected);
}

TEST_F(Hodra, TheToolReplacesARecordAndLeavesNothingElse) {
  ASSERT_EQ(put("1 r 3 0=old"), 0);
  ASSERT_EQ(put("1 r 3 0=new"), 0);
  open_and_lock();
  EXPECT_EQ(get("r"), "new");
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory.path("a/b/1")), {}), 1);
}

TEST_F(Hodra, TheToolRefusesWhatDoesNotFitAndReportsWhatCannotBeMade) {
  for (const char* arguments :
       {"", "1", "1 r", "16 r 1", "-1 r 1", "x r 1", "1 r x", "1 r -1", "1 r 4 3=ab", "1 r 4 5=", "1 r 4 0:byte=256",
        "1 r 4 1:int=1", "1 r 4 0:int=x", "1 r 4 x=1", "1 r 4 0"}) {
    EXPECT_EQ(put(arguments), 2) << arguments;
  }
  write_file(directory.path("a"), "");
  EXPECT_EQ(put("1 r 1"), 1);
}

TEST_F(Hodra, TheDatabasesHaveADefaultPlace) {
  char path[HODRA_PATH_SIZE];
  unsetenv("HODRA_DIR");
  EXPECT_EQ(hodrahelper_path(1, "r", path), 0);
  EXPECT_STREQ(path, "/var/lib/hodra/1/r");
  setenv("HODRA_DIR", "", 1);
  EXPECT_EQ(hodrahelper_path(1, "r", path), 0);
  EXPECT_STREQ(path, "/var/lib/hodra/1/r");
}

TEST_F(Hodra, APathThatIsTooLongIsRefused) {
  setenv("HODRA_DIR", std::string(HODRA_PATH_SIZE, 'x').c_str(), 1);
  EXPECT_EQ(open_conf_db(1), ENAMETOOLONG);
}

/* Takes the lock in another process, which holds it until it is killed. Returns its process id. */
pid_t lock_elsewhere() {
  int ready[2];
  if (pipe(ready) == -1) throw std::runtime_error("pipe failed");
  const pid_t pid = fork();
  if (pid == 0) {
    if (open_conf_db(1) != 0 || hodra_lock(1) != 0 || write(ready[1], "x", 1) != 1) _exit(1);
    for (;;) pause();
  }
  char byte = 0;
  EXPECT_EQ(read(ready[0], &byte, 1), 1);
  close(ready[0]);
  close(ready[1]);
  return pid;
}

TEST_F(Hodra, ALockHoldsOffOtherProcessesAndEndsWithItsHolder) {
  ASSERT_EQ(put("1 r 1"), 0);
  const pid_t holder = lock_elsewhere();
  std::atomic<bool> holder_lives{true};
  std::thread killer([&] {
    usleep(100000);
    holder_lives = false;
    kill(holder, SIGKILL);
  });
  open_and_lock();
  EXPECT_FALSE(holder_lives);
  killer.join();
  waitpid(holder, nullptr, 0);
}

TEST_F(Hodra, ALockHoldsOffTheTool) {
  ASSERT_EQ(put("1 r 3 0=old"), 0);
  open_and_lock();
  std::thread writer([] { put("1 r 3 0=new"); });
  usleep(100000);
  EXPECT_EQ(get("r"), "old");
  hodra_unlock(1);
  writer.join();
}

TEST_F(Hodra, ALockHoldsOffOtherThreads) {
  ASSERT_EQ(put("1 r 1"), 0);
  open_and_lock();
  std::atomic<bool> locked{true};
  std::thread other([&] {
    EXPECT_EQ(hodra_lock(1), 0);
    EXPECT_FALSE(locked);
    EXPECT_EQ(hodra_unlock(1), 0);
  });
  usleep(100000);
  locked = false;
  EXPECT_EQ(hodra_unlock(1), 0);
  other.join();
}

TEST_F(Hodra, ALockOfOneDatabaseLeavesTheOthersFree) {
  ASSERT_EQ(put("1 r 1"), 0);
  ASSERT_EQ(put("2 r 1"), 0);
  open_and_lock();
  ASSERT_EQ(open_conf_db(2), 0);
  EXPECT_EQ(hodra_lock(2), 0);
}

}  // namespace
