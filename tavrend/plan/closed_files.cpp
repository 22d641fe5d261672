#include "plan/closed_files.h"

#include <algorithm>
#include <tuple>
#include <utility>

#include "plan/by_inode.h"

bool operator==(const ArchivedFile& a, const ArchivedFile& b) {
  return a.identity == b.identity && std::tie(a.size, a.mtime_ns) == std::tie(b.size, b.mtime_ns);
}

bool is_archived(const ArchivedFile& archived, const LogFile& file) {
  return archived.size == file.size && archived.mtime_ns == file.mtime_ns && is_same_file(archived.identity, file);
}

int64_t length_of_part(int64_t left, bool compressed) {
  constexpr int64_t longest_item = 0xFFFFFFFF;
  constexpr int64_t longest_compressed = longest_item - int64_t{64} * 1024 * 1024;
  return std::min(left, compressed ? longest_compressed : longest_item);
}

ClosedFiles::ClosedFiles(const std::vector<ArchivedFile>& archived) {
  known.reserve(archived.size());
  for (const ArchivedFile& file : archived) known.push_back({file});
  std::sort(known.begin(), known.end(), ByInode());
}

void ClosedFiles::see(const LogFile& file) {
  devices.insert(file.device);
  const auto [first, last] = std::equal_range(known.begin(), known.end(), inode_of(file), ByInode());
  const auto is_it = [&file](const Known& entry) { return is_archived(entry.file, file); };
  const bool is_done = std::any_of(first, last, is_it);
  /* What it was before is gone when it is archived as what it is now. */
  for (auto entry = first; entry != last; ++entry) {
    entry->is_there = entry->is_there || (is_done ? is_it(*entry) : is_same_file(entry->file.identity, file));
  }
  if (is_done) return;
  const ClosedFile now{file.path, {identity_of(file), file.size, file.mtime_ns}};
  ClosedFile& kept = waiting.emplace(inode_of(file), now).first->second;
  if (!(kept.as == now.as) || now.path < kept.path) kept = now;
}

bool ClosedFiles::is_missing(const ArchivedFile& archived) const {
  const auto [first, last] = std::equal_range(known.begin(), known.end(), inode_of(archived.identity), ByInode());
  return devices.count(archived.identity.device) != 0 && std::any_of(first, last, [&archived](const Known& entry) {
           return entry.file == archived && !entry.is_there;
         });
}

std::vector<ClosedFile> ClosedFiles::take_waiting() {
  std::vector<ClosedFile> files;
  files.reserve(waiting.size());
  for (auto& [inode, file] : waiting) files.push_back(std::move(file));
  waiting.clear();
  std::sort(files.begin(), files.end(), [](const ClosedFile& a, const ClosedFile& b) {
    return std::tie(a.as.mtime_ns, a.path) < std::tie(b.as.mtime_ns, b.path);
  });
  return files;
}
