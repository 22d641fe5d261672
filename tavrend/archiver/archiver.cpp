#include "archiver/archiver.h"

#include <errno.h>
#include <sys/stat.h>
#include <syslog.h>
#include <time.h>

#include <algorithm>
#include <sstream>
#include <system_error>

#include "TavrenExceptions.h"
#include "TavrenTunables.h"
#include "plan/names.h"
#include "plan/schedule.h"
#include "plan/space.h"
#include "sources/compression.h"
#include "sources/local_files.h"
#include "tavren_util.h"

namespace {

int64_t now_ms() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

TavrenError error_of(const UnreadableFile& file) {
  return TavrenError(file.was_open ? TAVREN_E_FILE_READ : TAVREN_E_FILE_OPEN, file.path,
                     tavren_int_to_string(file.error));
}

TavrenError error_of(const FileChanged& file) {
  return TavrenError(TAVREN_E_FILE_READ, file.what(), tavren_int_to_string(ESTALE));
}

TavrenError error_of(const NoRoom& item) {
  TavrenError error(TAVREN_E_CREATE_REMOTE_FILE, item.what(), "");
  error.add_line(TAVREN_E_SYSCALL, "limit", tavren_int_to_string(EFBIG));
  return error;
}

TavrenError error_of(const std::system_error& failure) {
  return TavrenError(TAVREN_E_SYSCALL, failure.what(), tavren_int_to_string(failure.code().value()));
}

/* What has no error number of its own: the state that cannot be written, memory that has run out. */
TavrenError error_of(const std::exception& failure) {
  return TavrenError(TAVREN_E_SYSCALL, failure.what(), tavren_int_to_string(EIO));
}

/* Why there is no session. */
struct NoSession {
  TavrenError error;
};

/* What there is of an item cannot be removed: until it can, nothing of its section is sent. */
struct ItemStays {};

/* What the far side refuses of one item says nothing about the next. */
bool is_about_one_item(const TavrenError& error) {
  return error.get_ecode() == TAVREN_E_COMMAND_FAILED || error.get_ecode() == TAVREN_E_CREATE_REMOTE_FILE ||
         error.get_ecode() == TAVREN_E_INCORRECT_OUTPUT;
}

std::string base_of(const std::string& path) { return tavren_basename(path); }

/* What the store calls the path of the log that a section follows. */
std::string kind_of_followed(const Section& section) { return "follow." + section.name; }

int64_t size_of(const OpenFile& file) {
  struct stat status {};
  return fstat(file.descriptor(), &status) == 0 ? status.st_size : 0;
}

/* Of files that are sent in some milliseconds each. */
constexpr size_t most_together = 16;
constexpr int64_t most_bytes_together = 65536; /* of each */

/* Returns where to go on in a closed file of which some parts are archived, 0 in others. */
int64_t begun_at(const std::optional<Progress>& begun, const ClosedFile& file) {
  const bool is_it =
      begun && !begun->finished && file.as == ArchivedFile{begun->identity, begun->seen, begun->mtime_ns};
  return is_it ? begun->offset : 0;
}

}  // namespace

Archiver::Archiver(Desk& where, const std::string& temporary)
    : desk(where), directory(temporary), random(first_of_draws(desk.chassis_name(), now_ms())) {}

void Archiver::run() {
  for (bool goes_on = true; goes_on;) {
    try {
      goes_on = work_once();
    } catch (const std::exception& error) {
      /* Memory may run out in the report of a failure, too. */
      syslog(LOG_ERR, "a failure could not be reported: %s", error.what());
      open_session.reset();
      desk.work_has_failed(0);
    }
  }
}

/* Does what is due next, and reports what fails of it as a whole. Returns whether there may be more. */
bool Archiver::work_once() {
  std::optional<TavrenError> failure;
  bool of_session = true;
  try {
    const auto work = desk.wait_for_work();
    if (!work) return false;
    archive(*work);
    desk.work_is_done(*work);
  } catch (const Cancelled&) {
    /* What was on its way is taken up again. */
  } catch (const NoSession& reason) {
    failure = reason.error;
  } catch (const TavrenError& error) {
    failure = error;
  } catch (const TavrenTimeout&) {
    failure = TavrenError(TAVREN_E_COMMAND_TIMEOUT, "archive session", "");
  } catch (const std::system_error& error) {
    failure = error_of(error);
    of_session = false;
  } catch (const std::exception& error) {
    failure = error_of(error);
    of_session = false;
  }
  open_session.reset();
  if (!failure) return true;
  /* Also one that broke behind its login. */
  if (of_session) desk.set_connection(TAVREN_CONNECTION_FAILED, time(nullptr));
  desk.report(*failure);
  desk.work_has_failed(std::uniform_real_distribution<>(0, 1)(random));
  return true;
}

/* Returns the session, opened when there is none: at the beginning, or where the last one broke. */
Session& Archiver::session(const Work& work) {
  if (open_session != nullptr) return *open_session;
  auto fresh = std::make_unique<Session>(desk, work);
  try {
    fresh->open();
    if (work.claim) fresh->claim();
  } catch (const TavrenError& error) {
    /* Not about the item that it was for, whatever the error: a directory that is gone looks like a refused item. */
    throw NoSession{error};
  }
  open_session = std::move(fresh);
  return *open_session;
}

void Archiver::archive(const Work& work) {
  prefix = log_dir_prefix();
  for (const Section& section : work.all) keep_first_look(section);
  /* Otherwise a session is opened when there is something for it. */
  if (work.claim) session(work);
  if (work.measure_space) measure(work);
  for (const Section& section : work.sections) archive_section(work, section);
}

/* Returns how far a log is archived. What was archived of another one under the section's name says nothing about it.
 */
std::optional<Progress> Archiver::known_progress(Store& store, const Section& section) const {
  const std::string followed = store.text(kind_of_followed(section));
  if (!followed.empty() && followed != prefix + section.follow) return std::nullopt;
  return store.progress(section.name);
}

/* Before it is due, and before any session: nothing would be known of a log that is rotated before the first one. */
void Archiver::keep_first_look(const Section& section) {
  if (section.follow.empty()) return;
  if (desk.with_store([&](Store& store) { return known_progress(store, section); })) return;
  try {
    const auto around = look_around(prefix, section.follow);
    if (!around) return;
    begin_look(section, *around);
    if (around->present) desk.set_waiting(section, pieces_of({*around->present, 0, around->present->size}));
  } catch (const UnreadableFile&) {
    /* Which is reported where it is to be archived. */
  }
}

void Archiver::measure(const Work& work) {
  for (int compartment = 0; compartment < 2; ++compartment) {
    if (work.config.space_limit[compartment] == no_space_limit) continue;
    try {
      session(work).used_kib(compartment);
    } catch (const TavrenError& error) {
      const bool took_too_long = error.get_ecode() == TAVREN_E_COMMAND_TIMEOUT;
      if (!took_too_long && !is_about_one_item(error)) throw;
      if (took_too_long) open_session.reset();
      desk.report(error); /* what needs no room goes on */
    }
  }
}

void Archiver::archive_section(const Work& work, const Section& section) {
  try {
    if (!resume(work, section)) return;
    if (section.follow.empty()) {
      archive_closed_files(work, section);
      desk.with_store([](Store& store) { store.sync(); });
    } else {
      archive_growing_file(work, section);
    }
  } catch (const UnreadableFile& file) {
    desk.report(error_of(file));
  } catch (const ItemStays&) {
    /* Which is reported, and tried again by the next run. */
  }
}

/*
 * Carries out the items that were on their way when the daemon or its session ended, under the same names. Returns
 * whether the section can go on.
 */
bool Archiver::resume(const Work& work, const Section& section) {
  const auto open = desk.with_store([&](Store& store) { return store.open_intents(section.name); });
  return std::all_of(open.begin(), open.end(),
                     [&](const Intent& intent) { return resume_item(work, section, intent); });
}

bool Archiver::resume_item(const Work& work, const Section& section, const Intent& intent) {
  const Identity identity = identity_of(intent.file);
  const auto is_it = [&](const LogFile& file) {
    if (intent.follows) return is_same_file(identity, file) && file.size >= intent.first + intent.length;
    return is_archived({identity, intent.file.size, intent.file.mtime_ns}, file);
  };
  if (const auto file = find_again(section, intent.file.path, is_it)) {
    /* What has arrived of it would count against the room that it gets. */
    if (work.config.space_limit[section.compartment] != no_space_limit) remove_item(work, intent.remote_path);
    return try_item(work, section, file->open, intent, false);
  }
  /* What is only not readable waits, and what has arrived of it, too. A log's pieces keep their order. */
  if (only_waits(section, intent.file.path, identity)) return !intent.follows;
  take_back_item(work, section, intent);
  return true;
}

/* Returns where those files are that section speaks of and that are wanted, whatever is planned with them. */
Archiver::Places Archiver::places_of(const Section& section, const Wanted& is_wanted) {
  Places places;
  const auto see = [&](const LogFile& file) {
    if (is_wanted(file)) places.paths.push_back(file.path);
  };
  if (section.follow.empty()) {
    places.unreadable = see_matching(prefix, section.files, see);
    return places;
  }
  Found beside = find_beside(prefix, section.follow);
  for (const LogFile& file : beside.files) see(file);
  places.unreadable = std::move(beside.unreadable);
  if (const auto present = look_at(prefix, section.follow)) see(*present);
  return places;
}

/* Opens the file that was at path, also when it was renamed since. */
std::optional<Archiver::FoundAgain> Archiver::find_again(const Section& section, const std::string& path,
                                                         const Wanted& is_it) {
  const auto open_it = [&](const std::string& place) -> std::optional<FoundAgain> {
    try {
      OpenFile file(prefix, place);
      if (!file.is_open()) return std::nullopt;
      LogFile now = describe(file, path);
      if (is_it(now)) return FoundAgain{std::move(file), std::move(now)};
    } catch (const UnreadableFile&) {
      /* Whatever stands there now, it is not the file. */
    }
    return std::nullopt;
  };
  if (auto file = open_it(path)) return file;
  for (const std::string& place : places_of(section, is_it).paths) {
    if (auto file = open_it(place)) return file;
  }
  return std::nullopt;
}

/*
 * Reports why a file is not found. Returns whether it only cannot be read, and waits. One that is there and has changed
 * since is a new item; what was lost of a followed log says the plan.
 */
bool Archiver::only_waits(const Section& section, const std::string& path, const Identity& identity) {
  const auto is_same = [&identity](const LogFile& file) { return is_same_file(identity, file); };
  const Places now = places_of(section, is_same);
  for (const UnreadableFile& file : now.unreadable) {
    if (!may_be_among({file}, prefix, inode_of(identity))) continue;
    desk.report(error_of(file));
    return true;
  }
  if (section.follow.empty() && now.paths.empty()) desk.report(error_of(UnreadableFile(path, ENOENT, false)));
  return false;
}

/* Looks for a section's closed files. Returns those that are to be archived, oldest first. */
std::vector<ClosedFile> Archiver::waiting_files(const Section& section) {
  ClosedFiles look(desk.archived_files(section.name));
  const auto unreadable = see_matching(prefix, section.files, [&look](const LogFile& file) { look.see(file); });
  for (const UnreadableFile& file : unreadable) desk.report(error_of(file));
  if (unreadable.empty()) {
    desk.with_store([&](Store& store) { store.forget_missing_files(section.name, look, now_ms()); });
  }
  return look.take_waiting();
}

void Archiver::archive_closed_files(const Work& work, const Section& section) {
  std::vector<ClosedFile> files = waiting_files(section);
  const auto progress = [&] { return desk.with_store([&](Store& store) { return store.progress(section.name); }); };
  const auto begun = progress();
  /* What was begun is ended first: of one file only it is remembered how far it is archived. */
  std::stable_partition(files.begin(), files.end(), [&begun](const ClosedFile& f) { return begun_at(begun, f) != 0; });
  int32_t waiting = static_cast<int32_t>(files.size());
  Begun together;
  for (const ClosedFile& file : files) {
    desk.set_waiting(section, waiting);
    const int64_t first = begun_at(begun, file);
    if (together.empty() && first == 0) {
      together = begin_together(work, section, &file, files.data() + files.size());
    }
    if (!together.empty()) {
      if (archive_begun(work, section, file, together)) --waiting;
      continue;
    }
    try {
      const auto is_it = [&file](const LogFile& other) { return is_archived(file.as, other); };
      if (const auto found = find_again(section, file.path, is_it)) {
        const Intent intent{section.name, "", found->now, false, false, first, file.as.size - first};
        if (archive_range(work, section, found->open, intent)) {
          --waiting;
        } else if (begun_at(progress(), file) != 0) {
          break;
        }
      } else if (!only_waits(section, file.path, file.as.identity)) {
        --waiting;
      }
    } catch (const UnreadableFile& error) {
      desk.report(error_of(error));
    }
  }
  desk.set_waiting(section, waiting);
}

/*
 * Stores the intents of several small files at once, from first on: to wait for the disk is much beside the time that
 * one of them takes. Returns none where there is nothing to win, or where one item may make another one go.
 */
Archiver::Begun Archiver::begin_together(const Work& work, const Section& section, const ClosedFile* first,
                                         const ClosedFile* last) {
  std::vector<Intent> intents;
  if (section.compress || work.config.space_limit[section.compartment] != no_space_limit) return {};
  int64_t time_ms = desk.with_store([&](Store& store) { return store.last_item_time(section.name); });
  for (; first != last && first->as.size <= most_bytes_together && intents.size() < most_together; ++first) {
    const auto is_it = [first](const LogFile& other) { return is_archived(first->as, other); };
    const auto found = find_again(section, first->path, is_it);
    if (!found) break; /* which is found out once more when its turn comes */
    time_ms = next_item_time(now_ms(), time_ms);
    const std::string name = item_path(section.name, time_ms, base_of(first->path), false);
    intents.push_back({section.name, name, found->now, false, false, 0, first->as.size});
  }
  if (intents.empty()) return {};
  session(work); /* nothing is on its way where there is none */
  desk.with_store([&](Store& store) { store.begin_items(intents, time_ms); });
  return {intents.begin(), intents.end()};
}

/* Archives the first of those that were begun together. Returns whether it waits no more. */
bool Archiver::archive_begun(const Work& work, const Section& section, const ClosedFile& file, Begun& begun) {
  const Intent intent = begun.front();
  begun.pop_front();
  const auto is_it = [&file](const LogFile& other) { return is_archived(file.as, other); };
  if (const auto found = find_again(section, file.path, is_it)) {
    return try_item(work, section, found->open, intent, false);
  }
  if (only_waits(section, file.path, file.as.identity)) return false; /* and is taken up by the next run */
  desk.with_store([&](Store& store) { store.give_up_item(intent); });
  return true;
}

void Archiver::archive_growing_file(const Work& work, const Section& section) {
  const auto around = look_around(prefix, section.follow);
  if (!around) return; /* rotated without end; the next run looks again */
  for (const UnreadableFile& file : around->beside.unreadable) desk.report(error_of(file));
  const Progress progress = begin_look(section, *around);
  if (!archive_late_ends(work, section, around->beside.files)) return;
  const auto known = desk.with_store([&](Store& store) { return store.known_files(section.name); });
  const auto plan = plan_growing_file(section.follow, progress, around->present, around->beside.files, known);
  /* What is only not readable is not lost: it waits, and what comes behind it, too. */
  const auto is_not_found = [&](const Stretch& stretch) { return stretch.lost && stretch.file.path == section.follow; };
  if (std::any_of(plan.begin(), plan.end(), is_not_found) &&
      may_be_among(around->beside.unreadable, prefix, inode_of(progress.identity))) {
    return;
  }
  int32_t waiting = 0;
  for (const Stretch& stretch : plan) waiting += pieces_of(stretch);
  for (const Stretch& stretch : plan) {
    desk.set_waiting(section, waiting);
    if (stretch.lost) {
      give_up_lost(section, progress, stretch);
    } else if (!archive_stretch(work, section, stretch)) {
      break; /* what comes behind it waits: pieces keep their order */
    }
    waiting -= pieces_of(stretch);
  }
  desk.set_waiting(section, waiting);
}

/* What comes behind them waits when one of them fails. */
bool Archiver::archive_late_ends(const Work& work, const Section& section, const std::vector<LogFile>& beside) {
  const auto known = desk.with_store([&](Store& store) { return store.archived_files(section.name); });
  const auto late = plan_late_ends(beside, known);
  return std::all_of(late.begin(), late.end(), [&](const Stretch& stretch) {
    desk.set_waiting(section, pieces_of(stretch));
    return archive_pieces(work, section, stretch).has_value();
  });
}

/* Notes which files beside a log are none of its business. Returns how far the log is archived. */
Progress Archiver::begin_look(const Section& section, const Surroundings& around) {
  return desk.with_store([&](Store& store) {
    const auto before = known_progress(store, section);
    const auto archived = store.archived_files(section.name);
    const auto passed = files_to_pass_over(before, around.present, around.beside.files, archived);
    const Progress now = before ? *before : progress_at_first(around.present);
    store.note_look(section.name, now, passed);
    const std::string path = prefix + section.follow;
    if (store.text(kind_of_followed(section)) != path) store.set_text(kind_of_followed(section), path);
    ClosedFiles look(archived);
    for (const LogFile& file : around.beside.files) look.see(file);
    if (around.present) look.see(*around.present);
    if (around.beside.unreadable.empty()) store.forget_missing_files(section.name, look, now_ms());
    return now;
  });
}

/*
 * Reports what was lost, once: the rest of the file that was read last, or one that is there, but only compressed.
 */
void Archiver::give_up_lost(const Section& section, const Progress& progress, const Stretch& stretch) {
  const std::string range = " (bytes " + std::to_string(stretch.first) + " to " + std::to_string(stretch.end) + ")";
  desk.report(TavrenError(TAVREN_E_FILE_READ, stretch.file.path + range, tavren_int_to_string(ENODATA)));
  desk.with_store([&](Store& store) {
    if (stretch.file.path != section.follow) return store.note_look(section.name, std::nullopt, {stretch.file});
    Progress gone = progress;
    gone.finished = true;
    store.note_look(section.name, gone, {});
  });
}

/* Returns up to where the stretch is archived; nothing where it cannot go on. */
std::optional<int64_t> Archiver::archive_pieces(const Work& work, const Section& section, const Stretch& stretch) {
  const OpenFile file(prefix, stretch.file.path);
  if (!file.is_open() || !is_same_file(identity_of(stretch.file), describe(file, stretch.file.path))) return {};
  int64_t first = stretch.first;
  const auto newline = [&](int64_t from, int64_t end) { return last_newline(file, stretch.file.path, from, end); };
  for (;;) {
    const int64_t end = end_of_piece(stretch, first, newline);
    if (end == first) return end;
    const Intent intent{section.name, "", stretch.file, true, stretch.grows, first, end - first};
    if (!archive_range(work, section, file, intent)) return {};
    first = end;
  }
}

bool Archiver::archive_stretch(const Work& work, const Section& section, const Stretch& stretch) {
  const auto end = archive_pieces(work, section, stretch);
  if (!end) return false;
  const bool is_whole = !stretch.grows && *end == stretch.end;
  const Progress now{identity_of(stretch.file), *end, stretch.file.size, stretch.file.mtime_ns, is_whole};
  const std::vector<LogFile> known = is_whole ? std::vector<LogFile>{stretch.file} : std::vector<LogFile>{};
  desk.with_store([&](Store& store) { store.note_look(section.name, now, known); });
  return true;
}

/* Archives what intent says of file, in as many items as it takes. Returns whether all of them are there. */
bool Archiver::archive_range(const Work& work, const Section& section, const OpenFile& file, Intent intent) {
  const int64_t end = intent.first + intent.length;
  do {
    intent.length = length_of_part(end - intent.first, section.compress);
    if (!try_item(work, section, file, intent, true)) return false;
    intent.first += intent.length;
  } while (intent.first < end);
  return true;
}

/* Sends an item. Returns whether it is there; one that fails is reported, and nothing of it stays. */
bool Archiver::try_item(const Work& work, const Section& section, const OpenFile& file, Intent intent, bool is_new) {
  std::optional<TavrenError> failure;
  try {
    send_item(work, section, file, intent, is_new);
    return true;
  } catch (const NoRoom& error) {
    failure = error_of(error);
  } catch (const UnreadableFile& error) {
    failure = error_of(error);
  } catch (const FileChanged& error) {
    /* A log that was rotated meanwhile is found again, and what was on its way of it, by the next run. */
    if (!intent.follows) failure = error_of(error);
  } catch (const std::system_error& error) {
    failure = error_of(error);
  } catch (const TavrenError& error) {
    if (!is_about_one_item(error)) throw;
    failure = error;
  }
  if (failure) desk.report(*failure);
  take_back_item(work, section, intent);
  return false;
}

void Archiver::remove_item(const Work& work, const std::string& remote_path) {
  try {
    session(work).remove(remote_path);
  } catch (const TavrenError& error) {
    if (!is_about_one_item(error)) throw;
    desk.report(error);
    throw ItemStays();
  }
}

/* Removes what there is of an item that failed: the next one of its section takes the place of its intent. */
void Archiver::take_back_item(const Work& work, const Section& section, const Intent& intent) {
  const auto open = desk.with_store([&](Store& store) { return store.open_intents(section.name); });
  const auto is_it = [&intent](const Intent& other) { return other.remote_path == intent.remote_path; };
  if (std::none_of(open.begin(), open.end(), is_it)) return; /* it failed before it was begun */
  open_session.reset();                                      /* the transfer has it */
  remove_item(work, intent.remote_path);
  desk.with_store([&](Store& store) { store.give_up_item(intent); });
}

/* intent gets the name of a new item. */
void Archiver::send_item(const Work& work, const Section& section, const OpenFile& file, Intent& intent, bool is_new) {
  int64_t time_ms = 0;
  desk.with_store([&](Store& store) { time_ms = store.last_item_time(section.name); });
  const std::string base = base_of(section.follow.empty() ? intent.file.path : section.follow);
  bool compressed = section.compress;
  if (is_new) {
    time_ms = next_item_time(now_ms(), time_ms);
    intent.remote_path = item_path(section.name, time_ms, base, compressed);
  } else {
    /* Under the same name, and so in the same form: another one may have been configured since. */
    compressed =
        is_item_of(intent.remote_path, base, true) || (compressed && !is_item_of(intent.remote_path, base, false));
  }
  Session& open = session(work);
  /* A log that was copied and truncated while it was read has given us the next one's bytes. */
  const auto check = [&] {
    const LogFile now = describe(file, intent.file.path);
    const bool is_overwritten = !intent.follows && now.size == intent.file.size && now.mtime_ns != intent.file.mtime_ns;
    if (!is_same_file(identity_of(intent.file), now) || now.size < intent.first + intent.length || is_overwritten) {
      throw FileChanged(intent.file.path);
    }
  };
  const auto send = [&](const OpenFile& payload, int64_t first, int64_t bytes) {
    open.make_room(section.compartment, bytes, intent.remote_path);
    if (is_new) desk.with_store([&](Store& store) { store.begin_item(intent, time_ms); });
    try {
      open.send(payload, intent.file.path, first, bytes, intent.remote_path, section.compartment, check);
    } catch (const TavrenTimeout&) {
      throw TavrenError(TAVREN_E_COMMAND_TIMEOUT, intent.remote_path, "");
    }
  };
  if (compressed) {
    const OpenFile payload =
        compress(file, intent.file.path, intent.first, intent.length, directory, [this] { desk.check_cancelled(); });
    send(payload, 0, size_of(payload));
  } else {
    send(file, intent.first, intent.length);
  }
  /* The intent of the next closed file is stored at once; what is compressed, or piece of a log, may be the last one.
   */
  const bool more_follows = !compressed && !intent.follows;
  desk.with_store(
      [&](Store& store) { more_follows ? store.finish_item_on_disk_later(intent) : store.finish_item(intent); });
  desk.count_archived(section.compartment);
}
