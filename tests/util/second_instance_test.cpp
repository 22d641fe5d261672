#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdio.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <stdexcept>

#include "support/files.h"
#include "support/run_in_child.h"
#include "tavren_assert.h"
#include "util/private_directory.h"

namespace {

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

  /* The same behind the set-up that is refused. */
  std::string after_its_refusal(const std::function<std::string()>& action) const {
    return in_second_instance([&] {
      set_up();
      return action();
    });
  }
};

TEST_F(SecondInstance, IsRefusedByItsProgramsNameAndLeavesTheFirstOneAlone) {
  EXPECT_EQ(in_second_instance([this] {
              tavren_set_program_name("/usr/bin/second");
              umask(027);
              const std::string refusal = set_up_and_name();
              return refusal + " " + count_of_descriptors(lock) + " " + std::to_string(umask(0));
            }),
            "-1 An instance of second is already running. NULL 1 23");
  EXPECT_EQ(entries(), Names({".lock", "in_use"}));
}

TEST_F(SecondInstance, CleansUpNothing) {
  after_its_refusal([] {
    tavren_cleanup_tmp_dir();
    return "";
  });
  EXPECT_EQ(entries(), Names({".lock", "in_use"}));
}

TEST_F(SecondInstance, DoesNotBreakTheFirstOnesLock) {
  EXPECT_EQ(after_its_refusal([] { return run_in_child([] { fputs(set_up().c_str(), stdout); }).out; }),
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

TEST_F(CleanUp, LeavesNothingAndAllowsANewSetUp) {
  EXPECT_EQ(in_instance([this] {
              set_up();
              write_file(directory + "/file", "x");
              tavren_cleanup_tmp_dir();
              std::string seen = std::filesystem::exists(directory) ? "there " : "gone ";
              seen += name_of_directory() + " " + count_of_descriptors(lock) + " " +
                      count_of_descriptors(lock + " (deleted)") + " ";
              return seen + set_up_and_name();
            }),
            "gone NULL 0 0 " + (success + (" " + directory)));
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

/* There the host could close it, or write to it, without knowing. */
TEST_F(SecondInstance, LockIsOffTheStandardStreamsOfAHostWithoutThem) {
  const Outcome outcome = run_in_child([this] {
    setenv("TAVREN_HOME", home.path().c_str(), 1);
    const int result = dup(STDOUT_FILENO);
    for (int fd = 0; fd < 3; ++fd) close(fd);
    set_up();
    const std::set<int> held = descriptors_of(lock);
    const bool is_off = held.size() == 1 && *held.begin() > STDERR_FILENO;
    if (write(result, is_off ? "off" : "on!", 3) == -1) _exit(1);
  });
  EXPECT_EQ(outcome.out, "off");
}

}  // namespace
