#include "hodrahelper.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

int hodrahelper_path(int database, const char* name, char* path) {
  const char* directory = getenv("HODRA_DIR");
  if (directory == NULL || directory[0] == '\0') {
    directory = "/var/lib/hodra";
  }
  if (name != NULL && (name[0] == '\0' || name[0] == '.' || strchr(name, '/') != NULL)) {
    return EINVAL;
  }
  const int length = snprintf(path, HODRA_PATH_SIZE, "%s/%d%s%s", directory, database, name == NULL ? "" : "/",
                              name == NULL ? "" : name);
  return length < 0 || length >= HODRA_PATH_SIZE ? ENAMETOOLONG : 0;
}

/* Makes the directory path and those above it. */
static int make_directories(char* path) {
  for (char* slash = strchr(path + 1, '/'); slash != NULL; slash = strchr(slash + 1, '/')) {
    *slash = '\0';
    const int made = mkdir(path, 0755);
    *slash = '/';
    if (made == -1 && errno != EEXIST) {
      return errno;
    }
  }
  return mkdir(path, 0755) == -1 && errno != EEXIST ? errno : 0;
}

static int write_file(const char* path, const void* data, size_t length) {
  FILE* file = fopen(path, "we");
  if (file == NULL) {
    return errno;
  }
  int error = fwrite(data, 1, length, file) == length ? 0 : errno;
  if (fclose(file) != 0 && error == 0) {
    error = errno;
  }
  return error;
}

int hodrahelper_make(int database) {
  char path[HODRA_PATH_SIZE];
  const int error = hodrahelper_path(database, NULL, path);
  return error != 0 ? error : make_directories(path);
}

int hodrahelper_put(int database, const char* record, const void* data, size_t length) {
  char path[HODRA_PATH_SIZE];
  char new_path[HODRA_PATH_SIZE + 32];
  int error = hodrahelper_path(database, record, path);
  if (error != 0) {
    return error;
  }
  snprintf(new_path, sizeof new_path, "%s.%ld.new", path, (long)getpid());
  error = write_file(new_path, data, length);
  if (error == 0 && rename(new_path, path) == -1) {
    error = errno;
  }
  if (error != 0) {
    unlink(new_path);
  }
  return error;
}
