#include "process/observe.h"

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <thread>

#include "process/children.h"
#include "support/process_state.h"

std::set<int> open_descriptors(pid_t pid) {
  const std::string path = "/proc/" + std::to_string(pid) + "/fd";
  const std::unique_ptr<DIR, int (*)(DIR*)> directory(opendir(path.c_str()), closedir);
  if (directory == nullptr) throw std::runtime_error("cannot read " + path);
  std::set<int> descriptors;
  while (const dirent* entry = readdir(directory.get())) {
    if (entry->d_name[0] != '.') descriptors.insert(atoi(entry->d_name));
  }
  if (pid == getpid()) descriptors.erase(dirfd(directory.get()));
  return descriptors;
}

std::set<int> open_descriptors() { return open_descriptors(getpid()); }

std::set<int> new_descriptors(const std::set<int>& before) {
  const std::set<int> now = open_descriptors();
  std::set<int> added;
  std::set_difference(now.begin(), now.end(), before.begin(), before.end(), std::inserter(added, added.end()));
  return added;
}

std::string descriptor_target(pid_t pid, int fd) {
  return std::filesystem::read_symlink("/proc/" + std::to_string(pid) + "/fd/" + std::to_string(fd));
}

bool is_close_on_exec(int fd) { return fcntl(fd, F_GETFD) == FD_CLOEXEC; }

bool has_children() {
  siginfo_t info{};
  return waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == 0;
}

bool wait_until(const std::function<bool()>& condition) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(patience);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

bool wait_until_exited(pid_t pid) {
  return wait_until([pid] {
    siginfo_t info{};
    return waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT) == 0 && info.si_pid == pid;
  });
}

siginfo_t end_of_a_child() {
  siginfo_t info{};
  if (waitid(P_ALL, 0, &info, WEXITED | WNOWAIT) != 0) throw std::runtime_error("there is no child");
  return info;
}

bool wait_until_asleep(pid_t tid) {
  return wait_until([tid] { return state_of_thread(tid) == 'S'; });
}

double cpu_seconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval& t) {
    return static_cast<double>(t.tv_sec) + 1e-6 * static_cast<double>(t.tv_usec);
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}
