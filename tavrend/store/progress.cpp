#include "store/store.h"

#include "store/database.h"
#include "store/identity_columns.h"

std::optional<Progress> Store::progress(const std::string& section, const std::string& log) {
  auto query = database->query(
      "SELECT device, inode, head_length, head_checksum, offset, seen, mtime_ns, finished FROM progress"
      " WHERE section = ? AND log = ?");
  query.bind(section).bind(log);
  if (!query.next()) return std::nullopt;
  return Progress{identity_at(query, 0), query.number(4), query.number(5), query.number(6), query.number(7) != 0, log};
}

bool Store::has_followed(const std::string& section) {
  auto query = database->query("SELECT 1 FROM progress WHERE section = ? AND log <> x''");
  query.bind(section);
  return query.next();
}

int64_t Store::begun_at(const std::string& section, const ArchivedFile& file) {
  auto query = database->query(
      "SELECT offset, size, mtime_ns FROM begun"
      " WHERE section = ? AND device = ? AND inode = ? AND head_length = ? AND head_checksum = ?");
  if (bind(query.bind(section), file.identity).next()) {
    const bool is_it = file == ArchivedFile{file.identity, query.number(1), query.number(2)};
    return is_it ? query.number(0) : 0;
  }
  const auto old = old_progress(section, file);
  return old ? old->offset : 0;
}

/* An old state has what is known of one closed file in the place of a log's progress. */
std::optional<Progress> Store::old_progress(const std::string& section, const ArchivedFile& file) {
  auto old = progress(section);
  const bool is_it = old && !old->finished && file == ArchivedFile{old->identity, old->seen, old->mtime_ns};
  return is_it ? old : std::nullopt;
}

void Store::write_begun(const Intent& intent) {
  auto query = database->query("INSERT OR REPLACE INTO begun VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?)");
  bind(query.bind(intent.section), identity_of(intent.file))
      .bind(intent.file.size)
      .bind(intent.file.mtime_ns)
      .bind(intent.first + intent.length)
      .bind_sum()
      .run();
}

void Store::forget_begun(const std::string& section, const Identity& identity) {
  auto query = database->query(
      "DELETE FROM begun WHERE section = ? AND device = ? AND inode = ? AND head_length = ? AND head_checksum = ?");
  bind(query.bind(section), identity).run();
}

void Store::forget_old_progress(const std::string& section, const ArchivedFile& file) {
  if (!old_progress(section, file)) return;
  database->query("DELETE FROM progress WHERE section = ? AND log = x''").bind(section).run();
}

void Store::write_progress(const std::string& section, const Progress& progress) {
  auto query = database->query("INSERT OR REPLACE INTO progress VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
  bind(query.bind(section).bind(progress.log), progress.identity)
      .bind(progress.offset)
      .bind(progress.seen)
      .bind(progress.mtime_ns)
      .bind(int64_t{progress.finished})
      .bind_sum()
      .run();
}
