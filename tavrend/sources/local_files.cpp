#include "sources/local_files.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <fnmatch.h>
#include <glob.h>
#include <malloc.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <utility>

#include "plan/checksum.h"
#include "plan/growing_file.h"
#include "sources/plain_size.h"

namespace {

constexpr size_t block_size = 65536;

/* Not there, another kind of file, or a link in the last part: no log. */
bool is_no_log(int error) {
  return error == ENOENT || error == ENOTDIR || error == ELOOP || error == ENXIO || error == ENODEV;
}

int open_regular(const std::string& prefix, const std::string& path) {
  /* Non-blocking, because a named pipe would wait for its writer; a device may react to being opened, so it is not. */
  const std::string local = prefix + path;
  struct stat status {};
  if (lstat(local.c_str(), &status) == -1) {
    if (is_no_log(errno)) return -1;
    throw UnreadableFile(path, errno, false);
  }
  if (!S_ISREG(status.st_mode)) return -1;
  const int fd = open(local.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  if (fd == -1 && !is_no_log(errno)) throw UnreadableFile(path, errno, false);
  if (fd != -1 && (fstat(fd, &status) == -1 || !S_ISREG(status.st_mode))) {
    close(fd);
    return -1;
  }
  return fd;
}

/* Reads at most size bytes at offset, as many as there are. */
std::string read_at(const OpenFile& file, const std::string& path, int64_t offset, size_t size) {
  std::string bytes(size, '\0');
  size_t length = 0;
  while (length < size) {
    const size_t n = read_some(file, path, offset + static_cast<int64_t>(length), bytes.data() + length, size - length);
    if (n == 0) break;
    length += n;
  }
  bytes.resize(length);
  return bytes;
}

void add(Found& found, const std::string& prefix, const std::string& path) {
  try {
    if (const auto file = look_at(prefix, path)) {
      found.files.push_back(*file);
    } else {
      /* Another file may have taken the name since. */
      struct stat status {};
      if (lstat((prefix + path).c_str(), &status) == -1 || S_ISREG(status.st_mode)) found.is_moving = true;
    }
  } catch (const UnreadableFile& error) {
    found.unreadable.push_back(error);
  }
}

/* Directories that a pattern leads to and that cannot be read: glob hands its callback nothing of ours. */
thread_local std::vector<std::pair<std::string, int>> failed_directories;

int note_directory(const char* path, int error) {
  if (!is_no_log(error)) failed_directories.emplace_back(path, error);
  return 0;
}

/* A directory's name in a pattern stands for itself. */
std::string without_wildcards(const std::string& text) {
  std::string pattern;
  for (const char c : text) {
    if (strchr("*?[]\\", c) != nullptr) pattern += '\\';
    pattern += c;
  }
  return pattern;
}

}  // namespace

UnreadableFile::UnreadableFile(const std::string& file_path, int number, bool opened)
    : std::runtime_error(file_path + ": " + strerror(number)), path(file_path), error(number), was_open(opened) {}

OpenFile::OpenFile(const std::string& prefix, const std::string& path) : fd(open_regular(prefix, path)) {}

OpenFile::~OpenFile() {
  if (fd != -1) close(fd);
}

OpenFile::OpenFile(OpenFile&& other) noexcept : fd(std::exchange(other.fd, -1)) {}

size_t read_some(const OpenFile& file, const std::string& path, int64_t offset, char* bytes, size_t size) {
  ssize_t n = 0;
  do {
    n = pread(file.descriptor(), bytes, size, static_cast<off_t>(offset));
  } while (n == -1 && errno == EINTR);
  if (n == -1) throw UnreadableFile(path, errno, true);
  return static_cast<size_t>(n);
}

LogFile describe(const OpenFile& file, const std::string& path) {
  struct stat status {};
  if (fstat(file.descriptor(), &status) == -1) throw UnreadableFile(path, errno, true);
  LogFile log;
  log.path = path;
  log.device = status.st_dev;
  log.inode = status.st_ino;
  log.size = status.st_size;
  log.mtime_ns = static_cast<int64_t>(status.st_mtim.tv_sec) * 1000000000 + status.st_mtim.tv_nsec;
  log.head = read_at(file, path, 0, std::min<size_t>(head_size, static_cast<size_t>(log.size)));
  if (is_compressed(log)) {
    const int64_t tail = log.size - static_cast<int64_t>(tail_size);
    log.plain_size = plain_size_of(log.head, read_at(file, path, std::max<int64_t>(tail, 0), tail_size));
  }
  return log;
}

std::optional<LogFile> look_at(const std::string& prefix, const std::string& path) {
  const OpenFile file(prefix, path);
  if (!file.is_open()) return std::nullopt;
  return describe(file, path);
}

namespace {

constexpr int most_looks = 50;

/*
 * What two looks must agree on, one number for each name: there may be tens of thousands. A file that has nothing in it
 * yet may be about to become a copy.
 */
class Names {
 public:
  void add(const std::string& path, uint64_t device, uint64_t inode, bool is_empty) {
    const std::string text = std::to_string(device) + " " + std::to_string(inode) + (is_empty ? " empty " : " ") + path;
    numbers.push_back(checksum(text));
  }
  void add(const std::vector<LogFile>& files) {
    for (const LogFile& file : files) add(file.path, file.device, file.inode, file.size == 0);
  }

  bool are(Names& other) {
    std::sort(numbers.begin(), numbers.end());
    std::sort(other.numbers.begin(), other.numbers.end());
    return numbers == other.numbers;
  }

 private:
  std::vector<uint64_t> numbers;
};

/* A look at all that match a pattern. */
struct Look {
  Names names;
  std::vector<UnreadableFile> unreadable;
  bool is_moving = false; /* a name was there, and what had it was gone a moment later */
};

/* Without see, nothing is opened. */
void look_at_match(const std::string& prefix, const std::string& path, const See& see, Look& look) {
  struct stat status {};
  if (lstat((prefix + path).c_str(), &status) == -1) {
    if (is_no_log(errno)) {
      look.is_moving = true;
    } else {
      look.unreadable.emplace_back(path, errno, false);
    }
    return;
  }
  if (!S_ISREG(status.st_mode)) return;
  look.names.add(path, status.st_dev, status.st_ino, status.st_size == 0);
  if (!see) return;
  try {
    const auto file = look_at(prefix, path);
    look.is_moving = look.is_moving || !file || file->device != status.st_dev || file->inode != status.st_ino;
    if (file) see(*file);
  } catch (const UnreadableFile& error) {
    look.unreadable.push_back(error);
  }
}

/* Calls take with each path that matches. Returns what glob returns. */
template <class Take>
int for_each_match(const std::string& pattern, Take take) {
  glob_t matches{};
  const std::unique_ptr<glob_t, decltype(&globfree)> freed(&matches, globfree);
  const int result = glob(pattern.c_str(), GLOB_NOSORT, note_directory, &matches);
  for (size_t i = 0; result == 0 && i < matches.gl_pathc; ++i) take(matches.gl_pathv[i]);
  return result;
}

Look look_once(const std::string& prefix, const std::string& pattern, const See& see) {
  Look look;
  failed_directories.clear();
  const int result = for_each_match(without_wildcards(prefix) + pattern,
                                    [&](const char* path) { look_at_match(prefix, path + prefix.size(), see, look); });
  malloc_trim(0); /* of tens of thousands of names, which would stay beside what was seen */
  for (const auto& [directory, error] : failed_directories) {
    look.unreadable.emplace_back(directory.substr(std::min(prefix.size(), directory.size())), error, false);
  }
  if (result != 0 && result != GLOB_NOMATCH) look.unreadable.emplace_back(pattern, ENOMEM, false);
  return look;
}

}  // namespace

std::vector<UnreadableFile> see_matching(const std::string& prefix, const std::string& pattern, const See& see) {
  Look before = look_once(prefix, pattern, nullptr);
  for (int look = 1;; ++look) {
    Look now = look_once(prefix, pattern, see);
    const bool is_settled = now.names.are(before.names) && !now.is_moving;
    if (is_settled || look == most_looks) return std::move(now.unreadable);
    before = std::move(now);
  }
}

bool matches(const std::string& pattern, const std::string& path) {
  return fnmatch(pattern.c_str(), path.c_str(), FNM_PATHNAME | FNM_PERIOD) == 0;
}

namespace {

struct CloseDirectory {
  void operator()(DIR* directory) const { closedir(directory); }
};

}  // namespace

Found find_beside(const std::string& prefix, const std::string& path) {
  Found found;
  const size_t slash = path.rfind('/');
  const std::string directory = path.substr(0, slash + 1);
  const std::string base = path.substr(slash + 1);
  /* Not by std::filesystem: its iterators end the process where memory runs out. */
  const std::unique_ptr<DIR, CloseDirectory> listing(opendir((prefix + directory).c_str()));
  int error = errno;
  while (listing != nullptr) {
    errno = 0;
    const dirent* const entry = readdir(listing.get());
    error = errno;
    if (entry == nullptr) break;
    const std::string name = entry->d_name;
    if (is_rotated_name(base, name)) add(found, prefix, directory + name);
  }
  if (error != 0 && !is_no_log(error)) found.unreadable.emplace_back(directory, error, false);
  return found;
}

bool may_be_among(const std::vector<UnreadableFile>& unreadable, const std::string& prefix, const Inode& inode) {
  return std::any_of(unreadable.begin(), unreadable.end(), [&](const UnreadableFile& file) {
    struct stat status {};
    if (lstat((prefix + file.path).c_str(), &status) == -1) return false;
    return S_ISDIR(status.st_mode) || inode == Inode(status.st_dev, status.st_ino);
  });
}

bool is_on_device(const std::string& path, uint64_t device) {
  struct stat status {};
  for (size_t length = path.rfind('/'); length != std::string::npos; length = path.rfind('/', length - 1)) {
    const std::string directory = path.substr(0, std::max<size_t>(length, 1));
    if (stat(directory.c_str(), &status) == 0) return status.st_dev == device;
    if (length == 0) break;
  }
  return false;
}

std::optional<Surroundings> look_around(const std::string& prefix, const std::string& path) {
  Names before;
  for (int look = 0; look < most_looks; ++look) {
    Surroundings all{look_at(prefix, path), find_beside(prefix, path)};
    Names now;
    if (all.present) now.add(path, all.present->device, all.present->inode, false);
    now.add(all.beside.files);
    if (look > 0 && now.are(before) && !all.beside.is_moving) return all;
    before = std::move(now);
  }
  return std::nullopt;
}

int64_t last_newline(const OpenFile& file, const std::string& path, int64_t first, int64_t end) {
  for (int64_t block_end = end; block_end > first;) {
    const int64_t start = std::max(first, block_end - static_cast<int64_t>(block_size));
    const std::string block = read_at(file, path, start, static_cast<size_t>(block_end - start));
    const size_t newline = block.rfind('\n');
    if (newline != std::string::npos) return start + static_cast<int64_t>(newline);
    block_end = start;
  }
  return -1;
}
