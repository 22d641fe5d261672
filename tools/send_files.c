#include "send_files.h"

#include <errno.h>
#include <fcntl.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "ask.h"
#include "guarded_calls.h"
#include "text.h"

enum { PIECE_SIZE = 32768, BAR_WIDTH = 30 };

/* A file on its way, for the progress display. */
struct progress {
  const char* name;
  uint32_t sent;
  uint32_t size;
  int64_t started_ms;
  int shown_percent;
};

static const char* base_name(const char* path) {
  const char* slash = strrchr(path, '/');
  return slash != NULL ? slash + 1 : path;
}

static double megabytes_per_second(const struct progress* progress) {
  const int64_t elapsed_ms = tavren_get_uptime_ms() - progress->started_ms;
  return elapsed_ms > 0 ? progress->sent / 1000.0 / (double)elapsed_ms : 0.0;
}

static void show_progress(struct progress* progress) {
  const int percent = progress->size > 0 ? (int)((uint64_t)progress->sent * 100 / progress->size) : 100;
  if (percent == progress->shown_percent) {
    return;
  }
  progress->shown_percent = percent;
  const int filled = percent * BAR_WIDTH / 100;
  printf("\r%-24.24s [", progress->name);
  for (int i = 0; i < BAR_WIDTH; ++i) {
    putchar(i < filled ? '#' : ' ');
  }
  printf("] %3d%% %7.1f MB/s", percent, megabytes_per_second(progress));
  fflush(stdout);
}

/* Sends what is announced of the open file. Sets *message, as the library does, when the archive host refuses. */
static int send_contents(tavren_hp_t* session, int fd, struct progress* progress, bool bar, char** message) {
  static char piece[PIECE_SIZE];
  while (progress->sent < progress->size) {
    const uint32_t rest = progress->size - progress->sent;
    const ssize_t n = read(fd, piece, rest < PIECE_SIZE ? rest : PIECE_SIZE);
    if (n < 0 && errno == EINTR) {
      continue;
    }
    if (n <= 0) {
      fprintf(stderr, "tavren_send: %s: %s\n", progress->name, n == 0 ? translate("became shorter") : strerror(errno));
      return -1;
    }
    if (continue_send_file(session, piece, (uint32_t)n, message) != 0) {
      return -1;
    }
    progress->sent += (uint32_t)n;
    if (bar) {
      show_progress(progress);
    }
  }
  return 0;
}

static int send_open_file(tavren_hp_t* session, int fd, const struct stat* status, struct progress* progress) {
  const bool bar = isatty(STDOUT_FILENO);
  char* message = NULL;
  if (bar) {
    show_progress(progress);
  }
  int result = tavren_hp_start_send_file(session, progress->name, progress->size, status->st_mode & 0777, &message);
  if (result == 0) {
    result = send_contents(session, fd, progress, bar, &message);
  }
  if (result == 0) {
    result = tavren_hp_end_send_file(session, &message);
  }
  if (bar) {
    putchar('\n');
  }
  if (message != NULL) {
    report(progress->name, message, NULL);
  }
  if (result == 0 && !bar) {
    printf(translate("%s: %lu bytes sent\n"), progress->name, (unsigned long)progress->size);
  }
  return result;
}

/* Opens path if it is a file that can be sent. Returns its descriptor, or -1 after a message. */
static int open_file(const char* path, struct stat* status) {
  const char* reason = NULL;
  const int fd = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (fd == -1 || fstat(fd, status) == -1) {
    reason = strerror(errno);
  } else if (!S_ISREG(status->st_mode)) {
    reason = translate("not a regular file");
  } else if (status->st_size > (off_t)UINT32_MAX) {
    reason = translate("too large: a transfer carries less than 4 GiB");
  }
  if (reason == NULL) {
    return fd;
  }
  fprintf(stderr, "tavren_send: %s: %s\n", path, reason);
  if (fd != -1) {
    close(fd);
  }
  return -1;
}

/* Connects, unless there is a connection. Returns 0, or -1 after a message. */
static int open_session(tavren_hp_t* session) {
  char* message = NULL;
  const int result = tavren_hp_open(session, &message);
  if (result != 0) {
    report(translate("login"), message, NULL);
  }
  return result;
}

/* Sends the file path. Returns 0, or -1 after a message. */
static int send_file(tavren_hp_t* session, const char* path) {
  struct stat status;
  const int fd = open_file(path, &status);
  if (fd == -1) {
    return -1;
  }
  struct progress progress = {base_name(path), 0, (uint32_t)status.st_size, tavren_get_uptime_ms(), -1};
  int result = open_session(session);
  if (result == 0) {
    result = send_open_file(session, fd, &status, &progress);
    if (result != 0) {
      tavren_hp_close(session); /* in the middle of a transfer: the next file begins with another login */
    }
  }
  close(fd);
  return result;
}

int send_files(const tavren_settings_t* settings, char** files) {
  char* message = NULL;
  tavren_hp_t* session = tavren_hp_new(settings, &message);
  if (session == NULL) {
    report(translate("making a session"), message, NULL);
    return 1;
  }
  int status = 0;
  if (open_session(session) != 0) {
    status = 1;
  } else {
    for (; *files != NULL; ++files) {
      if (send_file(session, *files) != 0) {
        status = 1;
      }
    }
  }
  tavren_hp_close(session);
  tavren_hp_destroy(session);
  return status;
}
