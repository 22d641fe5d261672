#include "archiver/file_search.h"

#include <utility>

#include "archiver/failures.h"

/* Returns where those files are that section speaks of and that are wanted, whatever is planned with them. */
FileSearch::Places FileSearch::places_of(const Wanted& is_wanted) const {
  Places places;
  const auto see = [&](const LogFile& file) {
    to.desk.check_cancelled();
    if (is_wanted(file)) places.paths.push_back(file.path);
  };
  if (to.section.follow.empty()) {
    places.unreadable = see_matching(to.prefix, to.section.files, see);
    return places;
  }
  Found beside = find_beside(to.prefix, to.section.follow);
  for (const LogFile& file : beside.files) see(file);
  places.unreadable = std::move(beside.unreadable);
  if (const auto present = look_at(to.prefix, to.section.follow)) see(*present);
  return places;
}

std::optional<FileSearch::FoundFile> FileSearch::find(const std::string& path, const Wanted& is_it) const {
  const auto open_it = [&](const std::string& place) -> std::optional<FoundFile> {
    try {
      OpenFile file(to.prefix, place);
      if (!file.is_open()) return std::nullopt;
      LogFile now = describe(file, path);
      if (is_it(now)) return FoundFile{std::move(file), std::move(now)};
    } catch (const UnreadableFile&) {
      /* Whatever stands there now, it is not the file. */
    }
    return std::nullopt;
  };
  if (auto file = open_it(path)) return file;
  for (const std::string& place : places_of(is_it).paths) {
    if (auto file = open_it(place)) return file;
  }
  return std::nullopt;
}

bool FileSearch::is_only_unreadable(const Identity& identity) const {
  for (const UnreadableFile& file : places_of([](const LogFile&) { return false; }).unreadable) {
    if (!may_be_among({file}, to.prefix, inode_of(identity))) continue;
    to.desk.report(error_of(file));
    return true;
  }
  return false;
}

bool FileSearch::report_gone(const std::string& path, const ArchivedFile& file, int64_t first) const {
  const auto is_same = [&file](const LogFile& other) { return is_same_file(file.identity, other); };
  if (!places_of(is_same).paths.empty() || !is_on_device(to.prefix + path, file.identity.device)) return false;
  to.desk.report(error_of_lost(path, first, file.size));
  to.desk.with_store([&](Store& store) { store.forget_seen(to.section.name, file.identity); });
  return true;
}
