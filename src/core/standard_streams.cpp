#include "core/standard_streams.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

int keep_off_standard_streams(int fd) {
  if (fd == -1 || fd > STDERR_FILENO) return fd;
  const int moved = fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  const int error = errno;
  close(fd);
  errno = error;
  return moved;
}
