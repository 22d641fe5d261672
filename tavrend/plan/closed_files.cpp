#include "plan/closed_files.h"

#include <algorithm>
#include <tuple>

bool is_archived(const ArchivedFile& archived, const LogFile& file) {
  return archived.size == file.size && archived.mtime_ns == file.mtime_ns && is_same_file(archived.identity, file);
}

std::vector<LogFile> files_to_archive(std::vector<LogFile> found, const std::vector<ArchivedFile>& archived) {
  const auto is_done = [&archived](const LogFile& file) {
    return std::any_of(archived.begin(), archived.end(),
                       [&file](const ArchivedFile& a) { return is_archived(a, file); });
  };
  found.erase(std::remove_if(found.begin(), found.end(), is_done), found.end());
  std::sort(found.begin(), found.end(), [](const LogFile& a, const LogFile& b) {
    return std::tie(a.mtime_ns, a.path) < std::tie(b.mtime_ns, b.path);
  });
  /* Two names of one file are one file. */
  std::vector<LogFile> files;
  for (LogFile& file : found) {
    const auto is_it = [&file](const LogFile& other) {
      return other.device == file.device && other.inode == file.inode;
    };
    if (std::none_of(files.begin(), files.end(), is_it)) files.push_back(std::move(file));
  }
  return files;
}
