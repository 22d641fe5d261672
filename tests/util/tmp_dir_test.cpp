#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <set>

#include "support/files.h"
#include "support/run_in_child.h"
#include "support/temporary_directory.h"
#include "tavren_assert.h"
#include "tavren_share.h"

/* Directory and lock belong to the process, so every instance of a program is a child. */
namespace {

/* Sets the directory up and returns result and message in one text. */
std::string set_up(const std::string& name = "prog") {
  char message[TAVREN_MESSAGE_SIZE] = "untouched";
  const int result = tavren_setup_tmp_dir(name.c_str(), message);
  return std::to_string(result) + " " + message;
}

constexpr char success[] = "0 untouched";

/* Returns the descriptors of this process that lead to path. */
std::set<int> descriptors_of(const std::string& path) {
  std::set<int> found;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code closed_meanwhile;
    if (std::filesystem::read_symlink(entry.path(), closed_meanwhile) == path) {
      found.insert(std::stoi(entry.path().filename()));
    }
  }
  return found;
}

class PrivateDirectory : public testing::Test {
 protected:
  /* Returns what action, in an instance of the program, returns. */
  std::string in_instance(const std::function<std::string()>& action) const {
    return run_in_child([&] {
             setenv("TAVREN_HOME", home.path().c_str(), 1);
             fputs(action().c_str(), stdout);
           })
        .out;
  }

  /* Leaves the directory of an earlier instance behind, with nothing but the lock in it. */
  void leave_directory() const {
    ASSERT_EQ(in_instance([] { return set_up(); }), success);
  }

  std::set<std::string> entries() const {
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(directory)) names.insert(entry.path().filename());
    return names;
  }

  static mode_t mode_of(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) throw std::runtime_error("no such file: " + path);
    return status.st_mode & 07777;
  }

  TemporaryDirectory home;
  std::string directory = home.path("tavren_tmp/prog.libtavren");
  std::string lock = directory + "/.lock";
};

using Names = std::set<std::string>;

TEST_F(PrivateDirectory, IsSetUpWithItsLockFile) {
  EXPECT_EQ(in_instance([] { return set_up(); }), success);
  EXPECT_EQ(entries(), Names({".lock"}));
}

TEST_F(PrivateDirectory, MayBeUsedByEverybodyWhateverTheUmask) {
  EXPECT_EQ(in_instance([] {
              umask(077);
              return set_up();
            }),
            success);
  EXPECT_EQ(mode_of(directory), 0777U);
  EXPECT_EQ(mode_of(lock), 0666U);
}

TEST_F(PrivateDirectory, IsNamedOnceItIsSetUp) {
  EXPECT_EQ(in_instance([] { return tavren_get_tmp_dir() == nullptr ? "NULL" : "not NULL"; }), "NULL");
  EXPECT_EQ(in_instance([] {
              set_up();
              return tavren_get_tmp_dir();
            }),
            directory);
}

TEST_F(PrivateDirectory, OfAnEarlierInstanceIsEmptiedButForItsDotFiles) {
  leave_directory();
  for (const char* name : {"/known_hosts", "/host_key", "/.hidden"}) write_file(directory + name, "x");
  EXPECT_EQ(in_instance([] { return set_up(); }), success);
  EXPECT_EQ(entries(), Names({".lock", ".hidden"}));
}

TEST_F(PrivateDirectory, KeepsWhatItsLockFileHolds) {
  leave_directory();
  write_file(lock, "content");
  EXPECT_EQ(in_instance([] { return set_up(); }), success);
  EXPECT_EQ(read_file(lock), "content");
}

TEST_F(PrivateDirectory, HoldsItsLockInADescriptorThatNoProgramInherits) {
  EXPECT_EQ(in_instance([&] {
              set_up();
              const std::set<int> descriptors = descriptors_of(lock);
              if (descriptors.size() != 1) return std::string("not one descriptor");
              const int flags = fcntl(*descriptors.begin(), F_GETFD);
              return std::string((flags & FD_CLOEXEC) != 0 ? "close-on-exec" : "inherited");
            }),
            "close-on-exec");
}

TEST_F(PrivateDirectory, ThatCannotBeCreatedIsNamedWithTheReason) {
  std::filesystem::create_directories(home.path("tavren_tmp"));
  const std::string name = "no/such";
  EXPECT_EQ(in_instance([&] { return set_up(name); }),
            "-1 Failed to create directory " + home.path("tavren_tmp/no/such.libtavren") + ", errno=2");
}

TEST_F(PrivateDirectory, WhoseLockFileCannotBeOpenedIsNamedWithTheReason) {
  std::filesystem::create_directories(lock);
  EXPECT_EQ(in_instance([] { return set_up(); }), "-1 Failed to open " + lock + ", errno=21.");
}

TEST_F(PrivateDirectory, InWhosePlaceAFileStandsIsNamedWithTheReason) {
  std::filesystem::create_directories(home.path("tavren_tmp"));
  write_file(directory, "x");
  EXPECT_EQ(in_instance([] { return set_up(); }), "-1 Failed to open " + lock + ", errno=20.");
}

TEST_F(PrivateDirectory, ThatIsRefusedHasNoName) {
  std::filesystem::create_directories(lock);
  EXPECT_EQ(in_instance([] {
              set_up();
              return tavren_get_tmp_dir() == nullptr ? "NULL" : "not NULL";
            }),
            "NULL");
}

TEST_F(PrivateDirectory, CutsALongMessageTo127Bytes) {
  const std::string name = "no/" + std::string(200, 'n');
  const std::string whole = "Failed to create directory " + home.path("tavren_tmp/") + name;
  EXPECT_EQ(in_instance([&] { return set_up(name); }), "-1 " + whole.substr(0, 127));
}

TEST_F(PrivateDirectory, LeavesTheUmaskAsItWasWhateverHappens) {
  EXPECT_EQ(in_instance([&] {
              umask(027);
              std::string masks;
              const auto set_up_and_look = [&](const std::string& name) {
                set_up(name);
                masks += std::to_string(umask(027)) + " ";
              };
              set_up_and_look("prog");
              set_up_and_look("no/such");
              std::filesystem::create_directories(home.path("tavren_tmp/other.libtavren/.lock"));
              set_up_and_look("other");
              return masks;
            }),
            "23 23 23 ");
}

/* An instance of a program that has set its directory up and then just lives, until it is killed. */
class RunningInstance {
 public:
  explicit RunningInstance(const std::string& name = "prog") {
    int ready[2];
    if (pipe(ready) != 0 || (pid = fork()) == -1) throw std::runtime_error("pipe or fork failed");
    if (pid == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      close(ready[0]);
      if (set_up(name) == success && write(ready[1], "", 1) == 1) pause();
      _exit(1);
    }
    close(ready[1]);
    char c = '\0';
    const bool started = read(ready[0], &c, 1) == 1;
    close(ready[0]);
    if (!started) throw std::runtime_error("the running instance could not be set up");
  }
  ~RunningInstance() {
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
  }
  RunningInstance(const RunningInstance&) = delete;
  RunningInstance& operator=(const RunningInstance&) = delete;

 private:
  pid_t pid = -1;
};

class SecondInstance : public PrivateDirectory {
 protected:
  /* Returns what action returns while another instance holds the lock and keeps a file. */
  std::string in_second_instance(const std::function<std::string()>& action) const {
    return in_instance([&] {
      const RunningInstance first;
      write_file(directory + "/in_use", "x");
      return action();
    });
  }
};

TEST_F(SecondInstance, IsRefusedByItsProgramsName) {
  EXPECT_EQ(in_second_instance([] {
              tavren_set_program_name("/usr/bin/second");
              return set_up();
            }),
            "-1 An instance of second is already running.");
}

TEST_F(SecondInstance, LeavesTheFirstOnesFilesAlone) {
  in_second_instance([] { return set_up(); });
  EXPECT_EQ(entries(), Names({".lock", "in_use"}));
}

TEST_F(SecondInstance, KeepsTheLockFileOpen) {
  EXPECT_EQ(in_second_instance([&] {
              set_up();
              return std::to_string(descriptors_of(lock).size());
            }),
            "1");
}

TEST_F(SecondInstance, HasNoDirectory) {
  EXPECT_EQ(in_second_instance([&] {
              set_up();
              return tavren_get_tmp_dir() == nullptr ? "NULL" : "not NULL";
            }),
            "NULL");
}

TEST_F(SecondInstance, HasItsUmaskBack) {
  EXPECT_EQ(in_second_instance([] {
              umask(027);
              set_up();
              return std::to_string(umask(0));
            }),
            "23");
}

TEST_F(SecondInstance, CleansUpNothing) {
  in_second_instance([] {
    set_up();
    tavren_cleanup_tmp_dir();
    return "";
  });
  EXPECT_EQ(entries(), Names({".lock", "in_use"}));
}

TEST_F(SecondInstance, DoesNotBreakTheFirstOnesLock) {
  EXPECT_EQ(in_second_instance([] {
              set_up();
              return run_in_child([] { fputs(set_up().c_str(), stdout); }).out;
            }),
            "-1 An instance of error is already running.");
}

TEST_F(SecondInstance, OfAnotherNameIsWelcome) {
  EXPECT_EQ(in_second_instance([] { return set_up("other"); }), success);
}

TEST_F(SecondInstance, IsWelcomeOnceTheFirstHasDiedWithoutCleaningUp) {
  in_second_instance([] { return ""; });
  EXPECT_EQ(entries(), Names({".lock", "in_use"}));
  EXPECT_EQ(in_instance([] { return set_up(); }), success);
  EXPECT_EQ(entries(), Names({".lock"}));
}

class CleanUp : public PrivateDirectory {};

TEST_F(CleanUp, RemovesTheDirectoryWithItsFiles) {
  in_instance([&] {
    set_up();
    write_file(directory + "/file", "x");
    tavren_cleanup_tmp_dir();
    return "";
  });
  EXPECT_FALSE(std::filesystem::exists(directory));
}

TEST_F(CleanUp, ForgetsTheDirectory) {
  EXPECT_EQ(in_instance([] {
              set_up();
              tavren_cleanup_tmp_dir();
              return tavren_get_tmp_dir() == nullptr ? "NULL" : "not NULL";
            }),
            "NULL");
}

TEST_F(CleanUp, ClosesTheLock) {
  EXPECT_EQ(in_instance([&] {
              set_up();
              tavren_cleanup_tmp_dir();
              return std::to_string(descriptors_of(lock).size() + descriptors_of(lock + " (deleted)").size());
            }),
            "0");
}

TEST_F(CleanUp, AllowsANewSetUp) {
  EXPECT_EQ(in_instance([] {
              set_up();
              tavren_cleanup_tmp_dir();
              const std::string result = set_up();
              return result + ", " + tavren_get_tmp_dir();
            }),
            std::string(success) + ", " + directory);
}

TEST_F(CleanUp, WithoutASetUpDoesNothing) {
  leave_directory();
  in_instance([] {
    tavren_cleanup_tmp_dir();
    return "";
  });
  EXPECT_EQ(entries(), Names({".lock"}));
}

TEST_F(CleanUp, DoneTwiceClosesNobodyElsesDescriptor) {
  EXPECT_EQ(in_instance([&] {
              set_up();
              const int number = *descriptors_of(lock).begin();
              tavren_cleanup_tmp_dir();
              dup2(STDIN_FILENO, number);
              tavren_cleanup_tmp_dir();
              return fcntl(number, F_GETFD) == -1 ? "closed" : "open";
            }),
            "open");
}

TEST_F(CleanUp, IgnoresThatASubdirectoryStays) {
  EXPECT_EQ(in_instance([&] {
              set_up();
              std::filesystem::create_directory(directory + "/subdirectory");
              tavren_cleanup_tmp_dir();
              return "went on";
            }),
            "went on");
  EXPECT_EQ(entries(), Names({"subdirectory"}));
}

}  // namespace
