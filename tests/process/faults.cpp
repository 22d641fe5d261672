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

#include <map>
#include <stdexcept>

#include "support/real_function.h"

namespace {

Faulty* active = nullptr;
LateFork* late_fork = nullptr;

/* Returns what a call that fails on demand returns. */
int failure() { return errno == 0 ? 0 : -1; }

/* What Faulty calls a command of fcntl or a request of ioctl. */
std::string name_of(unsigned long number) {
  static const std::map<unsigned long, const char*> names = {
      {F_GETFL, "F_GETFL"},   {F_SETFL, "F_SETFL"},         {F_SETFD, "F_SETFD"},  {F_DUPFD_CLOEXEC, "F_DUPFD_CLOEXEC"},
      {TIOCOUTQ, "TIOCOUTQ"}, {TIOCGPTPEER, "TIOCGPTPEER"}, {FIONREAD, "FIONREAD"}};
  const auto found = names.find(number);
  return found == names.end() ? "" : found->second;
}

}  // namespace

Faulty::Faulty(const std::string& call_name, int error_number, int which)
    : name(call_name), error(error_number), call(which) {
  active = this;
}

Faulty::~Faulty() { active = nullptr; }

/* Records a call; returns whether it is to fail, errno then being the error. */
bool strikes(const std::string& name, long argument) {
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

/* A function in the C library's place, and the argument of it that is recorded. */
#define FAILS_ON_DEMAND(result, name, parameters, arguments, recorded)               \
  STANDS_BEFORE_THE_REAL_ONE result name parameters {                                \
    static const auto next = real<result parameters>(#name);                         \
    return strikes(#name, static_cast<long>(recorded)) ? failure() : next arguments; \
  }

FAILS_ON_DEMAND(int, pipe2, (int* ends, int flags) noexcept, (ends, flags), 0)
FAILS_ON_DEMAND(int, tcgetattr, (int fd, termios* settings) noexcept, (fd, settings), 0)
FAILS_ON_DEMAND(int, tcsetattr, (int fd, int when, const termios* settings) noexcept, (fd, when, settings), when)
FAILS_ON_DEMAND(int, poll, (pollfd * entries, nfds_t count, int timeout), (entries, count, timeout), timeout)
FAILS_ON_DEMAND(ssize_t, read, (int fd, void* buffer, size_t size), (fd, buffer, size), size)
FAILS_ON_DEMAND(ssize_t, write, (int fd, const void* data, size_t size), (fd, data, size), size)
FAILS_ON_DEMAND(int, dup2, (int from, int to) noexcept, (from, to), 0)
FAILS_ON_DEMAND(int, kill, (pid_t pid, int number) noexcept, (pid, number), number)
FAILS_ON_DEMAND(pid_t, waitpid, (pid_t pid, int* status, int options), (pid, status, options), options)
FAILS_ON_DEMAND(int, nanosleep, (const timespec* time, timespec* rest), (time, rest),
                time->tv_sec * 1000 + time->tv_nsec / 1000000)

STANDS_BEFORE_THE_REAL_ONE pid_t forkpty(int* master, char* name, const termios* settings,
                                         const winsize* size) noexcept {
  static const auto next = real<pid_t(int*, char*, const termios*, const winsize*)>("forkpty");
  if (strikes("forkpty", 0)) return failure();
  const pid_t pid = next(master, name, settings, size);
  come_late(pid);
  return pid;
}

/* With large files, fcntl is fcntl64 to the linker. */
STANDS_BEFORE_THE_REAL_ONE int fcntl(int fd, int command, ...) {
  static const auto next = real<int(int, int, ...)>("fcntl64");
  va_list arguments;
  va_start(arguments, command);
  void* const argument = va_arg(arguments, void*);
  va_end(arguments);
  return strikes(name_of(static_cast<unsigned long>(command)), 0) ? failure() : next(fd, command, argument);
}

STANDS_BEFORE_THE_REAL_ONE int ioctl(int fd, unsigned long request, ...) noexcept {
  static const auto next = real<int(int, unsigned long, ...)>("ioctl");
  va_list arguments;
  va_start(arguments, request);
  void* const argument = va_arg(arguments, void*);
  va_end(arguments);
  if (!strikes(name_of(request), 0)) return next(fd, request, argument);
  if (errno == 0) *static_cast<int*>(argument) = 1;
  return failure();
}
