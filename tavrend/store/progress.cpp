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
