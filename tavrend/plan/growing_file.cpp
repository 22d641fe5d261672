#include "plan/growing_file.h"

#include <algorithm>
#include <charconv>
#include <tuple>

namespace {

using Files = std::vector<LogFile>;

/*
 * Returns the number behind the last point of a name, 0 when that is none, or a date: messages.2 was rotated before
 * messages.1.
 */
int rotations_of(const LogFile& file) {
  int number = 0;
  const char* const end = file.path.data() + file.path.size();
  const auto [rest, error] = std::from_chars(file.path.data() + file.path.rfind('.') + 1, end, number);
  return rest == end && error == std::errc() && number < 1000000 ? number : 0;
}

/*
 * Oldest first; what is from before since was written later all the same, by a clock that was set back. Two of one time
 * are told by their numbers, because some file systems count whole seconds.
 */
void sort_by_age(Files& files, int64_t since) {
  const auto age = [since](const LogFile& file) {
    return std::make_tuple(file.mtime_ns < since, file.mtime_ns, -rotations_of(file));
  };
  std::sort(files.begin(), files.end(), [&age](const LogFile& a, const LogFile& b) {
    const auto age_of_a = age(a);
    const auto age_of_b = age(b);
    return age_of_a != age_of_b ? age_of_a < age_of_b : a.path < b.path;
  });
}

/* Whether the clock was set back since: what is beside is told by what is known alone then, and by no time. */
bool was_set_back(const std::optional<LogFile>& present, int64_t since) { return present && present->mtime_ns < since; }

bool is_one_of(const std::vector<Identity>& known, const LogFile& file) {
  return std::any_of(known.begin(), known.end(), [&file](const Identity& k) { return is_same_file(k, file); });
}

/* Takes the rest of the file that progress speaks of out of beside. A file that is empty so far begins like any other.
 */
std::optional<LogFile> take_old_file(const Progress& progress, const std::optional<LogFile>& present, Files& beside,
                                     const std::vector<Identity>& known) {
  const bool any_age = was_set_back(present, progress.mtime_ns);
  const auto is_long_enough = [&progress](const LogFile& file) { return file.size >= progress.offset; };
  auto old = std::find_if(beside.begin(), beside.end(), [&](const LogFile& file) {
    return is_same_file(progress.identity, file) && is_long_enough(file);
  });
  if (old == beside.end() && progress.identity.head_length > 0) {
    old = std::find_if(beside.begin(), beside.end(), [&](const LogFile& file) {
      return begins_like(progress.identity, file) && is_long_enough(file) &&
             (any_age || file.mtime_ns >= progress.mtime_ns) && !is_one_of(known, file);
    });
  }
  if (old == beside.end()) return std::nullopt;
  LogFile found = *old;
  beside.erase(old);
  return found;
}

Stretch rest_of(const LogFile& file, int64_t first, bool grows) { return {file, first, file.size, grows, false}; }

Stretch lost(const LogFile& file, int64_t first, int64_t end) { return {file, first, end, false, true}; }

Stretch lost_at(const std::string& path, const Progress& progress) {
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
 * is looked at again then. One that is empty has been truncated already.
 */
bool may_be_copy_of(const LogFile& present, const LogFile& file) {
  if (present.size == 0) return false;
  const size_t length = std::min(present.head.size(), file.head.size());
  return file.mtime_ns >= present.mtime_ns && present.head.compare(0, length, file.head, 0, length) == 0;
}

/* Whole files between the old one, which was last written since, and the new one. */
void plan_files_between(const Progress& progress, int64_t since, const std::optional<LogFile>& present,
                        const Files& beside, const std::vector<Identity>& known, std::vector<Stretch>& plan) {
  for (const LogFile& file : beside) {
    if (file.size == 0 || (present && may_be_copy_of(*present, file))) continue;
    const bool is_done = !was_empty(progress) && is_same_file(progress.identity, file);
    if (is_one_of(known, file) || is_done) continue;
    /* A known file that was compressed since is known no more but by its time, which stays what it was. */
    const bool any_age = was_set_back(present, since) && !is_compressed(file);
    if (file.mtime_ns < since && !any_age) continue;
    plan.push_back(is_compressed(file) ? lost(file, 0, file.size) : rest_of(file, 0, false));
  }
}

}  // namespace

std::vector<Stretch> plan_growing_file(const std::string& path, const std::optional<Progress>& progress,
                                       const std::optional<LogFile>& present, std::vector<LogFile> beside,
                                       const std::vector<Identity>& known) {
  std::vector<Stretch> plan;
  const bool is_known = progress && !progress->finished && !was_empty(*progress);
  if (is_known && present && is_same_file(progress->identity, *present) && present->size >= progress->offset) {
    plan.push_back(rest_of(*present, progress->offset, true));
    return plan;
  }
  if (progress) {
    int64_t since = progress->mtime_ns;
    sort_by_age(beside, since);
    if (is_known) {
      const std::optional<LogFile> old = take_old_file(*progress, present, beside, known);
      if (old) since = std::min(since, old->mtime_ns);
      plan.push_back(old ? rest_of(*old, progress->offset, false) : lost_at(path, *progress));
    }
    plan_files_between(*progress, since, present, beside, known, plan);
  }
  const bool is_new_in_use = present && present->size > 0;
  if (!is_new_in_use && !plan.empty() && !plan.back().lost) {
    plan.back().grows = true;
    return plan;
  }
  if (present) plan.push_back(rest_of(*present, 0, true));
  return plan;
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

bool is_rotated_name(const std::string& base, const std::string& name) {
  return name.size() > base.size() + 1 && name.rfind(base, 0) == 0 &&
         (name[base.size()] == '.' || name[base.size()] == '-');
}
