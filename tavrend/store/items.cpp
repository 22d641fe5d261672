#include "store/store.h"

#include <algorithm>
#include <tuple>
#include <utility>
#include <vector>

#include "store/database.h"
#include "store/identity_columns.h"
#include "store/row_sum.h"

namespace {

constexpr int64_t week_ms = int64_t{7} * 24 * 3600 * 1000;

}  // namespace

std::vector<ArchivedFile> Store::files_of(const char* sql, const std::string& section) {
  std::vector<ArchivedFile> files;
  auto query = database->query(sql);
  query.bind(section);
  while (query.next()) files.push_back(file_at(query));
  return files;
}

std::vector<ArchivedFile> Store::archived_files(const std::string& section) {
  return files_of(
      "SELECT device, inode, head_length, head_checksum, size, mtime_ns FROM archived"
      " WHERE section = ? AND passed_over = 0 ORDER BY id",
      section);
}

std::vector<ArchivedFile> Store::noted_files(const std::string& section) {
  return files_of(
      "SELECT device, inode, head_length, head_checksum, size, mtime_ns FROM archived WHERE section = ? ORDER BY id",
      section);
}

std::vector<Identity> Store::known_files(const std::string& section) {
  std::vector<Identity> known;
  for (const ArchivedFile& file : noted_files(section)) known.push_back(file.identity);
  return known;
}

void Store::forget_missing_files(const std::string& section, const ClosedFiles& look, int64_t now_ms) {
  struct Change {
    int64_t id;
    int64_t missing_since_ms; /* forgotten: -1 */
  };
  std::vector<Change> changes;
  auto query = database->query(
      "SELECT device, inode, head_length, head_checksum, size, mtime_ns, id, missing_since_ms FROM archived"
      " WHERE section = ?");
  query.bind(section);
  while (query.next()) {
    const ArchivedFile file = file_at(query);
    const int64_t id = query.number(6);
    const int64_t since = query.number(7);
    /* A clock that was set back says nothing of how long: the time begins anew. */
    const bool is_counted = since != 0 && since <= now_ms;
    if (!look.is_missing(file)) {
      if (since != 0) changes.push_back({id, 0});
    } else if (!is_counted) {
      changes.push_back({id, now_ms});
    } else if (now_ms - since >= week_ms) {
      changes.push_back({id, -1});
    }
  }
  if (changes.empty()) return;
  database->transaction([&] {
    for (const Change& change : changes) {
      if (change.missing_since_ms == -1) {
        database->query("DELETE FROM archived WHERE id = ?").bind(change.id).run();
      } else {
        database->query("UPDATE archived SET missing_since_ms = ? WHERE id = ?")
            .bind(change.missing_since_ms)
            .bind(change.id)
            .run();
      }
    }
  });
}

void Store::note_look(const std::string& section, const std::optional<Progress>& now, const std::vector<LogFile>& known,
                      Known as) {
  /* Most looks show nothing new, and nothing is written then. */
  const bool is_news = now && !(progress(section, now->log) == now);
  std::vector<LogFile> new_files = known;
  const auto noted = noted_files(section);
  const auto is_known = [&noted](const LogFile& file) {
    return std::any_of(noted.begin(), noted.end(), [&file](const ArchivedFile& a) { return is_archived(a, file); });
  };
  new_files.erase(std::remove_if(new_files.begin(), new_files.end(), is_known), new_files.end());
  if (!is_news && new_files.empty()) return;
  database->transaction([&] {
    if (now) write_progress(section, *now);
    for (const LogFile& file : new_files) remember_file(section, file, as);
  });
}

std::vector<Intent> Store::open_intents(const std::string& section) {
  std::vector<Intent> open;
  auto query = database->query(
      "SELECT remote_path, path, device, inode, size, mtime_ns, head, follows, grows, first, length, log, compressed,"
      " announced FROM intent WHERE section = ? ORDER BY remote_path");
  query.bind(section);
  while (query.next()) {
    const LogFile file{query.text(1),
                       static_cast<uint64_t>(query.number(2)),
                       static_cast<uint64_t>(query.number(3)),
                       query.number(4),
                       query.number(5),
                       query.text(6)};
    open.push_back({section, query.text(0), file, query.number(7) != 0, query.number(8) != 0, query.number(9),
                    query.number(10), query.text(11), query.number(12) != 0, query.number(13)});
  }
  return open;
}

void Store::begin_item(const Intent& intent, int64_t item_time_ms) { begin_items({intent}, item_time_ms); }

void Store::begin_items(const std::vector<Intent>& intents, int64_t item_time_ms) {
  database->transaction([&] {
    for (const Intent& intent : intents) write_intent(intent);
    write_last_item_time(intents.front().section, item_time_ms);
  });
}

void Store::write_intent(const Intent& intent) {
  database->query("INSERT OR REPLACE INTO intent VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)")
      .bind(intent.section)
      .bind(intent.remote_path)
      .bind(intent.file.path)
      .bind(static_cast<int64_t>(intent.file.device))
      .bind(static_cast<int64_t>(intent.file.inode))
      .bind(intent.file.size)
      .bind(intent.file.mtime_ns)
      .bind(intent.file.head)
      .bind(int64_t{intent.follows})
      .bind(int64_t{intent.grows})
      .bind(intent.first)
      .bind(intent.length)
      .bind(intent.log)
      .bind(int64_t{intent.compressed})
      .bind(intent.announced)
      .bind_sum()
      .run();
}

void Store::write_last_item_time(const std::string& section, int64_t item_time_ms) {
  for (const ArchivedSection& known : sections()) {
    if (known.name != section) continue;
    RowSum sum;
    sum.add(section);
    sum.add(int64_t{known.compartment});
    sum.add(item_time_ms);
    database->query("UPDATE section SET last_item_ms = ?, sum = ? WHERE name = ?")
        .bind(item_time_ms)
        .bind(sum.value())
        .bind(section)
        .run();
  }
}

void Store::remember_file(const std::string& section, const LogFile& file, Known as) {
  write_archived(section, {identity_of(file), file.size, file.mtime_ns}, as);
}

void Store::write_archived(const std::string& section, const ArchivedFile& file, Known as) {
  auto query = database->query(
      "INSERT INTO archived (section, device, inode, head_length, head_checksum, size, mtime_ns, passed_over, sum)"
      " VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?)");
  bind(query.bind(section), file.identity)
      .bind(file.size)
      .bind(file.mtime_ns)
      .bind(int64_t{as == Known::passed_over})
      .bind_sum()
      .run();
}

/* Returns what is known of a file, once for each size and time that it had. */
std::vector<std::pair<ArchivedFile, Store::Known>> Store::known_as(const std::string& section, const LogFile& file) {
  std::vector<std::pair<ArchivedFile, Known>> all;
  auto query = database->query(
      "SELECT device, inode, head_length, head_checksum, size, mtime_ns, passed_over FROM archived WHERE section = ?"
      " AND device = ? AND inode = ? ORDER BY id");
  bind_inode(query.bind(section), inode_of(file));
  while (query.next()) {
    const ArchivedFile known = file_at(query);
    const Known as = query.number(6) != 0 ? Known::passed_over : Known::archived;
    if (is_same_file(known.identity, file)) all.emplace_back(known, as);
  }
  return all;
}

void Store::note_new_file(const std::string& section, const LogFile& file) {
  const auto open = open_intents(section);
  /* What was written behind its end may have arrived already, and is noted of it then. */
  const auto is_on_its_way = [&open](const Identity& known) {
    return std::any_of(open.begin(), open.end(), [&known](const Intent& intent) {
      return intent.follows && !intent.grows && is_same_file(known, intent.file);
    });
  };
  auto earlier = known_as(section, file);
  earlier.erase(std::remove_if(earlier.begin(), earlier.end(),
                               [&](const auto& known) { return is_on_its_way(known.first.identity); }),
                earlier.end());
  if (earlier.empty()) return;
  database->transaction([&] {
    for (auto& [known, as] : earlier) {
      forget_file(section, known.identity);
      known.identity.inode = 0;
      write_archived(section, known, as);
    }
  });
}

void Store::end_intent(const Intent& intent) {
  database->query("DELETE FROM intent WHERE section = ? AND remote_path = ?")
      .bind(intent.section)
      .bind(intent.remote_path)
      .run();
}

/*
 * Returns whether intent is about what was written to a rotated file behind that as which it was known, and notes it
 * then: how far the log is archived is no matter of that.
 */
bool Store::note_late_end(const Intent& intent) {
  if (!intent.follows || intent.grows) return false;
  const auto known = known_as(intent.section, intent.file);
  if (known.empty()) return false;
  for (const auto& [file, as] : known) forget_file(intent.section, file.identity);
  LogFile archived = intent.file;
  archived.size = intent.first + intent.length;
  forget_what_has_arrived(intent, seen_of(intent.section, intent.file));
  /* What it is known as it stays: one that was passed over is not archived by its end. */
  remember_file(intent.section, archived, known.front().second);
  return true;
}

void Store::forget_file(const std::string& section, const Identity& identity) {
  auto query = database->query(
      "DELETE FROM archived WHERE section = ? AND device = ? AND inode = ? AND head_length = ? AND head_checksum = ?");
  bind(query.bind(section), identity).run();
}

/*
 * Notes a piece of a log, and returns whether it is the last one. A look may have seen more of the log since than there
 * was when the piece was planned, and where that is.
 */
bool Store::note_piece(const Intent& intent, const std::vector<ArchivedFile>& seen) {
  Progress now{identity_of(intent.file), 0, intent.file.size, intent.file.mtime_ns, false, intent.log};
  const auto before = progress(intent.section, intent.log);
  const bool is_seen_since =
      before && !before->finished && before->offset == intent.first && before->seen >= intent.file.size;
  if (is_seen_since) now = *before;
  for (const ArchivedFile& file : seen) {
    if (intent.grows && file.size > now.seen) std::tie(now.seen, now.mtime_ns) = std::tie(file.size, file.mtime_ns);
  }
  now.offset = intent.first + intent.length;
  now.finished = !intent.grows && now.offset == now.seen;
  write_progress(intent.section, now);
  return now.finished;
}

/* The same of a part of a closed file. */
bool Store::note_part(const Intent& intent) {
  if (intent.first + intent.length < intent.file.size) {
    write_begun(intent);
    return false;
  }
  const ArchivedFile file{identity_of(intent.file), intent.file.size, intent.file.mtime_ns};
  forget_begun(intent.section, file.identity);
  if (intent.first > 0) forget_old_progress(intent.section, file);
  return true;
}

void Store::note_finished(const Intent& intent) {
  if (note_late_end(intent)) return end_intent(intent);
  const auto seen = seen_of(intent.section, intent.file);
  const bool is_whole = intent.follows ? note_piece(intent, seen) : note_part(intent);
  if (is_whole) remember_file(intent.section, intent.file, Known::archived);
  if (is_whole || intent.follows) forget_what_has_arrived(intent, seen);
  end_intent(intent);
}

/* Where a look has found more in the file, that is not forgotten, but of a log that grows its progress says it. */
void Store::forget_what_has_arrived(const Intent& intent, const std::vector<ArchivedFile>& seen) {
  for (const ArchivedFile& file : seen) {
    if (intent.grows || file.size <= intent.first + intent.length) forget_seen_now(intent.section, file.identity);
  }
}

void Store::finish_item(const Intent& intent) {
  database->transaction([&] { note_finished(intent); });
}

void Store::finish_item_on_disk_later(const Intent& intent) {
  database->transaction_on_disk_later([&] { note_finished(intent); });
}

void Store::sync() { database->sync(); }

void Store::give_up_item(const Intent& intent) {
  database->transaction([&] { end_intent(intent); });
}
