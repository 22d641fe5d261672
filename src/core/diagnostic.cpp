#include "core/diagnostic.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <stdio_ext.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include <initializer_list>

#include "core/without_sigpipe.h"

namespace {

/* Makes writing to a descriptor return instead of waiting while the object lives. */
class NonBlocking {
 public:
  explicit NonBlocking(int descriptor) : fd(descriptor), flags(fcntl(fd, F_GETFL)) { set(flags | O_NONBLOCK); }
  ~NonBlocking() { set(flags); }
  NonBlocking(const NonBlocking&) = delete;
  NonBlocking& operator=(const NonBlocking&) = delete;

 private:
  void set(int wanted) const {
    if (flags != -1 && (flags & O_NONBLOCK) == 0) fcntl(fd, F_SETFL, wanted);
  }

  const int fd;
  const int flags;
};

/* Does something with a stream unless another thread holds it. Returns whether it was done. */
template <class Step>
bool with_stream(FILE* stream, Step step) {
  if (ftrylockfile(stream) != 0) return false;
  {
    const NonBlocking descriptor(fileno(stream));
    step();
  }
  funlockfile(stream);
  return true;
}

/* Returns whether nothing of what was printed to stream is left. */
bool flush(FILE* stream) {
  bool flushed = false;
  return with_stream(stream, [&] { flushed = fflush_unlocked(stream) == 0; }) && flushed;
}

int64_t now_ms() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

/* Writes text. A slow reader gets two seconds for it, and one that takes nothing cannot keep the process for longer. */
void write_patiently(int fd, const char* text) {
  constexpr int64_t patience_ms = 2000;
  const NonBlocking descriptor(fd);
  const int64_t end = now_ms() + patience_ms;
  for (size_t rest = strlen(text); rest > 0;) {
    const ssize_t n = write(fd, text, rest);
    if (n > 0) {
      text += n;
      rest -= static_cast<size_t>(n);
    } else if (errno == EAGAIN) {
      const int64_t left = end - now_ms();
      if (left <= 0) return;
      pollfd output{fd, POLLOUT, 0};
      poll(&output, 1, static_cast<int>(left));
    } else if (errno != EINTR) {
      return; /* nobody is left to tell */
    }
  }
}

}  // namespace

void write_diagnostic(const char* text) {
  const WithoutSigpipe guard;
  flush(stdout);
  flush(stderr);
  write_patiently(STDERR_FILENO, text);
  guard.discard();
}

void write_report(const char* text) {
  const WithoutSigpipe guard;
  fflush(stdout);
  fflush(stderr);
  for (size_t rest = strlen(text); rest > 0;) {
    const ssize_t n = write(STDERR_FILENO, text, rest);
    if (n == -1 && errno == EINTR) continue;
    if (n <= 0) break; /* nobody is left to tell */
    text += n;
    rest -= static_cast<size_t>(n);
  }
  guard.discard();
}

void print_without_waiting(FILE* stream, const char* text) {
  const WithoutSigpipe guard;
  with_stream(stream, [&] { fputs_unlocked(text, stream); });
  guard.discard();
}

void exit_without_waiting() {
  const WithoutSigpipe for_good; /* exit handlers print, too */
  for (FILE* stream : {stdout, stderr}) {
    if (flush(stream)) continue;
    /*
     * Exit handlers print, and flush once more: they wait neither for the thread that holds the stream nor for a
     * reader, and what is left goes where it always can.
     */
    __fsetlocking(stream, FSETLOCKING_BYCALLER);
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (nowhere != -1) dup2(nowhere, fileno(stream));
  }
  exit(0);
}
