#include "process/faults.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <stdarg.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <time.h>
#include <unistd.h>

#include <stdexcept>

#include "support/real_function.h"

namespace {

Faulty* active = nullptr;
LateFork* late_fork = nullptr;

/* Returns what a call that fails on demand returns. */
int failure() { return errno == 0 ? 0 : -1; }

const char* name_of_command(int command) {
  switch (command) {
    case F_GETFL:
      return "F_GETFL";
    case F_SETFL:
      return "F_SETFL";
    case F_SETFD:
      return "F_SETFD";
    case F_DUPFD_CLOEXEC:
      return "F_DUPFD_CLOEXEC";
    default:
      return "fcntl";
  }
}

const char* name_of_request(unsigned long request) {
  switch (request) {
    case TIOCOUTQ:
      return "TIOCOUTQ";
    case TIOCGPTPEER:
      return "TIOCGPTPEER";
    case FIONREAD:
      return "FIONREAD";
    default:
      return "ioctl";
  }
}

}  // namespace

Faulty::Faulty(const std::string& call_name, int error_number, int which)
    : name(call_name), error(error_number), call(which) {
  active = this;
}

Faulty::~Faulty() { active = nullptr; }

/* Records a call; returns whether it is to fail, errno then being the error. */
bool strikes(const char* name, long argument) {
  if (active == nullptr || active->name != name) return false;
  Faulty& fault = *active;
  fault.recorded.push_back(argument);
  if (fault.call != Faulty::every && fault.recorded.size() != static_cast<size_t>(fault.call)) return false;
  if (fault.action) {
    /* Not again for the calls that the action makes itself. */
    const std::function<void()> action = std::exchange(fault.action, [] {});
    action();
    return false;
  }
  errno = fault.error;
  return true;
}

LateFork::LateFork(Side late_side) : side(late_side), gate{-1, -1} {
  if (pipe2(gate, O_CLOEXEC) == -1) throw std::runtime_error("no pipe");
  late_fork = this;
}

LateFork::~LateFork() {
  late_fork = nullptr;
  release();
  close(gate[0]);
}

void LateFork::release() {
  if (gate[1] != -1) close(gate[1]);
  gate[1] = -1;
}

/* Keeps the caller of forkpty, which has returned pid to it, where it is. */
void come_late(pid_t pid) {
  if (late_fork == nullptr) return;
  if (pid > 0 && late_fork->side == LateFork::Side::parent) {
    siginfo_t info{};
    waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT);
  }
  if (pid == 0 && late_fork->side == LateFork::Side::child) {
    late_fork->release();
    char none = 0;
    if (read(late_fork->gate[0], &none, 1) != 0) _exit(99);
  }
}

STANDS_BEFORE_THE_REAL_ONE int pipe2(int* ends, int flags) noexcept {
  static const auto next = real<int(int*, int)>("pipe2");
  return strikes("pipe2", 0) ? failure() : next(ends, flags);
}

STANDS_BEFORE_THE_REAL_ONE pid_t forkpty(int* master, char* name, const termios* settings,
                                         const winsize* size) noexcept {
  static const auto next = real<pid_t(int*, char*, const termios*, const winsize*)>("forkpty");
  if (strikes("forkpty", 0)) return failure();
  const pid_t pid = next(master, name, settings, size);
  come_late(pid);
  return pid;
}

STANDS_BEFORE_THE_REAL_ONE int tcgetattr(int fd, termios* settings) noexcept {
  static const auto next = real<int(int, termios*)>("tcgetattr");
  return strikes("tcgetattr", 0) ? failure() : next(fd, settings);
}

STANDS_BEFORE_THE_REAL_ONE int tcsetattr(int fd, int when, const termios* settings) noexcept {
  static const auto next = real<int(int, int, const termios*)>("tcsetattr");
  return strikes("tcsetattr", when) ? failure() : next(fd, when, settings);
}

STANDS_BEFORE_THE_REAL_ONE int poll(pollfd* entries, nfds_t count, int timeout) {
  static const auto next = real<int(pollfd*, nfds_t, int)>("poll");
  return strikes("poll", timeout) ? failure() : next(entries, count, timeout);
}

STANDS_BEFORE_THE_REAL_ONE ssize_t read(int fd, void* buffer, size_t size) {
  static const auto next = real<ssize_t(int, void*, size_t)>("read");
  return strikes("read", static_cast<long>(size)) ? failure() : next(fd, buffer, size);
}

STANDS_BEFORE_THE_REAL_ONE ssize_t write(int fd, const void* data, size_t size) {
  static const auto next = real<ssize_t(int, const void*, size_t)>("write");
  return strikes("write", static_cast<long>(size)) ? failure() : next(fd, data, size);
}

STANDS_BEFORE_THE_REAL_ONE int dup2(int from, int to) noexcept {
  static const auto next = real<int(int, int)>("dup2");
  return strikes("dup2", 0) ? failure() : next(from, to);
}

STANDS_BEFORE_THE_REAL_ONE int kill(pid_t pid, int number) noexcept {
  static const auto next = real<int(pid_t, int)>("kill");
  return strikes("kill", number) ? failure() : next(pid, number);
}

STANDS_BEFORE_THE_REAL_ONE pid_t waitpid(pid_t pid, int* status, int options) {
  static const auto next = real<pid_t(pid_t, int*, int)>("waitpid");
  return strikes("waitpid", options) ? failure() : next(pid, status, options);
}

STANDS_BEFORE_THE_REAL_ONE int nanosleep(const timespec* time, timespec* rest) {
  static const auto next = real<int(const timespec*, timespec*)>("nanosleep");
  const long milliseconds = static_cast<long>(time->tv_sec) * 1000 + time->tv_nsec / 1000000;
  return strikes("nanosleep", milliseconds) ? failure() : next(time, rest);
}

/* With large files, fcntl is fcntl64 to the linker. */
STANDS_BEFORE_THE_REAL_ONE int fcntl(int fd, int command, ...) {
  static const auto next = real<int(int, int, ...)>("fcntl64");
  va_list arguments;
  va_start(arguments, command);
  void* const argument = va_arg(arguments, void*);
  va_end(arguments);
  return strikes(name_of_command(command), 0) ? failure() : next(fd, command, argument);
}

STANDS_BEFORE_THE_REAL_ONE int ioctl(int fd, unsigned long request, ...) noexcept {
  static const auto next = real<int(int, unsigned long, ...)>("ioctl");
  va_list arguments;
  va_start(arguments, request);
  void* const argument = va_arg(arguments, void*);
  va_end(arguments);
  if (!strikes(name_of_request(request), 0)) return next(fd, request, argument);
  if (errno == 0) *static_cast<int*>(argument) = 1;
  return failure();
}
