#ifndef TESTS_SUPPORT_PROCESS_STATE_H
#define TESTS_SUPPORT_PROCESS_STATE_H

#include <signal.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

/* Returns the state letter in a "stat" file of the kernel's; 0 when there is none. */
inline char state_in(const std::string& path) {
  std::ifstream in(path);
  const std::string stat(std::istreambuf_iterator<char>(in), {});
  /* The name stands before the state in parentheses and may hold anything, parentheses and blanks too. */
  const size_t end_of_name = stat.rfind(')');
  return end_of_name == std::string::npos || end_of_name + 2 >= stat.size() ? '\0' : stat[end_of_name + 2];
}

/* Returns the state letter of a process; 0 when there is none. */
inline char state_of(pid_t pid) { return state_in("/proc/" + std::to_string(pid) + "/stat"); }

/* Returns that of a thread of this process. An emulator makes up what its own process would read about itself. */
inline char state_of_thread(pid_t thread) { return state_in("/proc/self/task/" + std::to_string(thread) + "/stat"); }

/* Whether a process is there and has not exited: one that is only to be reaped still answers to signals. */
inline bool is_alive(pid_t pid) {
  const char state = state_of(pid);
  return state != '\0' && state != 'Z' && state != 'X';
}

/*
 * Waits until a thread sleeps and goes on sleeping: what was written for it before may still be on its way through a
 * terminal.
 */
inline void wait_until_it_stays_asleep(pid_t thread) {
  for (int looks = 0; looks < 20; ++looks) {
    usleep(1000);
    if (state_of_thread(thread) != 'S') looks = 0;
  }
}

/*
 * Whether a child of this process has survived what was done to it so far. A signal that was sent to it may be on its
 * way; one that stops it comes after that, so either the child stops or it has met its end.
 */
inline bool has_survived(pid_t child) {
  siginfo_t info{};
  const bool answered =
      kill(child, SIGSTOP) == 0 && waitid(P_PID, static_cast<id_t>(child), &info, WSTOPPED | WEXITED | WNOWAIT) == 0;
  kill(child, SIGCONT);
  return answered && info.si_code == CLD_STOPPED;
}

/* How many descriptors this process has open. */
inline std::ptrdiff_t count_open_descriptors() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), std::filesystem::directory_iterator());
}

/* Whether a signal that was sent to a process still waits to be delivered. */
inline bool is_pending(pid_t pid, int signal_number) {
  std::ifstream in("/proc/" + std::to_string(pid) + "/status");
  for (std::string word; in >> word;) {
    unsigned long long set = 0;
    if (word == "ShdPnd:" && in >> std::hex >> set) return (set >> (signal_number - 1) & 1) != 0;
  }
  return false;
}

#endif
