#include "plan/growing_file.h"

#include <algorithm>
#include <cctype>
#include <tuple>

namespace {

using Files = std::vector<LogFile>;

bool is_older(const LogFile& a, const LogFile& b) {
  return std::tie(a.mtime_ns, a.path) < std::tie(b.mtime_ns, b.path);
}

/* N of a name that goes on with ".N", which each rotation counts up; -1 for others, those with a date among them. */
int number_of(const std::string& path, const LogFile& file) {
  constexpr size_t most_digits = 3;
  const std::string rest = file.path.substr(std::min(path.size() + 1, file.path.size()));
  size_t digits = 0;
  while (digits < rest.size() && isdigit(static_cast<unsigned char>(rest[digits])) != 0) ++digits;
  const bool is_number = digits > 0 && digits <= most_digits && (digits == rest.size() || rest[digits] == '.');
  return is_number ? std::stoi(rest.substr(0, digits)) : -1;
}

/* Oldest first. Where all have numbers these say it: a clock that was set back has no part in them. */
void sort_by_age(const std::string& path, Files& files) {
  std::sort(files.begin(), files.end(), is_older);
  const auto has_number = [&path](const LogFile& file) { return number_of(path, file) != -1; };
  if (!std::all_of(files.begin(), files.end(), has_number)) return;
  std::stable_sort(files.begin(), files.end(),
                   [&path](const LogFile& a, const LogFile& b) { return number_of(path, a) > number_of(path, b); });
}

/* A log does not get shorter: one with less in it than a look has seen is another one, however it begins. */
bool is_long_enough(const Progress& progress, const LogFile& file) { return file.size >= progress.seen; }

/* Takes the rest of the file that progress speaks of, which was not empty, out of beside, which is sorted. */
std::optional<LogFile> take_old_file(const Progress& progress, const std::optional<LogFile>& present, Files& beside,
                                     const std::vector<Identity>& known) {
  auto old = std::find_if(beside.begin(), beside.end(), [&](const LogFile& file) {
    return is_same_file(progress.identity, file) && is_long_enough(progress, file);
  });
  if (old == beside.end() && may_have_copies(progress, present, beside)) {
    old = std::find_if(beside.begin(), beside.end(), [&](const LogFile& file) {
      return begins_like(progress.identity, file) && is_long_enough(progress, file) && !is_one_of(known, file);
    });
  }
  if (old == beside.end()) return std::nullopt;
  LogFile found = *old;
  beside.erase(old);
  return found;
}

/* One that is emptied in the middle of the look has its old length, and not that many bytes. */
bool is_seen_whole(const LogFile& file) {
  return file.head.size() == std::min(head_size, static_cast<size_t>(file.size));
}

/*
 * Whether a file that was earlier is what was seen of it later. Of one whose first bytes were fewer then, only their
 * checksum is left, with which nothing can be compared.
 */
bool may_have_become(const Identity& earlier, const Identity& later) {
  return inode_of(earlier) == inode_of(later) && (earlier.head_length < later.head_length || earlier == later);
}

Stretch rest_of(const LogFile& file, int64_t first, bool grows) { return {file, first, file.size, grows, false}; }

Stretch lost(const LogFile& file, int64_t first, int64_t end) { return {file, first, end, false, true}; }

Stretch lost(const std::string& path, const Progress& progress) {
  LogFile gone;
  gone.path = path;
  return lost(gone, progress.offset, progress.seen);
}

/*
 * A file that was empty has nothing by which it would be told from what was in its place since, and nothing of it is
 * archived: whatever has come since comes whole.
 */
bool was_empty(const Progress& progress) { return progress.identity.head_length == 0; }

/*
 * Whether file may be a copy of present that is being made, or was made a moment ago, and present be truncated next. It
 * is looked at again then. One of the same length may be a copy whatever the clock says; an empty file has none.
 */
bool may_be_copy_of(const LogFile& present, const LogFile& file) {
  const size_t length = std::min(present.head.size(), file.head.size());
  if (length == 0 || present.head.compare(0, length, file.head, 0, length) != 0) return false;
  return file.mtime_ns >= present.mtime_ns || file.size == present.size;
}

constexpr int64_t second_ns = 1000000000;

/* Compressing a file leaves it its time of modification, sometimes without the part of a second. */
bool is_compressed_form_of(const std::vector<ArchivedFile>& known, const LogFile& file) {
  return is_compressed(file) && std::any_of(known.begin(), known.end(), [&file](const ArchivedFile& k) {
           return k.mtime_ns / second_ns == file.mtime_ns / second_ns;
         });
}

/* Whether file is one of known, which was compressed and is unpacked again, or copied with its time. */
bool is_copy_of(const std::vector<ArchivedFile>& known, const LogFile& file) {
  return std::any_of(known.begin(), known.end(), [&file](const ArchivedFile& k) {
    const bool has_its_time = file.mtime_ns == k.mtime_ns || file.mtime_ns == k.mtime_ns / second_ns * second_ns;
    return has_its_time && file.size == k.size && begins_like(k.identity, file);
  });
}

/*
 * Whether file is the log that progress speaks of, compressed, with nothing in it that is not archived. Its time is the
 * same to the part of a second: more may have been written in the second of the last look.
 */
bool is_archived_form_of(const Progress& progress, const LogFile& file) {
  return is_compressed(file) && progress.offset == progress.seen && file.mtime_ns == progress.mtime_ns;
}

/* Of one in several parts the last may say that there is nothing in it, but such a form is longer. */
bool is_form_of_nothing(const LogFile& file) {
  return file.plain_size == 0 && file.size < static_cast<int64_t>(head_size);
}

/* Whole files between the old one and the new one. */
void plan_files_between(const Progress& progress, const std::optional<LogFile>& present, const Files& beside,
                        const std::vector<Identity>& known, std::vector<Stretch>& plan) {
  for (const LogFile& file : beside) {
    if (file.size == 0 || is_form_of_nothing(file) || (present && may_be_copy_of(*present, file))) continue;
    const bool is_done =
        !was_empty(progress) && is_long_enough(progress, file) && is_same_file(progress.identity, file);
    if (is_one_of(known, file) || is_done) continue;
    if (!is_compressed(file)) {
      plan.push_back(rest_of(file, 0, false));
    } else {
      plan.push_back(lost(file, 0, file.plain_size <= 0 ? file.size : file.plain_size));
    }
  }
}

}  // namespace

bool operator==(const Progress& a, const Progress& b) {
  return a.identity == b.identity && std::tie(a.offset, a.seen, a.mtime_ns, a.finished, a.log) ==
                                         std::tie(b.offset, b.seen, b.mtime_ns, b.finished, b.log);
}

Progress progress_at_first(const std::optional<LogFile>& present) {
  if (!present) return {};
  return {identity_of(*present), 0, present->size, present->mtime_ns, false};
}

bool is_in_progress(const Progress& progress, const LogFile& file) {
  return !progress.finished && !was_empty(progress) && is_same_file(progress.identity, file) &&
         is_long_enough(progress, file);
}

bool may_have_copies(const Progress& progress, const std::optional<LogFile>& present,
                     const std::vector<LogFile>& beside) {
  const auto is_at_its_inode = [&](const LogFile& file) { return inode_of(file) == inode_of(progress.identity); };
  return progress.identity.head_length == head_size || progress.identity.inode == 0 ||
         (present && is_at_its_inode(*present)) || std::any_of(beside.begin(), beside.end(), is_at_its_inode);
}

Progress progress_as_seen(const std::string& path, const Progress& progress, const std::optional<LogFile>& present,
                          std::vector<LogFile> beside, const std::vector<Identity>& known) {
  if (progress.finished || was_empty(progress)) return progress;
  sort_by_age(path, beside);
  const bool is_there = present && is_in_progress(progress, *present);
  const auto file = is_there ? present : take_old_file(progress, present, beside, known);
  const bool is_emptied = present && !is_there && inode_of(*present) == inode_of(progress.identity);
  Progress now = progress;
  if (!file && is_emptied) now.identity.device = now.identity.inode = 0;
  if (!file || !is_seen_whole(*file)) return now;
  now.identity = identity_of(*file);
  now.seen = file->size;
  now.mtime_ns = file->mtime_ns;
  return now;
}

std::vector<LogFile> files_to_pass_over(const std::optional<Progress>& progress, const std::optional<LogFile>& present,
                                        const std::vector<LogFile>& beside, const std::vector<ArchivedFile>& known) {
  std::vector<LogFile> passed;
  for (const LogFile& file : beside) {
    const auto is_it = [&file](const ArchivedFile& k) { return is_same_file(k.identity, file); };
    if (file.size == 0 || std::any_of(known.begin(), known.end(), is_it)) continue;
    const bool is_earlier = !progress && !(present && may_be_copy_of(*present, file));
    const bool is_archived = progress && is_archived_form_of(*progress, file);
    if (is_earlier || is_archived || is_compressed_form_of(known, file) || is_copy_of(known, file)) {
      passed.push_back(file);
    }
  }
  return passed;
}

std::vector<Stretch> plan_growing_file(const std::string& path, const std::optional<Progress>& progress,
                                       const std::optional<LogFile>& present, std::vector<LogFile> beside,
                                       const std::vector<Identity>& known) {
  std::vector<Stretch> plan;
  const bool is_known = progress && !progress->finished && !was_empty(*progress);
  if (progress && present && is_in_progress(*progress, *present)) {
    plan.push_back(rest_of(*present, progress->offset, true));
    return plan;
  }
  if (progress) {
    sort_by_age(path, beside);
    if (is_known) {
      const std::optional<LogFile> old = take_old_file(*progress, present, beside, known);
      const bool is_archived = std::any_of(beside.begin(), beside.end(),
                                           [&](const LogFile& file) { return is_archived_form_of(*progress, file); });
      if (old) {
        plan.push_back(rest_of(*old, progress->offset, false));
      } else if (!is_archived) {
        plan.push_back(lost(path, *progress));
      }
    }
    plan_files_between(*progress, present, beside, known, plan);
  }
  const bool is_new_in_use = present && present->size > 0;
  if (!is_new_in_use && !plan.empty() && !plan.back().lost) {
    plan.back().grows = true;
    return plan;
  }
  if (present) plan.push_back(rest_of(*present, 0, true));
  return plan;
}

std::vector<Stretch> plan_late_ends(const std::vector<LogFile>& beside, const std::vector<ArchivedFile>& archived) {
  std::vector<Stretch> plan;
  for (const LogFile& file : beside) {
    int64_t end = -1;
    for (const ArchivedFile& a : archived) {
      if (is_same_file(a.identity, file)) end = std::max(end, a.size);
    }
    if (end == -1 || is_compressed(file)) continue;
    if (end < file.size) plan.push_back(rest_of(file, end, false));
  }
  return plan;
}

int64_t archived_bytes(const std::vector<ArchivedFile>& archived, const ArchivedFile& seen) {
  int64_t bytes = 0;
  for (const ArchivedFile& file : archived) {
    if (may_have_become(file.identity, seen.identity) && file.size <= seen.size) bytes = file.size;
  }
  return bytes;
}

int64_t end_of_piece(const Stretch& stretch, int64_t first,
                     const std::function<int64_t(int64_t first, int64_t end)>& last_newline) {
  const int64_t end = std::min(stretch.end, first + longest_piece);
  const bool is_last = end == stretch.end;
  if (is_last && !stretch.grows) return end;
  const int64_t newline = end > first ? last_newline(first, end) : -1;
  if (newline != -1) return newline + 1;
  return is_last ? first : end;
}

int32_t pieces_of(const Stretch& stretch) {
  if (stretch.lost) return 0;
  return static_cast<int32_t>((stretch.end - stretch.first + longest_piece - 1) / longest_piece);
}

bool is_rotated_name(const std::string& base, const std::string& name) {
  return name.size() > base.size() + 1 && name.rfind(base, 0) == 0 &&
         (name[base.size()] == '.' || name[base.size()] == '-');
}
