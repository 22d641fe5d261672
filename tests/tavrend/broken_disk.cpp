#include <errno.h>
#include <stdlib.h>
#include <sys/types.h>
#include <unistd.h>

#include "support/real_function.h"

/* For LD_PRELOAD: while the file $BROKEN_DISK is there, no file can be read from its byte 1,000,000 to 1,100,000. */
STANDS_BEFORE_THE_REAL_ONE ssize_t pread64(int fd, void* bytes, size_t size, off64_t offset) {
  constexpr off64_t first_broken = 1000000;
  constexpr off64_t end_of_broken = 1100000;
  static auto* const real_one = real<ssize_t(int, void*, size_t, off64_t)>("pread64");
  const char* const path = getenv("BROKEN_DISK");
  const bool is_sound = offset < first_broken || offset >= end_of_broken;
  if (path == nullptr || is_sound || access(path, F_OK) != 0) return real_one(fd, bytes, size, offset);
  errno = EIO;
  return -1;
}
