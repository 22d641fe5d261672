#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>

#include "TavrenError.h"
#include "TavrenKeyDownloader.h"
#include "core/TavrenError_message.h"
#include "core/assertion.h"
#include "core/catalogue.h"
#include "tavren_host_util.h"
#include "tavren_share.h"
#include "util/own_files.h"
#include "util/refusal.h"

/*
 * The C functions for host keys.
 */
namespace {

constexpr size_t path_size = 4096;
constexpr size_t command_size = 12500; /* three such paths, those of two tools, and the words between them */

/*
 * Stands before the command. Everybody may write where its files are, and its results must not go where a link leads
 * that somebody plants there meanwhile. With -C the shell makes only files that are not there, and so does this touch.
 */
constexpr char through_no_link[] = "set -C; touch() { : >\"$1\"; }; ";

/* Returns the first of places that can be run, or name, for the shell to find. */
const char* find_tool(const char* const (&places)[4], const char* name) {
  for (const char* place : places) {
    if (access(place, X_OK) == 0) return place;
  }
  return name;
}

/* The files of a fingerprint's computation, in the private temporary directory. */
struct Files {
  Files() {
    snprintf(key, sizeof key, "%s/host_key", tavren_get_tmp_dir());
    snprintf(fingerprint, sizeof fingerprint, "%s_fingerprint", key);
    snprintf(error, sizeof error, "%s_error", key);
  }
  void remove_results() const {
    unlink(fingerprint);
    unlink(error);
  }
  char key[path_size];
  char fingerprint[path_size + sizeof "_fingerprint"];
  char error[path_size + sizeof "_error"]; /* made when the key generator fails */
};

/*
 * Standard streams for the shell in a host program that has closed its own: a shell's pipelines fail when their pipes
 * land there.
 */
class StandardStreams {
 public:
  StandardStreams() {
    int fd;
    while ((fd = open("/dev/null", O_RDWR | O_CLOEXEC)) >= 0 && fd <= STDERR_FILENO) {
      fcntl(fd, F_SETFD, 0);
      opened[fd] = true;
    }
    if (fd >= 0) close(fd);
  }
  ~StandardStreams() {
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
      if (opened[fd]) close(fd);
    }
  }
  StandardStreams(const StandardStreams&) = delete;
  StandardStreams& operator=(const StandardStreams&) = delete;

 private:
  bool opened[STDERR_FILENO + 1] = {};
};

/* Runs command in the shell. Returns whether it succeeded, as far as this process can know. */
bool run(const char* command) {
  const StandardStreams for_the_shell;
  const int status = system(command);
  /* In a program that ignores or collects its children nobody can tell; what the command has written will. */
  return status == 0 || (status == -1 && errno == ECHILD);
}

}  // namespace

int tavren_download_host_key(const char* host, char* key, char** error) {
  try {
    TavrenKeyDownloader downloader(host);
    std::string text;
    downloader.download_host_key(text);
    snprintf(key, TAVREN_HOST_KEY_SIZE, "%s", text.c_str());
    *error = nullptr;
    return 0;
  } catch (const TavrenError& failure) {
    *error = message_of(failure);
    return -1;
  }
}

const char* tavren_get_awk_path() {
  static const char* const path = find_tool({"/usr/bin/awk", "/bin/awk", "/usr/sbin/awk", "/sbin/awk"}, "awk");
  return path;
}

const char* tavren_get_ssh_keygen_path() {
  static const char* const path =
      find_tool({"/usr/bin/ssh-keygen", "/bin/ssh-keygen", "/usr/sbin/ssh-keygen", "/sbin/ssh-keygen"}, "ssh-keygen");
  return path;
}

int tavren_host_key_fingerprint(const char* key, char* fingerprint, char* error) {
  TAVREN_ASSERT("tavren_host_util", tavren_get_tmp_dir() != NULL);
  const Files files;
  char command[command_size];
  snprintf(command, sizeof command, "%s(%s -l -f %s 2>/dev/null || touch %s) | %s '{print $2}' >%s", through_no_link,
           tavren_get_ssh_keygen_path(), files.key, files.error, tavren_get_awk_path(), files.fingerprint);

  if (write_text_and_close(make_own_file(files.key), key) != 0) {
    const int reason = errno;
    return refuse(error, translate("Cannot create file '%s': errno=%d."), files.key, reason);
  }
  files.remove_results();
  const bool ran = run(command);
  unlink(files.key);
  if (!ran) {
    files.remove_results();
    return refuse(error, "%s", translate("Internal error: cannot generate host key fingerprint."));
  }
  if (access(files.error, F_OK) == 0) {
    files.remove_results();
    return refuse(error, "%s", translate("The specified public host key is invalid or incomplete."));
  }
  if (read_line_and_close(open_own_file(files.fingerprint), fingerprint, TAVREN_FINGERPRINT_SIZE) != 0) {
    const int reason = errno;
    unlink(files.fingerprint);
    return refuse(error, translate("Failed to open %s (errno=%d)."), files.fingerprint, reason);
  }
  unlink(files.fingerprint);
  return 0;
}
