#include "plan/rotated_away.h"

#include <algorithm>
#include <map>
#include <string>

namespace {

constexpr int64_t second_ns = 1000000000;

/* Compressing a file leaves it its time of modification, sometimes without the part of a second. */
bool is_of(const LogFile& file, int64_t mtime_ns) { return file.mtime_ns / second_ns == mtime_ns / second_ns; }

/* Returns the oldest of the compressed ones among beside that is no other file and is wanted. */
template <class Wanted>
std::optional<LogFile> first_of(const std::vector<LogFile>& beside, const std::vector<Identity>& known, Wanted wanted) {
  std::optional<LogFile> first;
  for (const LogFile& file : beside) {
    if (!is_compressed(file) || is_one_of(known, file) || !wanted(file)) continue;
    if (!first || file.mtime_ns < first->mtime_ns) first = file;
  }
  return first;
}

}  // namespace

bool has_copy(const ArchivedFile& seen, const std::vector<LogFile>& beside, const std::vector<Identity>& known) {
  return seen.identity.head_length > 0 && std::any_of(beside.begin(), beside.end(), [&](const LogFile& file) {
           return begins_like(seen.identity, file) && file.size >= seen.size && !is_one_of(known, file);
         });
}

std::optional<LogFile> compressed_form(const ArchivedFile& seen, const std::vector<LogFile>& beside,
                                       const std::vector<Identity>& known) {
  return first_of(beside, known,
                  [&](const LogFile& file) { return is_of(file, seen.mtime_ns) || file.plain_size == seen.size; });
}

std::optional<LogFile> compressed_form(const Progress& progress, const std::optional<LogFile>& present,
                                       const std::vector<LogFile>& beside, const std::vector<Identity>& known) {
  if (progress.finished || progress.identity.head_length == 0) return std::nullopt;
  const int64_t bytes = progress.offset == 0 ? progress.seen : progress.offset;
  const ArchivedFile archived{progress.identity, bytes, progress.mtime_ns};
  if (may_have_copies(progress, present, beside) && has_copy(archived, beside, {})) return std::nullopt;
  if (present && is_in_progress(progress, *present)) return std::nullopt;
  if (auto form = compressed_form(archived, beside, known)) return form;
  /* What stands in its place since was written behind a copy of it. */
  if (!present || inode_of(*present) != inode_of(progress.identity)) return std::nullopt;
  return first_of(beside, known, [&](const LogFile& file) {
    return file.mtime_ns / second_ns >= progress.mtime_ns / second_ns && file.plain_size > progress.offset;
  });
}

bool is_all_archived(const Progress& progress, const LogFile& form) {
  if (form.plain_size != -1) return end_of_file(form, progress.seen) <= progress.offset;
  return form.mtime_ns == progress.mtime_ns && progress.offset == progress.seen;
}

int64_t end_of_file(const LogFile& form, int64_t seen) { return std::max(form.plain_size, seen); }

void leave_out_unfinished_forms(std::vector<LogFile>& beside) {
  std::map<std::string, int64_t> times;
  for (const LogFile& file : beside) times[file.path] = file.mtime_ns;
  const auto is_unfinished = [&times](const LogFile& file) {
    const size_t ending = file.path.rfind('.');
    if (!is_compressed(file) || ending == std::string::npos) return false;
    const auto plain = times.find(file.path.substr(0, ending));
    return plain != times.end() && file.mtime_ns > plain->second;
  };
  beside.erase(std::remove_if(beside.begin(), beside.end(), is_unfinished), beside.end());
}
