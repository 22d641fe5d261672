#include "tavrend/changing_files.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/real_function.h"

namespace changing_files {

std::function<void(const std::string& path)> after_lstat;
std::function<void(const std::string& path)> after_open;
std::function<void()> after_pread;
int entries_until_an_error = -1;
bool has_nameless_files = true;

void stop() {
  after_lstat = nullptr;
  after_open = nullptr;
  after_pread = nullptr;
  entries_until_an_error = -1;
  has_nameless_files = true;
}

}  // namespace changing_files

using namespace changing_files;

STANDS_BEFORE_THE_REAL_ONE int lstat(const char* path, struct stat* status) noexcept {
  const int result = real<int(const char*, struct stat*)>("lstat64")(path, status);
  const int error = errno;
  if (after_lstat) after_lstat(path);
  errno = error;
  return result;
}

STANDS_BEFORE_THE_REAL_ONE int open(const char* path, int flags, ...) {
  if (!has_nameless_files && (flags & O_TMPFILE) == O_TMPFILE) {
    errno = EOPNOTSUPP;
    return -1;
  }
  va_list arguments;
  va_start(arguments, flags);
  const auto mode = va_arg(arguments, mode_t);
  va_end(arguments);
  const int fd = real<int(const char*, int, ...)>("open64")(path, flags, mode);
  const int error = errno;
  if (after_open) after_open(path);
  errno = error;
  return fd;
}

STANDS_BEFORE_THE_REAL_ONE ssize_t pread(int fd, void* bytes, size_t size, off_t offset) {
  const ssize_t n = real<ssize_t(int, void*, size_t, off_t)>("pread64")(fd, bytes, size, offset);
  if (after_pread) after_pread();
  return n;
}

STANDS_BEFORE_THE_REAL_ONE dirent* readdir(DIR* directory) {
  if (entries_until_an_error == 0) {
    errno = EIO;
    return nullptr;
  }
  if (entries_until_an_error > 0) --entries_until_an_error;
  return real<dirent*(DIR*)>("readdir64")(directory);
}

/* The C++ library calls the one of this name where both have the same entries. */
STANDS_BEFORE_THE_REAL_ONE dirent* readdir_of_the_cpp_library(DIR* directory) __asm__("readdir");
dirent* readdir_of_the_cpp_library(DIR* directory) { return readdir(directory); }
