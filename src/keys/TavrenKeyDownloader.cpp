#include "TavrenKeyDownloader.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include "TavrenError.h"
#include "TavrenTunables.h"
#include "core/assertion.h"
#include "process/deadline.h"
#include "process/ssh_client.h"
#include "tavren_share.h"
#include "tavren_util.h"
#include "util/own_files.h"

namespace {

constexpr char user[] = "tavren_anonymous@"; /* deliberately nobody: the download never logs in */

struct Close {
  void operator()(FILE* file) const { fclose(file); }
};
struct Free {
  void operator()(char* text) const { free(text); }
};

/* Removes the client's file on every way out. The client first: one that still runs could write it after its removal.
 */
struct RemovedAtTheEnd {
  RemovedAtTheEnd(TavrenProcess& writer, const char* path) : client(writer), file(path) {}
  ~RemovedAtTheEnd() {
    client.stop(stop_grace_time);
    unlink(file);
  }
  RemovedAtTheEnd(const RemovedAtTheEnd&) = delete;
  RemovedAtTheEnd& operator=(const RemovedAtTheEnd&) = delete;

  TavrenProcess& client;
  const char* file;
};

/* Reads the first line of path, with its newline. */
std::string read_first_line(const char* path) {
  const std::unique_ptr<FILE, Close> file(open_own_file(path));
  if (file == nullptr) throw TavrenError(TAVREN_E_FILE_OPEN, path, tavren_int_to_string(errno));
  char* buffer = nullptr;
  size_t size = 0;
  errno = 0; /* an end of file is no error of the system's */
  const ssize_t length = getline(&buffer, &size, file.get());
  const int error = errno;
  const std::unique_ptr<char, Free> text(buffer);
  if (length <= 0) throw TavrenError(TAVREN_E_FILE_READ, path, tavren_int_to_string(error));
  return std::string(buffer, static_cast<size_t>(length));
}

}  // namespace

TavrenKeyDownloader::TavrenKeyDownloader(const std::string& archive_host) : host(archive_host) {
  TAVREN_ASSERT("TavrenKeyDownloader", tavren_get_tmp_dir() != NULL);
  snprintf(key_file, sizeof key_file, "%s/downloaded_key", tavren_get_tmp_dir());
  /*
   * What a failed download left would make the client know this host and not ask, or be read as the key of another.
   */
  unlink(key_file);
  process = std::make_unique<TavrenProcess>(
      "/usr/bin/ssh",
      std::list<std::string>{"-2", "-4", "-oPreferredAuthentications=password", "-oGlobalKnownHostsFile=/dev/null",
                             "-oUserKnownHostsFile=" + option_word(key_file), user + host},
      false);
}

TavrenKeyDownloader::~TavrenKeyDownloader() = default;

void TavrenKeyDownloader::download_host_key(std::string& key) {
  const RemovedAtTheEnd file(*process, key_file);
  download_key_to_file();
  read_key_from_file(key);
  if (key.size() >= TAVREN_HOST_KEY_SIZE) {
    throw TavrenError(TAVREN_E_HOST_KEY_TOO_LARGE, tavren_int_to_string(static_cast<int>(key.size())), "");
  }
}

void TavrenKeyDownloader::download_key_to_file() {
  const long deadline = deadline_after(TavrenTunables::instance().get_ssh_connect_timeout());
  accept_host_key(*process, {user}, deadline);
  /* The client has written the key before it asks for a password, or says that it will not. */
  process->read_until_line_starts_with(user, deadline);
}

void TavrenKeyDownloader::read_key_from_file(std::string& key) {
  const std::string line = read_first_line(key_file);
  const size_t blank = line.find(' ');
  if (blank == std::string::npos) throw TavrenError(TAVREN_E_FILE_READ, key_file, tavren_int_to_string(EINVAL));
  key = line.substr(blank + 1);
  if (!key.empty() && key.back() == '\n') key.pop_back();
}
