#include "store/store.h"

#include "store/database.h"
#include "store/identity_columns.h"

std::vector<ArchivedFile> Store::seen_files(const std::string& section, const std::string& log) {
  std::vector<ArchivedFile> files;
  auto query = database->query(
      "SELECT device, inode, head_length, head_checksum, size, mtime_ns FROM seen WHERE section = ? AND log = ?");
  query.bind(section).bind(log);
  while (query.next()) files.push_back(file_at(query));
  return files;
}

std::string Store::path_of_seen(const std::string& section, const Identity& identity) {
  auto query = database->query(
      "SELECT path FROM seen"
      " WHERE section = ? AND device = ? AND inode = ? AND head_length = ? AND head_checksum = ?");
  return bind(query.bind(section), identity).next() ? query.text(0) : "";
}

void Store::forget_seen_now(const std::string& section, const Identity& identity) {
  forget_begun(section, identity);
  auto query = database->query(
      "DELETE FROM seen WHERE section = ? AND device = ? AND inode = ? AND head_length = ? AND head_checksum = ?");
  bind(query.bind(section), identity).run();
}

/* Its first bytes may be more than they were when it was seen, or fewer, when it has grown since it was planned. */
std::vector<ArchivedFile> Store::seen_of(const std::string& section, const LogFile& file) {
  std::vector<ArchivedFile> seen;
  auto query = database->query(
      "SELECT device, inode, head_length, head_checksum, size, mtime_ns FROM seen"
      " WHERE section = ? AND device = ? AND inode = ?");
  bind_inode(query.bind(section), inode_of(file));
  while (query.next()) {
    const ArchivedFile found = file_at(query);
    const bool has_grown = found.identity.head_length > file.head.size();
    if (has_grown || is_same_file(found.identity, file)) seen.push_back(found);
  }
  return seen;
}

void Store::forget_seen(const std::string& section, const Identity& identity) {
  database->transaction([&] { forget_seen_now(section, identity); });
}

void Store::note_seen(const std::string& section, const std::string& log, const std::optional<Progress>& now,
                      const SeenChanges& changes) {
  const bool is_news = now && !(progress(section, now->log) == now);
  bool is_of_another = false;
  {
    auto query = database->query("SELECT 1 FROM seen WHERE section = ? AND log <> ?");
    query.bind(section).bind(log);
    is_of_another = query.next();
  }
  if (!is_news && !is_of_another && changes.outdated.empty() && changes.fresh.empty()) return;
  database->transaction_on_disk_later([&] {
    if (is_news) write_progress(section, *now);
    database->query("DELETE FROM seen WHERE section = ? AND log <> ?").bind(section).bind(log).run();
    for (const Identity& identity : changes.outdated) forget_seen_now(section, identity);
    for (const ClosedFile* file : changes.fresh) write_seen(section, log, *file);
  });
}

void Store::write_seen(const std::string& section, const std::string& log, const ClosedFile& file) {
  auto query = database->query("INSERT OR REPLACE INTO seen VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
  bind(query.bind(section), file.as.identity)
      .bind(file.as.size)
      .bind(file.as.mtime_ns)
      .bind(log)
      .bind(file.path)
      .bind_sum()
      .run();
}
