/*
 * The handle interface as a C program uses it, with a local shell for the archive host.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/handle_c_tunables.h"
#include "tavren_host_util.h"

static char directory[] = "/tmp/tavren-test.XXXXXX";
static const char* const names[] = {"file", "stream", "dir/inner", "dir"};

static void remove_directory(void) {
  size_t i;
  if (chdir(directory) != 0) return;
  for (i = 0; i < sizeof names / sizeof names[0]; ++i) remove(names[i]);
  rmdir(directory);
}

#define CHECK(condition) \
  ((condition) ? (void)0 : (fprintf(stderr, "line %d: not so: %s\n", __LINE__, #condition), exit(1)))

/* Checks a failure's message and releases it. */
#define CHECK_MESSAGE(message, text)                                                \
  do {                                                                              \
    CHECK((message) != NULL);                                                       \
    if (strstr(message, text) == NULL) fprintf(stderr, "message: %s\n", (message)); \
    CHECK(strstr(message, text) != NULL);                                           \
    free(message);                                                                  \
  } while (0)

static int file_holds(const char* name, const char* content) {
  char buffer[100] = "";
  size_t length;
  FILE* file = fopen(name, "r");
  if (file == NULL) return 0;
  length = fread(buffer, 1, sizeof buffer - 1, file);
  fclose(file);
  return length == strlen(content) && strcmp(buffer, content) == 0;
}

static tavren_hp_t* create(char* dir, char** message) {
  static char host[] = "archive.example", user[] = "archiver", password[] = "secret", none[] = "";
  tavren_settings_t settings;
  memset(&settings, 0, sizeof settings);
  settings.host = host;
  settings.dir = dir;
  settings.user = user;
  settings.password = password;
  settings.host_key = none;
  settings.fingerprint = none;
  return tavren_hp_create(&settings, message);
}

static void check_file(tavren_hp_t* handle) {
  char* message;
  CHECK(tavren_hp_start_send_file(handle, "file", 8, 0644, &message) == 0 && message == NULL);
  CHECK(tavren_hp_continue_send_file(handle, "con", 3, &message) == 0 && message == NULL);
  CHECK(tavren_hp_continue_send_file(handle, "tent\n", 5, &message) == 0 && message == NULL);
  CHECK(tavren_hp_end_send_file(handle, &message) == 0 && message == NULL);
  CHECK(file_holds("file", "content\n"));
}

static void check_operations(tavren_hp_t* handle) {
  char* message;
  CHECK(tavren_hp_remove_file(handle, "file", &message) == 0 && message == NULL);
  CHECK(access("file", F_OK) != 0);
  CHECK(tavren_hp_try_to_create_file(handle, "file", &message) == 0 && message == NULL);
  CHECK(tavren_hp_remove_file(handle, "dir", &message) == -1);
  CHECK_MESSAGE(message, "  - Remote command \"/bin/rm -f 'dir'\" failed with error code 1\n");
  CHECK(tavren_hp_try_to_create_file(handle, "dir/no/file", &message) == -1);
  CHECK_MESSAGE(message, "failed with error code 2\n");
}

static void check_stream(tavren_hp_t* handle) {
  char* message;
  CHECK(tavren_hp_start_send_stream(handle, "stream", &message) == 0 && message == NULL);
  CHECK(tavren_hp_continue_send_stream(handle, "content\n", 8, &message) == 0 && message == NULL);
  /* A local shell reads from a pipe, on which nothing can end but the session. */
  set_tunable("ssh_command_timeout", "1");
  CHECK(tavren_hp_end_send_stream(handle, &message) == -1);
  CHECK_MESSAGE(message, "  - Timeout occurred while running remote command: \"/bin/cat >'stream' (1)\"\n");
}

int main(void) {
  char* message;
  char no_directory[] = "/no/such";
  tavren_hp_t* handle;
  set_tunable("loopback_login", "1");
  CHECK(mkdtemp(directory) != NULL);
  atexit(remove_directory);
  CHECK(chdir(directory) == 0 && mkdir("dir", 0755) == 0);

  CHECK(create(no_directory, &message) == NULL);
  CHECK_MESSAGE(message, "  - Remote command \"cd '/no/such'\" failed with error code 2\n");

  handle = create(directory, &message);
  CHECK(handle != NULL && message == NULL);
  check_file(handle);
  check_operations(handle);
  check_stream(handle);
  tavren_hp_kill_ssh(handle);
  tavren_hp_destroy(handle);
  return 0;
}
