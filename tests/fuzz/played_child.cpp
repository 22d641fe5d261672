#include "fuzz/played_child.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <stdarg.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <termios.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>

#include "fuzz/fuzz.h"
#include "support/real_function.h"

namespace {

using played_child::End;
using played_child::Piece;
using played_child::Play;

constexpr pid_t child_pid = 0x3FFFFFF0; /* above any that the kernel gives */

enum class State { none, running, ended };

/* Never destroyed: the process may read and write after the end of main. */
struct Child {
  Play play;
  State state = State::none;
  int master_fd = -1;
  size_t piece = 0;    /* the one that is read next */
  size_t position = 0; /* in it */
  size_t take = 0;     /* of play.takes, the one for the next write */
  std::string heard;
};
Child& child = *new Child;
int64_t clock_ms = -1; /* -1: the real one */

int fail(int error) {
  errno = error;
  return -1;
}

/* The terminal that all children have in turn. Its other side stays open, so that it is never hung up. */
int terminal() {
  static const int fd = [] {
    const int master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    MUST(master != -1 && grantpt(master) == 0 && unlockpt(master) == 0);
    char name[64];
    MUST(ptsname_r(master, name, sizeof name) == 0);
    MUST(open(name, O_RDWR | O_NOCTTY | O_CLOEXEC) != -1);
    return master;
  }();
  return fd;
}

bool is_master(int fd) { return fd != -1 && fd == child.master_fd; }

void end_at_its_time() {
  if (child.state == State::running && child.piece >= child.play.ends_at) child.state = State::ended;
}

/* Passes over pieces that are read. Returns the one that is read next, NULL at the end. */
Piece* next_piece() {
  while (child.piece < child.play.pieces.size()) {
    Piece& piece = child.play.pieces[child.piece];
    if (piece.pause_ms != played_child::at_once || child.position < piece.bytes.size()) return &piece;
    ++child.piece;
    child.position = 0;
  }
  return nullptr;
}

ssize_t read_from_child(void* buffer, size_t size) {
  Piece* const piece = next_piece();
  end_at_its_time();
  if (piece == nullptr) {
    if (child.play.end == End::end_of_file) return 0;
    return fail(child.play.end == End::nothing_more ? EAGAIN : EIO);
  }
  if (piece->pause_ms != played_child::at_once) return fail(EAGAIN);
  const size_t length = std::min(size, piece->bytes.size() - child.position);
  memcpy(buffer, piece->bytes.data() + child.position, length);
  child.position += length;
  next_piece();
  end_at_its_time();
  return static_cast<ssize_t>(length);
}

/* Waits for milliseconds at the most for what takes pause_ms. Returns whether it has come. */
bool wait_for(int& pause_ms, int milliseconds) {
  const int waited = std::min(pause_ms, milliseconds);
  clock_ms += waited;
  pause_ms -= waited;
  return pause_ms == 0;
}

short wait_to_read(int milliseconds) {
  Piece* const piece = next_piece();
  if (piece == nullptr) {
    if (child.play.end != End::nothing_more) return POLLIN | POLLHUP;
    clock_ms += milliseconds;
    return 0;
  }
  if (piece->pause_ms == played_child::at_once) return POLLIN;
  if (!wait_for(piece->pause_ms, milliseconds)) return 0;
  piece->pause_ms = played_child::at_once;
  return POLLIN;
}

ssize_t write_to_child(const char* data, size_t size) {
  size_t length = size;
  if (child.take < child.play.takes.size()) {
    const int take = child.play.takes[child.take];
    if (take <= 0) return fail(EAGAIN);
    length = std::min(size, static_cast<size_t>(take));
    ++child.take;
  }
  child.heard.append(data, length);
  return static_cast<ssize_t>(length);
}

short wait_to_write(int milliseconds) {
  if (child.take >= child.play.takes.size() || child.play.takes[child.take] > 0) return POLLOUT;
  int& take = child.play.takes[child.take];
  int pause_ms = -take * 100;
  const bool over = wait_for(pause_ms, milliseconds);
  take = -((pause_ms + 99) / 100);
  if (!over) return 0;
  ++child.take;
  return POLLOUT;
}

}  // namespace

namespace played_child {

void begin(const Play& play) {
  MUST(is_gone());
  child = Child();
  child.play = play;
  clock_ms = first_uptime_ms;
}

const std::string& heard() { return child.heard; }
int64_t uptime_ms() { return clock_ms; }
bool is_gone() { return child.state == State::none && child.master_fd == -1; }

}  // namespace played_child

STANDS_BEFORE_THE_REAL_ONE int forkpty(int* master, char*, const termios*, const winsize*) {
  MUST(child.state == State::none && child.master_fd == -1);
  child.master_fd = *master = fcntl(terminal(), F_DUPFD_CLOEXEC, 3);
  MUST(child.master_fd != -1);
  child.state = State::running;
  end_at_its_time();
  if (child.play.at_start) child.play.at_start();
  return child_pid;
}

STANDS_BEFORE_THE_REAL_ONE int close(int fd) {
  static auto* const real_close = real<int(int)>("close");
  if (is_master(fd)) child.master_fd = -1;
  return real_close(fd);
}

STANDS_BEFORE_THE_REAL_ONE ssize_t read(int fd, void* buffer, size_t size) {
  static auto* const real_read = real<ssize_t(int, void*, size_t)>("read");
  return is_master(fd) ? read_from_child(buffer, size) : real_read(fd, buffer, size);
}

STANDS_BEFORE_THE_REAL_ONE ssize_t write(int fd, const void* data, size_t size) {
  static auto* const real_write = real<ssize_t(int, const void*, size_t)>("write");
  return is_master(fd) ? write_to_child(static_cast<const char*>(data), size) : real_write(fd, data, size);
}

STANDS_BEFORE_THE_REAL_ONE int poll(pollfd* entries, nfds_t count, int timeout) {
  static auto* const real_poll = real<int(pollfd*, nfds_t, int)>("poll");
  if (clock_ms == -1 || timeout <= 0) return real_poll(entries, count, timeout);
  pollfd* const terminal_entry =
      std::find_if(entries, entries + count, [](const pollfd& e) { return is_master(e.fd); });
  const bool has_terminal = terminal_entry != entries + count;
  if (has_terminal) MUST(terminal_entry == entries + count - 1);
  const int ready = real_poll(entries, has_terminal ? count - 1 : count, 0);
  if (has_terminal) terminal_entry->revents = 0;
  if (ready != 0) return ready;
  if (!has_terminal) {
    clock_ms += timeout;
    return 0;
  }
  const bool writing = (terminal_entry->events & POLLOUT) != 0;
  terminal_entry->revents = writing ? wait_to_write(timeout) : wait_to_read(timeout);
  return terminal_entry->revents == 0 ? 0 : 1;
}

STANDS_BEFORE_THE_REAL_ONE int nanosleep(const timespec* time, timespec* rest) {
  static auto* const real_nanosleep = real<int(const timespec*, timespec*)>("nanosleep");
  if (clock_ms == -1) return real_nanosleep(time, rest);
  clock_ms += static_cast<int64_t>(time->tv_sec) * 1000 + time->tv_nsec / 1000000;
  return 0;
}

STANDS_BEFORE_THE_REAL_ONE int clock_gettime(clockid_t clock, timespec* now) noexcept {
  static auto* const real_clock_gettime = real<int(clockid_t, timespec*)>("clock_gettime");
  if (clock_ms == -1 || clock != CLOCK_MONOTONIC) return real_clock_gettime(clock, now);
  now->tv_sec = static_cast<time_t>(clock_ms / 1000);
  now->tv_nsec = static_cast<long>(clock_ms % 1000 * 1000000);
  return 0;
}

STANDS_BEFORE_THE_REAL_ONE int kill(pid_t pid, int number) noexcept {
  static auto* const real_kill = real<int(pid_t, int)>("kill");
  if (pid != child_pid) return real_kill(pid, number);
  if (child.state == State::none) return fail(ESRCH);
  if (number == SIGKILL || (number == SIGTERM && child.play.obeys_sigterm)) child.state = State::ended;
  return 0;
}

STANDS_BEFORE_THE_REAL_ONE pid_t waitpid(pid_t pid, int* status, int options) {
  static auto* const real_waitpid = real<pid_t(pid_t, int*, int)>("waitpid");
  if (pid != child_pid) return real_waitpid(pid, status, options);
  if (child.state == State::none) return fail(ECHILD);
  if (child.state == State::running) {
    MUST((options & WNOHANG) != 0); /* it would be waited for for ever */
    return 0;
  }
  child.state = State::none;
  return pid;
}

STANDS_BEFORE_THE_REAL_ONE int waitid(idtype_t type, id_t id, siginfo_t* info, int options) {
  static auto* const real_waitid = real<int(idtype_t, id_t, siginfo_t*, int)>("waitid");
  if (type != P_PID || id != static_cast<id_t>(child_pid)) return real_waitid(type, id, info, options);
  if (child.state == State::none) return fail(ECHILD);
  MUST((options & (WNOHANG | WNOWAIT)) == (WNOHANG | WNOWAIT));
  memset(info, 0, sizeof *info);
  if (child.state == State::ended) {
    info->si_pid = child_pid;
    info->si_code = CLD_EXITED; /* with status 0 */
  }
  return 0;
}

/* The headers give this function the name that programs with 64-bit file offsets call. */
STANDS_BEFORE_THE_REAL_ONE int open(const char* path, int flags, ...) {
  if (strcmp(path, "/dev/console") == 0) return fail(ENXIO);
  static auto* const real_open = real<int(const char*, int, ...)>("open64");
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  return real_open(path, flags, mode);
}
