#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include "TavrenError.h"
#include "TavrenExceptions.h"
#include "TavrenProcess.h"
#include "core/assertion.h"
#include "core/standard_streams.h"
#include "process/deadline.h"
#include "process/descriptors.h"

/*
 * Input for the child, and its end: the terminal must be empty before the end can be typed.
 */
namespace {

constexpr char end_of_file_character = 0x04;

/* Opens the child's side of the terminal. Kernels before 4.13 know it by its name only. */
int open_slave(int master_fd) {
  constexpr int flags = O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK;
  const int slave = ioctl(master_fd, TIOCGPTPEER, flags);
  char name[64];
  if (slave != -1 || ptsname_r(master_fd, name, sizeof name) != 0) return keep_off_standard_streams(slave);
  return keep_off_standard_streams(open(name, flags));
}

/* Returns how many bytes the terminal still holds for the child, looking from the child's side; -1: cannot tell. */
int unread_input(int master_fd) {
  const int slave = open_slave(master_fd);
  if (slave == -1) return -1;
  /*
   * poll makes the kernel carry over what still sits between the two halves of the terminal before it answers: one
   * guard more, beside the repeated looks.
   */
  pollfd input{slave, POLLIN, 0};
  int unread = 0;
  if (poll(&input, 1, 0) == -1 || ioctl(slave, FIONREAD, &unread) == -1) unread = -1;
  /* Closed at once: while a slave is open the master answers EAGAIN, and the end of the child would go unnoticed. */
  close(slave);
  return unread == 0 && (input.revents & POLLIN) != 0 ? 1 : unread;
}

}  // namespace

void TavrenProcess::send(const std::string& data, int timeout) { send_all(data.data(), data.size(), timeout); }

void TavrenProcess::send_bytes(const char* data, unsigned int length, int timeout) { send_all(data, length, timeout); }

void TavrenProcess::send_all(const char* data, size_t length, int timeout) {
  const long deadline = deadline_after(timeout);
  const int to_child = stdin_pipe[1] != -1 ? stdin_pipe[1] : master_fd;
  TAVREN_ASSERT("TavrenProcess", to_child != -1 && child_pid != -1);
  for (size_t written = 0; written < length;) {
    const ssize_t n = write(to_child, data + written, length - written);
    if (n > 0) {
      written += static_cast<size_t>(n);
    } else if (n == 0 || errno == EAGAIN) {
      wait_for_fd(to_child, POLLOUT, deadline);
    } else if (errno != EINTR) {
      tavren_throw_syscall_error("write(to_child)", -1);
    }
  }
}

void TavrenProcess::send_eof(int timeout) {
  const long deadline = deadline_after(timeout);
  TAVREN_ASSERT("TavrenProcess", child_pid != -1 && master_fd != -1);
  for (int64_t checks = static_cast<int64_t>(timeout) * checks_per_second;; --checks) {
    const bool consumed = input_is_consumed();
    /*
     * Asked after the look: when a child ends, the kernel throws its unread input away, so an empty terminal says
     * something only if the child is still there. A child that is gone has not been given its end of file.
     */
    if (child_has_ended()) {
      reap_child(WNOHANG);
      fail_with_last_output(deadline);
    }
    if (consumed) {
      type_end_of_file(timeout);
      return;
    }
    if (checks <= 0) throw TavrenTimeout();
    wait_unless_cancelled(check_interval_ms);
  }
}

/*
 * On Linux TIOCOUTQ answers 0 for the master whatever the child has left unread, so the slave side is asked too. A
 * reader may have emptied the line discipline while more bytes wait to be moved into it, so one look is not enough:
 * the terminal must stay empty through several, further and further apart.
 */
bool TavrenProcess::input_is_consumed() const {
  int queued = 0;
  const int ecode = ioctl(master_fd, TIOCOUTQ, &queued);
  TAVREN_ASSERT("TavrenProcess", ecode == 0);
  if (queued != 0) return false;
  for (const int pause_ms : {1, 2, 4, 8, 0}) {
    if (unread_input(master_fd) != 0) return false;
    if (pause_ms != 0) wait_unless_cancelled(pause_ms);
  }
  return true;
}

/* In canonical mode the terminal turns the end-of-file character into an end of file for the child's next read. */
void TavrenProcess::type_end_of_file(int timeout) {
  termios settings{};
  if (tcgetattr(master_fd, &settings) == -1) tavren_throw_syscall_error("tcgetattr(master_fd)", -1);
  settings.c_lflag |= ICANON;
  if (tcsetattr(master_fd, TCSANOW, &settings) == -1) tavren_throw_syscall_error("tcsetattr(master_fd)", -1);
  send_bytes(&end_of_file_character, 1, timeout);
}
