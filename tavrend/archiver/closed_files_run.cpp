#include "archiver/closed_files_run.h"

#include <algorithm>
#include <string>

#include "archiver/failures.h"
#include "plan/names.h"
#include "plan/space.h"
#include "sources/clock.h"
#include "sources/local_files.h"
#include "tavren_util.h"

namespace {

/* Of files that are sent in some milliseconds each. */
constexpr size_t most_together = 16;
constexpr int64_t most_bytes_together = 65536; /* of each */

std::string directory_of(const std::string& path) { return path.substr(0, path.rfind('/') + 1); }

FileSearch::Wanted is_exactly(const ClosedFile& file) {
  return [&file](const LogFile& other) { return is_archived(file.as, other); };
}

}  // namespace

ClosedFilesRun::Look ClosedFilesRun::look(Unreadable unreadable_ones) const {
  const std::string pattern = to.prefix + to.section.files;
  ClosedFiles look(to.desk.with_store([&](Store& store) { return store.archived_files(to.section.name); }));
  SeenFiles seen(to.desk.with_store([&](Store& store) { return store.seen_files(to.section.name, pattern); }));
  std::set<std::string> directories;
  const auto unreadable = see_matching(to.prefix, to.section.files, [&](const LogFile& file) {
    to.desk.check_cancelled();
    look.see(file);
    seen.see(file);
    directories.insert(directory_of(file.path));
  });
  if (unreadable_ones == Unreadable::are_reported) {
    for (const UnreadableFile& file : unreadable) to.desk.report(error_of(file));
  }
  if (unreadable.empty()) {
    to.desk.with_store([&](Store& store) { store.forget_missing_files(to.section.name, look, now_ms()); });
  }
  Look found{look.take_waiting(), unreadable.size()};
  to.desk.with_store(
      [&](Store& store) { store.note_seen(to.section.name, pattern, std::nullopt, seen.changes(found.files)); });
  to.desk.set_waiting(to.section, found.waiting());
  report_lost(seen, directories, unreadable);
  return found;
}

/*
 * What only cannot be read is not lost, and neither is what is on a file system that is not there. An item that is on
 * its way may have arrived.
 */
void ClosedFilesRun::report_lost(const SeenFiles& seen, const std::set<std::string>& directories,
                                 const std::vector<UnreadableFile>& unreadable) const {
  for (const ArchivedFile& file : seen.missing()) {
    to.desk.check_cancelled();
    if (may_be_among(unreadable, to.prefix, inode_of(file.identity)) || items.is_on_its_way(file.identity)) continue;
    const std::string path =
        to.desk.with_store([&](Store& store) { return store.path_of_seen(to.section.name, file.identity); });
    const bool is_disk_there =
        directories.count(directory_of(path)) != 0 || is_on_device(to.prefix + path, file.identity.device);
    if (!is_disk_there) continue;
    to.desk.report(error_of_lost(path, begun_at(file), file.size));
    to.desk.with_store([&](Store& store) { store.forget_seen(to.section.name, file.identity); });
  }
}

/* Returns where to go on in a closed file of which some parts are archived, 0 in others. */
int64_t ClosedFilesRun::begun_at(const ArchivedFile& file) const {
  return to.desk.with_store([&](Store& store) { return store.begun_at(to.section.name, file); });
}

void ClosedFilesRun::archive() {
  Look found = look(Unreadable::are_reported);
  int32_t waiting = found.waiting();
  std::vector<ClosedFile>& files = found.files;
  files.erase(std::remove_if(files.begin(), files.end(),
                             [this](const ClosedFile& file) { return items.has_failed(file.as.identity); }),
              files.end());
  Begun together;
  for (const ClosedFile& file : files) {
    to.desk.check_cancelled();
    to.desk.set_waiting(to.section, waiting);
    if (together.empty()) together = begin_together(&file, files.data() + files.size());
    if (together.empty() ? archive_file(file) : archive_begun(file, together)) --waiting;
  }
  to.desk.set_waiting(to.section, waiting);
}

/* Returns whether the file waits no more. */
bool ClosedFilesRun::archive_file(const ClosedFile& file) const {
  const int64_t first = begun_at(file.as);
  try {
    const auto found = search.find(file.path, is_exactly(file));
    if (!found) return !search.is_only_unreadable(file.as.identity) && search.report_gone(file.path, file.as, first);
    return items.send_range(found->open, {to.section.name, "", found->now, false, false, first, file.as.size - first});
  } catch (const UnreadableFile& error) {
    to.desk.report(error_of(error));
    return false;
  }
}

/*
 * Stores the intents of several small files at once, from first on: to wait for the disk is much beside the time that
 * one of them takes. Returns none where there is nothing to win, or where one item may make another one go.
 */
ClosedFilesRun::Begun ClosedFilesRun::begin_together(const ClosedFile* first, const ClosedFile* last) const {
  std::vector<Intent> intents;
  if (to.section.compress || to.work.config.space_limit[to.section.compartment] != no_space_limit) return {};
  int64_t time_ms = to.desk.with_store([&](Store& store) { return store.last_item_time(to.section.name); });
  for (; first != last && first->as.size <= most_bytes_together && intents.size() < most_together; ++first) {
    const auto found = search.find(first->path, is_exactly(*first));
    if (!found) break; /* which is found out once more when its turn comes */
    time_ms = next_item_time(now_ms(), time_ms);
    const std::string name = item_path(to.section.name, time_ms, tavren_basename(first->path), false);
    const int64_t size = first->as.size;
    intents.push_back({to.section.name, name, found->now, false, false, 0, size, "", false, size});
  }
  if (intents.empty()) return {};
  to.session.get(to.work); /* nothing is on its way where there is none */
  to.desk.with_store([&](Store& store) { store.begin_items(intents, time_ms); });
  return {intents.begin(), intents.end()};
}

/* Archives the first of those that were begun together. Returns whether it waits no more. */
bool ClosedFilesRun::archive_begun(const ClosedFile& file, Begun& begun) const {
  const Intent intent = begun.front();
  begun.pop_front();
  if (const auto found = search.find(file.path, is_exactly(file))) return items.send_begun(found->open, intent);
  if (search.is_only_unreadable(file.as.identity)) return false; /* and is taken up by the next run */
  to.desk.with_store([&](Store& store) { store.give_up_item(intent); });
  return search.report_gone(file.path, file.as, 0);
}
