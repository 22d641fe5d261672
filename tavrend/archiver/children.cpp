#include "archiver/children.h"

#include <dirent.h>
#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "tavren_basic.h"

namespace {

/* Returns the parent of a process, -1 when that is gone. Its name, in brackets, may have any characters in it. */
pid_t parent_of(pid_t process) {
  char path[64];
  snprintf(path, sizeof path, "/proc/%d/stat", process);
  FILE* const status = fopen(path, "re");
  if (status == nullptr) return -1;
  char line[256] = ""; /* the number, a name of up to 64 bytes, the state, the parent */
  const size_t length = fread(line, 1, sizeof line - 1, status);
  fclose(status);
  line[length] = '\0';
  const char* const end_of_name = strrchr(line, ')');
  pid_t parent = -1;
  return end_of_name != nullptr && sscanf(end_of_name, ") %*c %d", &parent) == 1 ? parent : -1;
}

void end_children_of_this_process(int signal_number) {
  DIR* const processes = opendir("/proc");
  if (processes == nullptr) return;
  while (const dirent* const entry = readdir(processes)) {
    const pid_t process = atoi(entry->d_name);
    if (process > 0 && parent_of(process) == getpid()) kill(process, signal_number);
  }
  closedir(processes);
}

}  // namespace

void end_children_of(pid_t thread, int signal_number) noexcept {
  char path[64];
  snprintf(path, sizeof path, "/proc/self/task/%d/children", thread);
  FILE* const children = fopen(path, "re");
  if (children == nullptr && errno == ENOENT) end_children_of_this_process(signal_number);
  if (children == nullptr) return;
  for (pid_t child = 0; fscanf(children, "%d", &child) == 1;) kill(child, signal_number);
  fclose(children);
}

bool has_lost_its_connection(int patience_ms) {
  constexpr int lost_connection = 255;
  const int64_t end_of_patience_ms = tavren_get_uptime_ms() + patience_ms;
  for (;;) {
    siginfo_t end{};
    if (waitid(P_ALL, 0, &end, WEXITED | WNOHANG | WNOWAIT | __WNOTHREAD) == -1) return false;
    if (end.si_pid != 0) return end.si_code != CLD_EXITED || end.si_status == lost_connection;
    if (tavren_get_uptime_ms() >= end_of_patience_ms) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
}
