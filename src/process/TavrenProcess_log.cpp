#include <errno.h>
#include <fcntl.h>
#include <stdint.h>
#include <stdio.h>
#include <unistd.h>

#include <string>

#include "TavrenError.h"
#include "TavrenMutex.h"
#include "TavrenProcess.h"
#include "TavrenTunables.h"
#include "core/standard_streams.h"
#include "process/descriptors.h"
#include "tavren_assert.h"
#include "tavren_basic.h"

/*
 * The child-output log: one file for all children of the process, and the one before it. Children of different
 * threads take turns in it, piece by piece.
 */
namespace {

/*
 * Held for one piece. Without it one thread could close a file that it moves away while another is about to write to
 * that descriptor, which may be somebody else's by then. Guards the two below; never destroyed, like the path.
 */
TavrenMutex& log_mutex = *new TavrenMutex;
int log_fd = -1;
int64_t log_bytes_written = 0;

const std::string& log_path() {
  /* Never destroyed: a child may still be heard while the process runs its exit handlers. */
  static const std::string& path =
      *new std::string(std::string(tavren_get_tmp_root()) + "/tavren_child_output." + tavren_get_program_name());
  return path;
}

/*
 * Opens a new file, the old one kept under its other name. log_fd stays -1 when that fails. The name is known
 * beforehand and others may write in its directory: a link that one of them has planted there must not lead the log
 * over a file that only this process may write, nor a named pipe be waited for.
 */
void open_log() {
  const std::string& path = log_path();
  if (access(path.c_str(), F_OK) == 0) rename(path.c_str(), (path + ".0").c_str());
  constexpr int flags = O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
  log_fd = keep_off_standard_streams(open(path.c_str(), flags, 0666));
  log_bytes_written = 0;
}

}  // namespace

void TavrenProcess::log_child_output(const char* text, size_t length) {
  const int limit = TavrenTunables::instance().get_subprocess_log_size();
  if (limit == 0) return;

  const TavrenAutoLock lock(log_mutex);
  const auto size = static_cast<int64_t>(length);
  if (log_fd != -1 && log_bytes_written + size > limit) close_descriptor(log_fd);
  if (log_fd == -1) open_log();
  const ssize_t written = log_fd == -1 ? -1 : write(log_fd, text, length);
  if (written != size) {
    /* A write that takes only a part sets no error number; a full disk is what makes it. */
    tavren_throw_syscall_error("write(log_child_output)", written == -1 ? -1 : ENOSPC);
  }
  log_bytes_written += size;
}

void TavrenProcess::log_child_output(const std::string& text) { log_child_output(text.data(), text.size()); }

/* Announces a child in the log: a rule, and the command line on one line. */
void TavrenProcess::log_start(const std::string& path, const std::list<std::string>& arguments) {
  log_child_output("\n" + std::string(77, '-') + "\n");
  log_child_output("STARTING CHILD: " + path);
  for (const std::string& argument : arguments) log_child_output(" " + argument);
  log_child_output("\n");
}
