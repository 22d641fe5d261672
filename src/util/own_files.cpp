#include "util/own_files.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include "core/standard_streams.h"

FILE* open_stream(const char* path, int flags) {
  const int fd = keep_off_standard_streams(open(path, flags | O_CLOEXEC, 0666));
  if (fd == -1) return nullptr;
  FILE* file = fdopen(fd, (flags & O_ACCMODE) == O_RDONLY ? "re" : "we");
  if (file == nullptr) {
    const int error = errno;
    close(fd);
    errno = error;
  }
  return file;
}

FILE* make_own_file(const char* path) {
  unlink(path);
  return open_stream(path, O_WRONLY | O_CREAT | O_EXCL); /* exclusively, which follows no link */
}

/* Nor is a writer waited for at a named pipe. */
FILE* open_own_file(const char* path) { return open_stream(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK); }

int write_text_and_close(FILE* file, const char* text) {
  if (file == nullptr) return -1;
  const bool written = fputs(text, file) != EOF;
  const bool closed = fclose(file) == 0;
  return written && closed ? 0 : -1;
}

int read_line_and_close(FILE* file, char* buffer, int size) {
  if (file == nullptr) return -1;
  const bool read = fgets(buffer, size, file) != nullptr;
  const bool closed = fclose(file) == 0;
  if (!read || !closed) return -1;
  const size_t length = strlen(buffer);
  if (length > 0 && buffer[length - 1] == '\n') buffer[length - 1] = '\0';
  return 0;
}
