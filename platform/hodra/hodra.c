#include "hodra.h"

#include <errno.h>
#include <fcntl.h>
#include <stdatomic.h>
#include <stdbool.h>
#include <stdlib.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "hodrahelper.h"

/*
 * A database as this process has it. Each locking opens the directory anew, because flock works between descriptions of
 * an open file: so it holds off the threads of one process as well.
 */
static struct {
  atomic_int opened;        /* how many opens still want a close */
  atomic_int lock_fd_plus1; /* 0: not locked */
} databases[HODRA_DATABASES];

static bool is_open(int database) {
  return database >= 0 && database < HODRA_DATABASES && atomic_load(&databases[database].opened) > 0;
}

int open_conf_db(int database) {
  char path[HODRA_PATH_SIZE];
  struct stat status;
  if (database < 0 || database >= HODRA_DATABASES) {
    return ENODEV;
  }
  const int error = hodrahelper_path(database, NULL, path);
  if (error != 0) {
    return error;
  }
  if (stat(path, &status) == -1) {
    return errno == ENOENT ? ENODEV : errno;
  }
  if (!S_ISDIR(status.st_mode)) {
    return ENODEV;
  }
  atomic_fetch_add(&databases[database].opened, 1);
  return 0;
}

/* Gives the lock back. Returns whether there was one. */
static bool release(int database) {
  const int fd = atomic_exchange(&databases[database].lock_fd_plus1, 0) - 1;
  if (fd == -1) {
    return false;
  }
  close(fd);
  return true;
}

int close_conf_db(int database) {
  if (!is_open(database)) {
    return EBADF;
  }
  if (atomic_fetch_sub(&databases[database].opened, 1) == 1) {
    release(database); /* nobody is left who could unlock it */
  }
  return 0;
}

int hodra_lock(int database) {
  char path[HODRA_PATH_SIZE];
  if (!is_open(database)) {
    return EBADF;
  }
  int error = hodrahelper_path(database, NULL, path);
  if (error != 0) {
    return error;
  }
  const int fd = open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd == -1) {
    return errno;
  }
  while (flock(fd, LOCK_EX) == -1) {
    if (errno != EINTR) {
      error = errno;
      close(fd);
      return error;
    }
  }
  atomic_store(&databases[database].lock_fd_plus1, fd + 1);
  return 0;
}

int hodra_unlock(int database) {
  if (!is_open(database)) {
    return EBADF;
  }
  return release(database) ? 0 : ENOLCK;
}

/* Reads all of the file open at fd into memory of the caller's. */
static int read_all(int fd, void** data, size_t* length) {
  struct stat status;
  if (fstat(fd, &status) == -1) {
    return errno;
  }
  const size_t size = (size_t)status.st_size;
  char* buffer = malloc(size > 0 ? size : 1);
  if (buffer == NULL) {
    return ENOMEM;
  }
  size_t done = 0;
  while (done < size) {
    const ssize_t n = read(fd, buffer + done, size - done);
    if (n == -1 && errno == EINTR) {
      continue;
    }
    if (n <= 0) {
      const int error = n == 0 ? EIO : errno;
      free(buffer);
      return error;
    }
    done += (size_t)n;
  }
  *data = buffer;
  *length = size;
  return 0;
}

int hodra_get(int database, const char* record, void** data, size_t* length, int flags) {
  char path[HODRA_PATH_SIZE];
  if (!is_open(database)) {
    return EBADF;
  }
  if (atomic_load(&databases[database].lock_fd_plus1) == 0) {
    return ENOLCK;
  }
  if (flags != 0) {
    return EINVAL;
  }
  int error = hodrahelper_path(database, record, path);
  if (error != 0) {
    return error;
  }
  const int fd = open(path, O_RDONLY | O_CLOEXEC);
  if (fd == -1) {
    return errno;
  }
  error = read_all(fd, data, length);
  close(fd);
  return error;
}
