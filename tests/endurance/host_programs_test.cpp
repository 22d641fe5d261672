#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <thread>
#include <vector>

#include "TavrenKeyDownloader.h"
#include "endurance/endurance.h"
#include "support/files.h"
#include "support/real_function.h"

/*
 * Host programs that do as they please: what the library does in them is the same.
 */
namespace {

std::atomic<bool> clock_leaps{false};
std::atomic<int> leaps{0};

}  // namespace

/* The time of day leaps by two hours to and fro, each time that anybody looks. */
STANDS_BEFORE_THE_REAL_ONE time_t time(time_t* result) noexcept {
  constexpr time_t two_hours = 7200;
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  if (clock_leaps) now.tv_sec += ++leaps % 2 == 0 ? two_hours : -two_hours;
  if (result != nullptr) *result = now.tv_sec;
  return now.tv_sec;
}

namespace {

const std::string& content() {
  static const std::string bytes = [] {
    std::string text;
    for (int i = 0; i < 100000; ++i) text += static_cast<char>(i * i >> 3);
    return text;
  }();
  return bytes;
}

void expect_archived(const std::string& name) {
  EXPECT_TRUE(read_file(lab::archived(name)) == content()) << name;
  unlink(lab::archived(name).c_str());
}

class HostProgram : public LabTest {
 protected:
  /* Everything that the library does with an archive host. */
  void work() {
    std::string key;
    TavrenKeyDownloader(lab::value("LAB_HOST")).download_host_key(key);
    EXPECT_EQ(key, lab::value("LAB_HOST_KEY"));
    char fingerprint[TAVREN_FINGERPRINT_SIZE];
    char reason[TAVREN_MESSAGE_SIZE];
    EXPECT_EQ(tavren_host_key_fingerprint(key.c_str(), fingerprint, reason), 0) << reason;

    Settings settings = lab::settings();
    settings.host_key = key;
    TavrenHost host(true, true);
    host.set_settings(settings.record());
    host.enable();
    host.open_connection();
    host.run_and_expect_line("echo works", "works");
    host.send_data(content().data(), static_cast<int>(content().size()), "file", 0644);
    expect_archived("file");
    host.test_host();
    host.start_send_stream("stream");
    host.continue_send_stream(content().data(), static_cast<unsigned int>(content().size()));
    host.end_send_stream();
    host.close_connection();
    expect_archived("stream");
  }

  void work_again_and_again() {
    for (int i = repetitions(2, 50); i > 0; --i) work();
  }
};

TEST_F(HostProgram, WhoseClockLeapsByHours) {
  clock_leaps = true;
  work_again_and_again();
  clock_leaps = false;
  EXPECT_GT(leaps, 1);
}

TEST_F(HostProgram, ThatIgnoresTheEndOfItsChildren) {
  signal(SIGCHLD, SIG_IGN);
  work_again_and_again();
  signal(SIGCHLD, SIG_DFL);
}

TEST_F(HostProgram, ThatReapsAllChildren) {
  std::atomic<bool> done{false};
  std::atomic<int> reaped{0};
  std::thread reaper([&done, &reaped] {
    while (!done) {
      if (waitpid(-1, nullptr, WNOHANG) > 0) {
        ++reaped;
      } else {
        usleep(1000);
      }
    }
  });
  work_again_and_again();
  for (int i = 0; i < 50 && reaped == 0; ++i) work(); /* the library may have been the first each time */
  done = true;
  reaper.join();
  EXPECT_GT(reaped, 0);
}

TEST_F(HostProgram, WithoutStandardStreams) {
  std::vector<int> kept;
  for (int fd = 0; fd < 3; ++fd) {
    kept.push_back(fcntl(fd, F_DUPFD_CLOEXEC, 100));
    close(fd);
  }
  work_again_and_again();
  for (int fd = 0; fd < 3; ++fd) {
    dup2(kept[static_cast<size_t>(fd)], fd);
    close(kept[static_cast<size_t>(fd)]);
  }
}

TEST_F(HostProgram, WithFiveThousandDescriptors) {
  const rlimit many{6000, 6000};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &many), 0);
  std::vector<int> descriptors;
  for (int i = 0; i < 5000; ++i) descriptors.push_back(open("/dev/null", O_RDONLY | O_CLOEXEC));
  EXPECT_GE(descriptors.back(), 5000);
  work_again_and_again();
  for (const int fd : descriptors) close(fd);
}

TEST_F(HostProgram, WhoseOtherThreadsForkAllTheTime) {
  std::atomic<bool> done{false};
  std::atomic<int> children{0};
  std::vector<std::thread> forkers;
  for (int i = 0; i < 3; ++i) {
    forkers.emplace_back([&done, &children] {
      while (!done) {
        char program[] = "/bin/true";
        char* const arguments[] = {program, nullptr};
        pid_t pid = -1;
        if (posix_spawn(&pid, program, nullptr, nullptr, arguments, nullptr) != 0) continue;
        waitpid(pid, nullptr, 0);
        ++children;
      }
    });
  }
  work_again_and_again();
  done = true;
  for (std::thread& forker : forkers) forker.join();
  EXPECT_GT(children, 10);
}

}  // namespace
