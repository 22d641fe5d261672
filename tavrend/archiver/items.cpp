#include "archiver/items.h"

#include <sys/stat.h>

#include <algorithm>
#include <optional>
#include <system_error>
#include <utility>

#include "TavrenExceptions.h"
#include "archiver/children.h"
#include "archiver/failures.h"
#include "plan/names.h"
#include "plan/space.h"
#include "sources/clock.h"
#include "sources/compression.h"
#include "tavren_util.h"

namespace {

constexpr int64_t begun_before = 0;
constexpr int patience_with_the_client_ms = 300; /* it ends behind its last words */

int64_t size_of(const OpenFile& file) {
  struct stat status {};
  return fstat(file.descriptor(), &status) == 0 ? status.st_size : 0;
}

/* Whether file is the one that intent is about, with those bytes in it. A closed one does not change meanwhile. */
bool is_its_file(const Intent& intent, const LogFile& file) {
  const Identity identity = identity_of(intent.file);
  if (intent.follows) return is_same_file(identity, file) && file.size >= intent.first + intent.length;
  return is_archived({identity, intent.file.size, intent.file.mtime_ns}, file);
}

/* A log that was copied and truncated while it was read has given us the next one's bytes. */
void check_that_it_is_still(const Intent& intent, const OpenFile& file) {
  if (!is_its_file(intent, describe(file, intent.file.path))) throw FileChanged(intent.file.path);
}

}  // namespace

bool Items::resume() {
  const std::string log = to.prefix + to.section.follow;
  const auto open = to.desk.with_store([&](Store& store) { return store.open_intents(to.section.name); });
  return std::all_of(open.begin(), open.end(), [&](const Intent& intent) {
    return intent.follows && intent.log != log ? resume_piece_of_another(intent) : resume_item(intent, false);
  });
}

/* The section follows another log now, or closed files: the piece is looked for where its log is, or was. */
bool Items::resume_piece_of_another(const Intent& intent) {
  const bool is_below = intent.log.rfind(to.prefix, 0) == 0;
  const std::string prefix = is_below ? to.prefix : "";
  Section section = to.section;
  section.files.clear();
  section.follow = intent.log.substr(prefix.size());
  const SectionWork work{to.desk, to.session, to.work, section, prefix, to.directory};
  return Items(work).resume_item(intent, true);
}

bool Items::resume_item(const Intent& intent, bool is_of_another) {
  const Identity identity = identity_of(intent.file);
  const auto is_it = [&](const LogFile& file) { return is_its_file(intent, file); };
  if (const auto file = search.find(intent.file.path, is_it)) {
    if (send_again(file->open, intent)) return true;
    failed.insert(inode_of(intent.file));
    return !intent.follows;
  }
  /* What is only not readable waits, and what has arrived of it, too. A log's pieces keep their order. */
  if (search.is_only_unreadable(identity)) return !intent.follows;
  if (keep_what_has_arrived(intent)) return true;
  if (!intent.follows) {
    search.report_gone(intent.file.path, {identity, intent.file.size, intent.file.mtime_ns}, intent.first);
  }
  /* What was lost of the log that is followed says the plan. */
  if (is_of_another) {
    to.desk.report(error_of_lost(intent.file.path, intent.first, intent.first + intent.length));
  }
  drop_item(intent);
  return true;
}

bool Items::send_again(const OpenFile& file, Intent intent) const {
  /* What has arrived of it would count against the room that it gets. */
  if (to.work.config.space_limit[to.section.compartment] != no_space_limit) remove_item(intent.remote_path);
  /* All of it may be there, and be overwritten from the beginning: from now on its size says nothing. */
  if (std::exchange(intent.announced, -1) != -1) {
    to.desk.with_store([&](Store& store) { store.begin_item(intent, store.last_item_time(to.section.name)); });
  }
  return send_begun(file, intent);
}

/* Its last bytes are sent when all of them are known to be the file's own: an item of that size is whole. */
bool Items::has_arrived(const Intent& intent) const {
  if (intent.announced == -1) return false;
  try {
    return to.session.get(to.work).size_of(intent.remote_path) == intent.announced;
  } catch (const TavrenError& error) {
    if (!is_about_one_item(error)) throw;
    to.desk.report(error);
    throw ItemStays();
  }
}

bool Items::keep_what_has_arrived(const Intent& intent) const {
  if (!has_arrived(intent)) return false;
  to.desk.with_store([&](Store& store) { store.finish_item(intent); });
  to.desk.count_archived(to.section.compartment);
  return true;
}

void Items::end_all() const {
  for (const Intent& intent : to.desk.with_store([&](Store& store) { return store.open_intents(to.section.name); })) {
    if (!keep_what_has_arrived(intent)) drop_item(intent);
  }
}

bool Items::is_on_its_way(const Identity& identity) const {
  const auto open = to.desk.with_store([&](Store& store) { return store.open_intents(to.section.name); });
  /* By its inode: it may have grown since, and its first bytes with it. */
  return std::any_of(open.begin(), open.end(),
                     [&identity](const Intent& intent) { return inode_of(identity) == inode_of(intent.file); });
}

bool Items::send_range(const OpenFile& file, Intent intent) const {
  const int64_t end = intent.first + intent.length;
  do {
    intent.length = length_of_part(end - intent.first, to.section.compress);
    if (!try_item(file, intent, true)) return false;
    intent.first += intent.length;
  } while (intent.first < end);
  return true;
}

bool Items::try_item(const OpenFile& file, Intent intent, bool is_new) const {
  std::optional<TavrenError> failure;
  try {
    send_item(file, intent, is_new);
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
    /* What a client says that has lost its connection is taken for the far side's answer. */
    if (has_lost_its_connection(patience_with_the_client_ms)) {
      to.desk.check_cancelled();
      throw;
    }
    failure = error;
  }
  if (failure) to.desk.report(*failure);
  take_back_item(intent);
  return false;
}

void Items::remove_item(const std::string& remote_path) const {
  try {
    to.session.get(to.work).remove(remote_path);
  } catch (const TavrenError& error) {
    if (!is_about_one_item(error)) throw;
    to.desk.report(error);
    throw ItemStays();
  }
}

/* Removes what there is of an item that failed: the next one of its section takes the place of its intent. */
void Items::take_back_item(const Intent& intent) const {
  const auto open = to.desk.with_store([&](Store& store) { return store.open_intents(to.section.name); });
  const auto is_it = [&intent](const Intent& other) { return other.remote_path == intent.remote_path; };
  if (std::none_of(open.begin(), open.end(), is_it)) return; /* it failed before it was begun */
  to.session.close();                                        /* the transfer has it */
  drop_item(intent);
}

void Items::drop_item(const Intent& intent) const {
  remove_item(intent.remote_path);
  to.desk.with_store([&](Store& store) { store.give_up_item(intent); });
}

/* intent gets the name and the form of a new item. */
void Items::send_item(const OpenFile& file, Intent& intent, bool is_new) const {
  int64_t new_item_ms = begun_before;
  if (is_new) {
    const int64_t last_ms = to.desk.with_store([&](Store& store) { return store.last_item_time(to.section.name); });
    const std::string base = tavren_basename(intent.follows ? to.section.follow : intent.file.path);
    new_item_ms = next_item_time(now_ms(), last_ms);
    intent.compressed = to.section.compress;
    intent.remote_path = item_path(to.section.name, new_item_ms, base, intent.compressed);
  }
  send_payload(file, intent, new_item_ms);
  /* The intent of the next closed file is stored at once; what is compressed, or piece of a log, may be the last one.
   */
  const bool more_follows = !intent.compressed && !intent.follows;
  to.desk.with_store(
      [&](Store& store) { more_follows ? store.finish_item_on_disk_later(intent) : store.finish_item(intent); });
  to.desk.count_archived(to.section.compartment);
}

void Items::send_payload(const OpenFile& file, Intent& intent, int64_t new_item_ms) const {
  Session& session = to.session.get(to.work);
  const auto send = [&](const OpenFile& payload, int64_t first, int64_t bytes) {
    const int64_t of_file = intent.follows || intent.compressed ? bytes : intent.file.size;
    session.make_room(to.section.compartment, bytes, of_file, intent.remote_path);
    if (new_item_ms != begun_before) {
      intent.announced = bytes;
      to.desk.with_store([&](Store& store) { store.begin_item(intent, new_item_ms); });
    }
    try {
      session.send(payload, intent.file.path, first, bytes, intent.remote_path, to.section.compartment,
                   [&] { check_that_it_is_still(intent, file); });
    } catch (const TavrenTimeout&) {
      throw TavrenError(TAVREN_E_COMMAND_TIMEOUT, intent.remote_path, "");
    }
  };
  if (!intent.compressed) return send(file, intent.first, intent.length);
  const OpenFile payload = compress(file, intent.file.path, intent.first, intent.length, to.directory,
                                    [this] { to.desk.check_cancelled(); });
  send(payload, 0, size_of(payload));
}
