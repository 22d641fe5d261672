#include "process/descriptors.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include "TavrenError.h"

int keep_off_standard_streams(int fd) {
  if (fd == -1 || fd > STDERR_FILENO) return fd;
  const int moved = fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  const int error = errno;
  close(fd);
  errno = error;
  return moved;
}

void make_pipe(int (&ends)[2]) {
  int made[2];
  if (pipe2(made, O_CLOEXEC) == -1) tavren_throw_syscall_error("pipe", -1);
  ends[0] = keep_off_standard_streams(made[0]);
  ends[1] = keep_off_standard_streams(made[1]);
  if (ends[0] == -1 || ends[1] == -1) tavren_throw_syscall_error("pipe", -1);
}

bool add_status_flag(int fd, int flag) {
  const int flags = fcntl(fd, F_GETFL);
  return flags != -1 && fcntl(fd, F_SETFL, flags | flag) != -1;
}

void close_descriptor(int& fd) {
  if (fd != -1) close(fd);
  fd = -1;
}
