#include "process/descriptors.h"

#include <fcntl.h>
#include <unistd.h>

#include "TavrenError.h"
#include "core/standard_streams.h"

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
