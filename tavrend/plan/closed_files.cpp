#include "plan/closed_files.h"

#include <algorithm>
#include <map>
#include <set>
#include <tuple>

bool is_archived(const ArchivedFile& archived, const LogFile& file) {
  return archived.size == file.size && archived.mtime_ns == file.mtime_ns && is_same_file(archived.identity, file);
}

std::vector<LogFile> files_to_archive(std::vector<LogFile> found, const std::vector<ArchivedFile>& archived) {
  /* There may be tens of thousands of both, so that each is not compared with each. */
  std::multimap<Inode, const ArchivedFile*> archived_at;
  for (const ArchivedFile& file : archived) archived_at.emplace(inode_of(file.identity), &file);
  const auto is_done = [&archived_at](const LogFile& file) {
    const auto [first, last] = archived_at.equal_range(inode_of(file));
    return std::any_of(first, last, [&file](const auto& entry) { return is_archived(*entry.second, file); });
  };
  found.erase(std::remove_if(found.begin(), found.end(), is_done), found.end());
  std::sort(found.begin(), found.end(), [](const LogFile& a, const LogFile& b) {
    return std::tie(a.mtime_ns, a.path) < std::tie(b.mtime_ns, b.path);
  });
  /* Two names of one file are one file. */
  std::vector<LogFile> files;
  std::set<Inode> taken;
  for (LogFile& file : found) {
    if (taken.insert(inode_of(file)).second) files.push_back(std::move(file));
  }
  return files;
}
