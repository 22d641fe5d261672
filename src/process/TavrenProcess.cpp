#include "TavrenProcess.h"

#include <ctype.h>
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <termios.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

#include "TavrenError.h"
#include "TavrenExceptions.h"
#include "TavrenMutex.h"
#include "core/assertion.h"
#include "core/standard_streams.h"
#include "process/deadline.h"
#include "process/descriptors.h"
#include "tavren_basic.h"

namespace {

/*
 * Held from the making of a terminal until its master is close-on-exec. forkpty has no flag for that, and a child
 * that another thread starts in between would keep the master, and with it this child's terminal, alive.
 */
TavrenMutex& fork_mutex = *new TavrenMutex; /* never destroyed: a thread may start a child while another one exits */

/* Returns program without the one white-space character that a command text carries at its end. */
std::string without_trailing_space(std::string program) {
  if (!program.empty() && isspace(static_cast<unsigned char>(program.back())) != 0) program.pop_back();
  return program;
}

/* Sleeps for that long, whatever signals arrive. */
void nap(int milliseconds) {
  timespec rest{milliseconds / 1000, (milliseconds % 1000) * 1000000L};
  while (nanosleep(&rest, &rest) == -1 && errno == EINTR) {
  }
}

/*
 * Asks how the child pid has ended, without reaping it; end stays as it is while the child lives. Returns false when
 * this process cannot know.
 */
bool look_at_end(pid_t pid, siginfo_t& end) {
  return waitid(P_PID, static_cast<id_t>(pid), &end, WEXITED | WNOHANG | WNOWAIT) == 0;
}

bool process_exists(pid_t pid) { return kill(pid, 0) == 0 || errno != ESRCH; }

/*
 * Makes a terminal raw from the child's side, unless the parent was first, which shows in output that is no longer
 * translated. The parent may have typed an end of file since, and that lasts only while the terminal stays canonical.
 */
void make_raw_unless_done(int fd) {
  termios settings{};
  if (tcgetattr(fd, &settings) == -1 || (settings.c_oflag & OPOST) == 0) return;
  cfmakeraw(&settings);
  tcsetattr(fd, TCSANOW, &settings);
}

/*
 * Holds signals back from the calling thread while it lives. Between fork and execve a child still has the handlers
 * and the ignored signals of its host: one that came then would run a handler in the wrong process, or be lost.
 */
class SignalsHeldBack {
 public:
  SignalsHeldBack() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
  }
  ~SignalsHeldBack() { pthread_sigmask(SIG_SETMASK, &before, nullptr); }
  SignalsHeldBack(const SignalsHeldBack&) = delete;
  SignalsHeldBack& operator=(const SignalsHeldBack&) = delete;

 private:
  sigset_t before;
};

/*
 * Gives the child the signals of a freshly started program. What the host program blocks or ignores would otherwise
 * pass through execve, and a child that ignores SIGTERM could not be told to end. The mask last: what was held back
 * since the fork then meets the program's own dispositions.
 */
void reset_signals() {
  for (int number = 1; number < NSIG; ++number) signal(number, SIG_DFL);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
}

/*
 * Reports a failure of the child before its program runs, in the form that perror gives it, and ends it. Only
 * async-signal-safe calls are allowed here: perror may take locks that another thread of the host held at the fork.
 * That is also why the error's text is deliberately the untranslated one, which alone can be had without a lock.
 */
[[noreturn]] void die(const char* what, const char* subject) {
  const char* reason = strerrordesc_np(errno);
  const char* parts[] = {what, subject, ": ", reason == nullptr ? "Unknown error" : reason, "\n"};
  iovec report[5];
  for (int i = 0; i < 5; ++i) report[i] = {const_cast<char*>(parts[i]), strlen(parts[i])};
  if (writev(STDERR_FILENO, report, 5) == -1) {
    /* The end of the output tells the parent that something went wrong. */
  }
  _exit(1);
}

}  // namespace

/* The constructor below delegates to this one, so that the destructor releases what a failed start has made. */
TavrenProcess::TavrenProcess(const std::string& program_path)
    : program(without_trailing_space(program_path)),
      child_pid(-1),
      master_fd(-1),
      stdin_pipe{-1, -1},
      bytes_this_read(0),
      cancel_pipe{-1, -1} {}

TavrenProcess::TavrenProcess(const std::string& program_path, const std::list<std::string>& arguments,
                             bool separate_stdin)
    : TavrenProcess(program_path) {
  make_pipe(cancel_pipe);
  if (separate_stdin) {
    make_pipe(stdin_pipe);
    /* Only our end: a write must come back when the pipe is full, the child's read must not. */
    if (!add_status_flag(stdin_pipe[1], O_NONBLOCK)) tavren_throw_syscall_error("fcntl(stdin_pipe)", -1);
  }
  log_start(program_path, arguments);
  start(program, arguments);
}

TavrenProcess::~TavrenProcess() {
  if (child_pid != -1) stop(stop_grace_time);
  close_descriptor(master_fd);
  for (int* fd : {&cancel_pipe[0], &cancel_pipe[1], &stdin_pipe[0], &stdin_pipe[1]}) close_descriptor(*fd);
}

void TavrenProcess::start(const std::string& path, const std::list<std::string>& arguments) {
  /* Prepared here, because the child of a program with threads must not allocate before execve. */
  std::vector<char*> argv;
  argv.reserve(arguments.size() + 2);
  argv.push_back(const_cast<char*>(path.c_str()));
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);

  {
    const TavrenAutoLock lock(fork_mutex);
    const SignalsHeldBack none_in_between;
    winsize no_size{};
    const pid_t pid = forkpty(&master_fd, nullptr, nullptr, &no_size);
    if (pid == 0) exec_program(argv.data());
    if (pid == -1) {
      master_fd = -1;
      tavren_throw_syscall_error("forkpty", -1);
    }
    child_pid = pid;
    master_fd = keep_off_standard_streams(master_fd);
    if (master_fd == -1 || fcntl(master_fd, F_SETFD, FD_CLOEXEC) == -1) {
      tavren_throw_syscall_error("fcntl(master_fd)", -1);
    }
  }
  configure_master_fd();
}

/* Runs in the child: only async-signal-safe calls, because other threads may have held any lock at the fork. */
void TavrenProcess::exec_program(char* const* argv) const {
  reset_signals();
  /*
   * The parent sets the terminal up too, but it may come late: a program that had looked at the settings before would
   * put the old ones back after it has read a password.
   */
  make_raw_unless_done(STDOUT_FILENO);
  if (stdin_pipe[0] != -1 && dup2(stdin_pipe[0], STDIN_FILENO) == -1) die("dup2 failed", "");
  /* Deliberately no environment at all: what the far side sees must not depend on who started the daemon. */
  execve(argv[0], argv, nullptr);
  die("Failed to run ", argv[0]);
}

void TavrenProcess::configure_master_fd() {
  if (!add_status_flag(master_fd, O_NONBLOCK)) tavren_throw_syscall_error("fcntl(master_fd)", -1);
  termios settings{};
  if (tcgetattr(master_fd, &settings) == -1) tavren_throw_syscall_error("tcgetattr(master_fd)", -1);
  cfmakeraw(&settings);
  if (tcsetattr(master_fd, TCSANOW, &settings) == -1) tavren_throw_syscall_error("tcsetattr(master_fd)", -1);
}

int TavrenProcess::send_signal(int signal_number) {
  /* kill(-1, ...) would signal every process of the machine. */
  const pid_t pid = child_pid;
  if (pid != -1) return kill(pid, signal_number);
  errno = ESRCH;
  return -1;
}

void TavrenProcess::stop(int grace_time) {
  if (child_pid == -1) return;
  kill(child_pid, SIGTERM);
  for (int64_t checks = static_cast<int64_t>(grace_time) * checks_per_second; checks > 0; --checks) {
    if (reap_child(WNOHANG)) return;
    nap(check_interval_ms);
  }
  kill(child_pid, SIGKILL);
  reap_child(0);
  child_pid = -1;
}

void TavrenProcess::disable() {
  const ssize_t rc = write(cancel_pipe[1], "\n", 1);
  TAVREN_ASSERT("TavrenProcess", rc == 1);
}

/* Naps, and throws TavrenOperationCancelled as soon as the object is disabled. */
void TavrenProcess::wait_unless_cancelled(int milliseconds) const {
  const int64_t end = tavren_get_uptime_ms() + milliseconds;
  for (int64_t rest = milliseconds; rest > 0; rest = end - tavren_get_uptime_ms()) {
    pollfd cancelled{cancel_pipe[0], POLLIN, 0};
    const int ready = poll(&cancelled, 1, static_cast<int>(rest));
    if (ready > 0) throw TavrenOperationCancelled();
    if (ready == -1 && errno != EINTR) tavren_throw_syscall_error("poll", -1);
  }
}

/*
 * Returns whether the child has ended, without reaping it. A child that has exited but is not reaped still answers
 * signal 0, so waitid is asked first; in a host program that reaps all children, or that has forked since, only the
 * signal can tell.
 */
bool TavrenProcess::child_has_ended() const {
  const pid_t pid = child_pid;
  if (pid == -1) return true;
  siginfo_t end{};
  return look_at_end(pid, end) ? end.si_pid == pid : !process_exists(pid);
}

siginfo_t TavrenProcess::wait_for_end(long deadline) const {
  for (int pause_ms = 1;; pause_ms = std::min(2 * pause_ms, check_interval_ms)) {
    siginfo_t end{};
    if (!look_at_end(child_pid, end) || end.si_pid != 0) return end;
    if (seconds_until(deadline) < 1) throw TavrenTimeout();
    wait_unless_cancelled(pause_ms);
  }
}

/*
 * Reaps the child and forgets it. Returns whether it is gone, which it also is when somebody else has reaped it: a
 * host program that ignores SIGCHLD or waits for all children. It is not when the host has forked since and goes on as
 * a process that cannot wait for it.
 */
bool TavrenProcess::reap_child(int options) {
  pid_t reaped = 0;
  do {
    reaped = waitpid(child_pid, nullptr, options);
  } while (reaped == -1 && errno == EINTR);
  if (reaped == 0 || (reaped == -1 && process_exists(child_pid))) return false;
  child_pid = -1;
  return true;
}
