#include "plan/seen_files.h"

#include <algorithm>

#include "plan/by_inode.h"

namespace {

bool is_older(const ArchivedFile& a, const ArchivedFile& b) { return a.mtime_ns < b.mtime_ns; }

}  // namespace

SeenFiles::SeenFiles(const std::vector<ArchivedFile>& before) {
  seen.reserve(before.size());
  for (const ArchivedFile& file : before) seen.push_back({file});
  std::sort(seen.begin(), seen.end(), ByInode());
}

void SeenFiles::see(const LogFile& file) {
  const auto [first, last] = std::equal_range(seen.begin(), seen.end(), inode_of(file), ByInode());
  for (auto entry = first; entry != last; ++entry) {
    /* One that got shorter has lost what it had. */
    const bool is_it = is_same_file(entry->file.identity, file) && file.size >= entry->file.size;
    entry->is_there = entry->is_there || is_it;
  }
}

SeenChanges SeenFiles::changes(const std::vector<ClosedFile>& waiting) const {
  SeenChanges changes;
  std::vector<bool> waits(seen.size());
  for (const ClosedFile& now : waiting) {
    if (now.as.size == 0) continue;
    const auto [first, last] = std::equal_range(seen.begin(), seen.end(), inode_of(now.as.identity), ByInode());
    const auto same = std::find_if(first, last, [&now](const Seen& entry) { return entry.file == now.as; });
    if (same == last) {
      changes.fresh.push_back(&now);
    } else {
      waits[static_cast<size_t>(same - seen.begin())] = true;
    }
  }
  for (size_t i = 0; i < seen.size(); ++i) {
    if (seen[i].is_there && !waits[i]) changes.outdated.push_back(seen[i].file.identity);
  }
  return changes;
}

std::vector<ArchivedFile> SeenFiles::missing() const {
  std::vector<ArchivedFile> missing;
  for (const Seen& entry : seen) {
    if (!entry.is_there) missing.push_back(entry.file);
  }
  std::sort(missing.begin(), missing.end(), is_older);
  return missing;
}
