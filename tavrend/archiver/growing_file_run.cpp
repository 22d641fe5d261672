#include "archiver/growing_file_run.h"

#include <algorithm>
#include <string>

#include "archiver/failures.h"
#include "plan/rotated_away.h"
#include "sources/clock.h"

namespace {

int32_t pieces_of(const std::vector<Stretch>& stretches) {
  int32_t pieces = 0;
  for (const Stretch& stretch : stretches) pieces += pieces_of(stretch);
  return pieces;
}

/* What was seen of them says the store, but of the one that progress speaks of. */
std::vector<ClosedFile> waiting_files(const GrowingFileRun::Look& look) {
  std::vector<ClosedFile> waiting;
  for (const std::vector<Stretch>* stretches : {&look.late, &look.plan}) {
    for (const Stretch& s : *stretches) {
      if (s.lost || is_in_progress(look.progress, s.file)) continue;
      waiting.push_back({s.file.path, {identity_of(s.file), s.file.size, s.file.mtime_ns}});
    }
  }
  return waiting;
}

/* Returns how many items are waiting of the log itself. Of what cannot be read there is one at the least. */
int32_t waiting_pieces(const GrowingFileRun::Look& look) {
  return pieces_of(look.plan) + static_cast<int32_t>(look.around.beside.unreadable.size());
}

}  // namespace

/*
 * Returns how far the log is archived. What was archived of another one under the section's name says nothing about it;
 * an old state does not say which log it was.
 */
std::optional<Progress> GrowingFileRun::known_progress(Store& store) const {
  auto progress = store.progress(to.section.name, log);
  if (progress || store.has_followed(to.section.name)) return progress;
  progress = store.progress(to.section.name);
  if (!progress || progress->finished) return std::nullopt;
  progress->log = log;
  return progress;
}

bool GrowingFileRun::is_new() const {
  return !to.desk.with_store([&](Store& store) { return known_progress(store); });
}

std::optional<GrowingFileRun::Look> GrowingFileRun::look(Unreadable unreadable_ones) const {
  auto around = look_around_it();
  if (!around || is_away(*around)) return std::nullopt; /* the next run looks again */
  if (unreadable_ones == Unreadable::are_reported) {
    for (const UnreadableFile& file : around->beside.unreadable) to.desk.report(error_of(file));
  }
  Look look{std::move(*around), {}, {}, {}};
  const std::optional<LogFile>& present = look.around.present;
  const std::vector<LogFile>& beside = look.around.beside.files;
  if (!end_compressed(look.around)) return std::nullopt;
  look.progress = begin_look(look.around);
  SeenFiles seen(to.desk.with_store([&](Store& store) { return store.seen_files(to.section.name, log); }));
  for (const LogFile& file : beside) seen.see(file);
  if (present) seen.see(*present);
  report_lost(look, seen);
  /* However it begins, the log itself is none of those that were rotated. */
  if (present) to.desk.with_store([&](Store& store) { store.note_new_file(to.section.name, *present); });
  const auto archived = to.desk.with_store([&](Store& store) { return store.archived_files(to.section.name); });
  const auto known = to.desk.with_store([&](Store& store) { return store.known_files(to.section.name); });
  look.progress = progress_as_seen(to.section.follow, look.progress, present, beside, known);
  look.late = plan_late_ends(beside, archived);
  look.plan = plan_growing_file(to.section.follow, look.progress, present, beside, known);
  note_waiting(look, seen);
  return look;
}

std::optional<Surroundings> GrowingFileRun::look_around_it() const {
  try {
    auto around = look_around(to.prefix, to.section.follow);
    if (around) leave_out_unfinished_forms(around->beside.files);
    return around;
  } catch (const UnreadableFile&) {
    to.desk.set_waiting(to.section, 1); /* at the least */
    throw;
  }
}

/* Whether nothing is there because the file system is missing on which the log was read last. */
bool GrowingFileRun::is_away(const Surroundings& around) const {
  if (around.present || !around.beside.files.empty()) return false;
  const auto progress = to.desk.with_store([&](Store& store) { return known_progress(store); });
  if (!progress || progress->identity.device == 0) return false;
  return !is_on_device(log, progress->identity.device);
}

/* Notes which files beside a log are none of its business. Returns how far the log is archived. */
Progress GrowingFileRun::begin_look(const Surroundings& around) const {
  return to.desk.with_store([&](Store& store) {
    const auto before = known_progress(store);
    const auto archived = store.noted_files(to.section.name);
    const auto passed = files_to_pass_over(before, around.present, around.beside.files, archived);
    Progress now = before ? *before : progress_at_first(around.present);
    now.log = log;
    store.note_look(to.section.name, now, passed, Store::Known::passed_over);
    ClosedFiles look(archived);
    for (const LogFile& file : around.beside.files) look.see(file);
    if (around.present) look.see(*around.present);
    if (around.beside.unreadable.empty()) store.forget_missing_files(to.section.name, look, now_ms());
    return now;
  });
}

/*
 * Ends the file that was read last where it is only there compressed by now. Of what is in that form only what is not
 * archived was lost, and where the form says how much there is in it, that may be nothing. Returns false where an item
 * of it is on its way, with which the next session begins: only then it is known how much that is.
 */
bool GrowingFileRun::end_compressed(const Surroundings& around) const {
  const auto progress = to.desk.with_store([&](Store& store) { return known_progress(store); });
  const auto known = to.desk.with_store([&](Store& store) { return store.known_files(to.section.name); });
  if (!progress || may_be_among(around.beside.unreadable, to.prefix, inode_of(progress->identity))) return true;
  const auto form = compressed_form(*progress, around.present, around.beside.files, known);
  if (!form) return true;
  if (items.is_on_its_way(progress->identity)) return false;
  if (!is_all_archived(*progress, *form)) {
    const int64_t end = end_of_file(*form, progress->seen);
    to.desk.report(error_of_lost(to.section.follow, progress->offset, end));
  }
  Progress gone = *progress;
  gone.finished = true;
  to.desk.with_store([&](Store& store) { store.note_look(to.section.name, gone, {*form}, Store::Known::passed_over); });
  return true;
}

void GrowingFileRun::note_waiting(const Look& look, const SeenFiles& seen) const {
  const auto waiting = waiting_files(look);
  to.desk.with_store(
      [&](Store& store) { store.note_seen(to.section.name, log, look.progress, seen.changes(waiting)); });
  to.desk.set_waiting(to.section, pieces_of(look.late) + waiting_pieces(look));
}

/*
 * Reports what a look has found and this one does not. What there is of it in compressed form needs no other report.
 */
void GrowingFileRun::report_lost(const Look& look, const SeenFiles& seen) const {
  const auto archived = to.desk.with_store([&](Store& store) { return store.noted_files(to.section.name); });
  const auto known = to.desk.with_store([&](Store& store) { return store.known_files(to.section.name); });
  const Found& beside = look.around.beside;
  for (const ArchivedFile& file : seen.missing()) {
    const bool is_unreadable = may_be_among(beside.unreadable, to.prefix, inode_of(file.identity));
    if (is_unreadable || items.is_on_its_way(file.identity)) continue;
    const auto form = compressed_form(file, beside.files, known);
    if (!has_copy(file, beside.files, known)) {
      const std::string path =
          to.desk.with_store([&](Store& store) { return store.path_of_seen(to.section.name, file.identity); });
      const int64_t end = form ? end_of_file(*form, file.size) : file.size;
      to.desk.report(error_of_lost(path, archived_bytes(archived, file), end));
      if (form) {
        to.desk.with_store(
            [&](Store& store) { store.note_look(to.section.name, std::nullopt, {*form}, Store::Known::passed_over); });
      }
    }
    to.desk.with_store([&](Store& store) { store.forget_seen(to.section.name, file.identity); });
  }
}

void GrowingFileRun::archive() {
  const auto now = look(Unreadable::are_reported);
  if (!now || !archive_late_ends(now->late)) return;
  if (!is_only_unreadable(*now)) carry_out(*now);
}

/* What is only not readable is not lost: it waits, and what comes behind it, too. */
bool GrowingFileRun::is_only_unreadable(const Look& look) const {
  const auto is_not_found = [&](const Stretch& stretch) {
    return stretch.lost && stretch.file.path == to.section.follow;
  };
  return std::any_of(look.plan.begin(), look.plan.end(), is_not_found) &&
         may_be_among(look.around.beside.unreadable, to.prefix, inode_of(look.progress.identity));
}

/* What comes behind them waits when one of them fails. */
bool GrowingFileRun::archive_late_ends(const std::vector<Stretch>& late) const {
  return std::all_of(late.begin(), late.end(),
                     [&](const Stretch& stretch) { return archive_pieces(stretch).has_value(); });
}

void GrowingFileRun::carry_out(const Look& look) const {
  int32_t waiting = waiting_pieces(look);
  for (const Stretch& stretch : look.plan) {
    to.desk.set_waiting(to.section, waiting);
    if (stretch.lost) {
      give_up_lost(look.progress, stretch);
    } else if (!archive_stretch(stretch)) {
      break; /* what comes behind it waits: pieces keep their order */
    }
    waiting -= pieces_of(stretch);
  }
  to.desk.set_waiting(to.section, waiting);
}

/*
 * Reports what was lost, once: the rest of the file that was read last, or one that is there, but only compressed.
 */
void GrowingFileRun::give_up_lost(const Progress& progress, const Stretch& stretch) const {
  to.desk.report(error_of_lost(stretch.file.path, stretch.first, stretch.end));
  to.desk.with_store([&](Store& store) {
    const auto as = Store::Known::passed_over;
    if (stretch.file.path != to.section.follow) {
      return store.note_look(to.section.name, std::nullopt, {stretch.file}, as);
    }
    Progress gone = progress;
    gone.finished = true;
    store.note_look(to.section.name, gone, {}, as);
  });
}

/* Returns up to where the stretch is archived; nothing where it cannot go on. */
std::optional<int64_t> GrowingFileRun::archive_pieces(const Stretch& stretch) const {
  const OpenFile file(to.prefix, stretch.file.path);
  if (!file.is_open() || !is_same_file(identity_of(stretch.file), describe(file, stretch.file.path))) return {};
  int64_t first = stretch.first;
  const auto newline = [&](int64_t from, int64_t end) { return last_newline(file, stretch.file.path, from, end); };
  for (;;) {
    const int64_t end = end_of_piece(stretch, first, newline);
    if (end == first) return end;
    const Intent intent{to.section.name, "", stretch.file, true, stretch.grows, first, end - first, log};
    if (!items.send_range(file, intent)) return {};
    first = end;
  }
}

bool GrowingFileRun::archive_stretch(const Stretch& stretch) const {
  const auto end = archive_pieces(stretch);
  if (!end) return false;
  const bool is_whole = !stretch.grows && *end == stretch.end;
  const Progress now{identity_of(stretch.file), *end, stretch.file.size, stretch.file.mtime_ns, is_whole, log};
  const std::vector<LogFile> known = is_whole ? std::vector<LogFile>{stretch.file} : std::vector<LogFile>{};
  to.desk.with_store([&](Store& store) { store.note_look(to.section.name, now, known, Store::Known::archived); });
  return true;
}
