#include "archiver/children.h"

#include <dirent.h>
#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <string>

namespace {

/* Returns the parent of a process, -1 when that is gone. Its name, in brackets, may have any characters in it. */
pid_t parent_of(const std::string& process) {
  std::ifstream status("/proc/" + process + "/stat");
  std::string line;
  std::getline(status, line, '\0');
  std::istringstream behind_the_name(line.substr(line.rfind(')') + 1));
  std::string state;
  pid_t parent = -1;
  behind_the_name >> state >> parent;
  return behind_the_name ? parent : -1;
}

void end_children_of_this_process(int signal_number) {
  DIR* const processes = opendir("/proc");
  if (processes == nullptr) return;
  while (const dirent* const entry = readdir(processes)) {
    const pid_t process = atoi(entry->d_name);
    if (process > 0 && parent_of(entry->d_name) == getpid()) kill(process, signal_number);
  }
  closedir(processes);
}

}  // namespace

void end_children_of(pid_t thread, int signal_number) {
  std::ifstream children("/proc/self/task/" + std::to_string(thread) + "/children");
  if (!children) return end_children_of_this_process(signal_number);
  for (pid_t child = 0; children >> child;) kill(child, signal_number);
}
