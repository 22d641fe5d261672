#include "tavren_assert.h"

#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/uio.h>
#include <unistd.h>

#include "core/diagnostic.h"
#include "core/standard_streams.h"

bool tavren_suppress_abort = false;

namespace {

char program_name[32] = "error";

const char* abort_kind = "";
const char* abort_file = "";
int abort_line = 0;

iovec text(const char* s) { return {const_cast<char*>(s), strlen(s)}; }

/*
 * Leaves the report where it outlives the daemon's terminal. The first report is kept for good, because the first
 * failure tells most; every later one overwrites the second file.
 */
void write_error_file(const char* header, const char* message) {
  char path[80];
  snprintf(path, sizeof path, "/tmp/%s_error.0", program_name);
  if (access(path, F_OK) == 0) path[strlen(path) - 2] = '\0';

  /* Everybody may write to /tmp: what lies there may be a link to another file, or a pipe that nobody reads. */
  const int fd =
      keep_off_standard_streams(open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0666));
  if (fd == -1) {
    char complaint[128];
    snprintf(complaint, sizeof complaint, "Failed to open %s, errno=%d\n", path, errno);
    print_without_waiting(stderr, complaint);
    return;
  }
  const iovec report[] = {text(header), text(message), text("\n")};
  if (writev(fd, report, 3) == -1) {
    /* The report is best effort: the same text is about to go to descriptor 2. */
  }
  close(fd);
}

}  // namespace

void tavren_set_program_name(const char* path) {
  const char* slash = strrchr(path, '/');
  const char* name = slash == nullptr ? path : slash + 1;
  const size_t length = strnlen(name, sizeof program_name - 1);
  memmove(program_name, name, length); /* path may be the stored name itself */
  program_name[length] = '\0';
}

const char* tavren_get_program_name() { return program_name; }

void _tavren_set_abort_info(const char* kind, const char* file, int line) {
  abort_kind = kind;
  abort_file = file;
  abort_line = line;
}

void _tavren_abort(const char* format, ...) {
  char header[80];
  snprintf(header, sizeof header, "%s (%s:%d)\n", abort_kind, abort_file, abort_line);

  char message[160];
  va_list arguments;
  va_start(arguments, format);
  vsnprintf(message, sizeof message, format, arguments);
  va_end(arguments);

  if (strcmp(program_name, "tavrend") == 0) write_error_file(header, message);

  char diagnostic[sizeof header + sizeof message + 2];
  snprintf(diagnostic, sizeof diagnostic, "\n%s%s\n", header, message);
  write_diagnostic(diagnostic);

  if (tavren_suppress_abort) exit_without_waiting();
  abort();
}

void _tavren_assert(const char* expression, const char* file, int line) {
  _tavren_set_abort_info("ASSERTION ERROR", file, line);
  _tavren_abort("assertion failed: %s", expression);
}
