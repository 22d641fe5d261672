#ifndef TAVREND_SOURCES_LOCAL_FILES_H
#define TAVREND_SOURCES_LOCAL_FILES_H

#include <stdint.h>

#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "plan/log_file.h"

/*
 * Local files, which are only ever read. Paths are as the configuration has them; prefix stands before each of them, so
 * that the logs of another root can be archived. Only regular files count, and the last part of a path is never
 * followed as a link.
 */

/* A file that is there and cannot be read. */
struct UnreadableFile : std::runtime_error {
  UnreadableFile(const std::string& file_path, int number, bool opened);
  const std::string path;
  const int error;     /* errno */
  const bool was_open; /* it could be opened, and not be read */
};

/* A file that was truncated, or is another one by now, while it was read: what was read of it is no part of it. */
struct FileChanged : std::runtime_error {
  explicit FileChanged(const std::string& path) : std::runtime_error(path) {}
};

/* A descriptor that is closed at the end. */
class OpenFile {
 public:
  /* Opens a regular file for reading. Throws UnreadableFile; nothing is open when it is not there or of another kind.
   */
  OpenFile(const std::string& prefix, const std::string& path);
  explicit OpenFile(int descriptor) : fd(descriptor) {}
  ~OpenFile();
  OpenFile(OpenFile&& other) noexcept;
  OpenFile& operator=(OpenFile&&) = delete;
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;

  bool is_open() const { return fd != -1; }
  int descriptor() const { return fd; }

 private:
  int fd;
};

/*
 * Reads at most size bytes at offset. Returns how many, 0 at the end of the file. Throws UnreadableFile with path.
 */
size_t read_some(const OpenFile& file, const std::string& path, int64_t offset, char* bytes, size_t size);

/* Returns what the open file is now. Throws UnreadableFile. */
LogFile describe(const OpenFile& file, const std::string& path);

/* Returns what is at path, or nothing when that is no regular file. Throws UnreadableFile. */
std::optional<LogFile> look_at(const std::string& prefix, const std::string& path);

/* What was found, and what of it cannot be read. */
struct Found {
  std::vector<LogFile> files;
  std::vector<UnreadableFile> unreadable;
  bool is_moving = false; /* a name was there, and what had it was gone a moment later */
};

using See = std::function<void(const LogFile&)>;

/*
 * Hands the regular files that match pattern to see, one by one, so that their number is no matter of memory. Returns
 * what cannot be read, directories among it. Since a file that is renamed meanwhile may be seen under both of its names
 * or under none, it is looked until two looks agree, some times at the most: see may get a file more than once.
 */
std::vector<UnreadableFile> see_matching(const std::string& prefix, const std::string& pattern, const See& see);

/* Whether a file that is at path, if there is one, would be among them. */
bool matches(const std::string& pattern, const std::string& path);

/* Returns the regular files in the directory of the log at path whose names are those of rotated ones. */
Found find_beside(const std::string& prefix, const std::string& path);

/* Whether one of those that cannot be read is the file with that inode, or a directory in which that may be. */
bool may_be_among(const std::vector<UnreadableFile>& unreadable, const std::string& prefix, const Inode& inode);

/*
 * Whether what is at path would be on that device. Where path is not there, the directory above it says so: one in
 * which a file system is missing is on another device.
 */
bool is_on_device(const std::string& path, uint64_t device);

/* A log with its rotated files, as they were at one moment. */
struct Surroundings {
  std::optional<LogFile> present;
  Found beside;
};

/*
 * Returns what is at path and beside it. A file that is renamed while its directory is read may be seen under both of
 * its names or under none, so it is looked until two looks agree; nothing when that does not come about.
 */
std::optional<Surroundings> look_around(const std::string& prefix, const std::string& path);

/*
 * Returns the place of the last newline in the bytes from first to before end, or -1. Looks from the end, so that it
 * reads no more than it must. Throws UnreadableFile with path.
 */
int64_t last_newline(const OpenFile& file, const std::string& path, int64_t first, int64_t end);

#endif
