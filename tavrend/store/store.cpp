#include "store/store.h"

#include <errno.h>
#include <string.h>
#include <sys/stat.h>

#include <algorithm>
#include <iterator>
#include <sstream>

#include "store/database.h"
#include "store/row_sum.h"

namespace {

constexpr int schema_version = 2;
constexpr int most_errors = 100;
constexpr int64_t week_ms = int64_t{7} * 24 * 3600 * 1000;

/* Texts are blobs, because paths may hold any bytes. Device, inode and checksum are unsigned: cast there and back. */
constexpr char schema[] =
    "CREATE TABLE number (name TEXT PRIMARY KEY, value INTEGER NOT NULL, sum INTEGER NOT NULL) WITHOUT ROWID;"
    "CREATE TABLE text (name BLOB PRIMARY KEY, value BLOB NOT NULL, sum INTEGER NOT NULL) WITHOUT ROWID;"
    "CREATE TABLE IF NOT EXISTS error (id INTEGER PRIMARY KEY, serialised BLOB NOT NULL);"
    "CREATE TABLE section (name BLOB PRIMARY KEY, compartment INTEGER NOT NULL, last_item_ms INTEGER NOT NULL,"
    " sum INTEGER NOT NULL) WITHOUT ROWID;"
    "CREATE TABLE archived (id INTEGER PRIMARY KEY, section BLOB NOT NULL, device INTEGER NOT NULL,"
    " inode INTEGER NOT NULL, head_length INTEGER NOT NULL, head_checksum INTEGER NOT NULL, size INTEGER NOT NULL,"
    " mtime_ns INTEGER NOT NULL, missing_since_ms INTEGER NOT NULL DEFAULT 0, sum INTEGER NOT NULL);"
    "CREATE INDEX archived_section ON archived (section);"
    "CREATE TABLE progress (section BLOB PRIMARY KEY, device INTEGER NOT NULL, inode INTEGER NOT NULL,"
    " head_length INTEGER NOT NULL, head_checksum INTEGER NOT NULL, offset INTEGER NOT NULL, seen INTEGER NOT NULL,"
    " mtime_ns INTEGER NOT NULL, finished INTEGER NOT NULL, sum INTEGER NOT NULL) WITHOUT ROWID;"
    "CREATE TABLE intent (section BLOB NOT NULL, remote_path BLOB NOT NULL, path BLOB NOT NULL,"
    " device INTEGER NOT NULL, inode INTEGER NOT NULL, size INTEGER NOT NULL, mtime_ns INTEGER NOT NULL,"
    " head BLOB NOT NULL, follows INTEGER NOT NULL, grows INTEGER NOT NULL, first INTEGER NOT NULL,"
    " length INTEGER NOT NULL, sum INTEGER NOT NULL, PRIMARY KEY (section, remote_path)) WITHOUT ROWID;";

/* Each row has the sum of these columns. For how long a file was missing may be wrong. */
struct SummedTable {
  const char* name;
  const char* columns;
  int count;
};
constexpr SummedTable summed_tables[] = {
    {"number", "name, value", 2},
    {"text", "name, value", 2},
    {"section", "name, compartment, last_item_ms", 3},
    {"archived", "section, device, inode, head_length, head_checksum, size, mtime_ns", 7},
    {"progress", "section, device, inode, head_length, head_checksum, offset, seen, mtime_ns, finished", 9},
    {"intent", "section, remote_path, path, device, inode, size, mtime_ns, head, follows, grows, first, length", 12},
};

/* The directory is made when it is not there; one that is there is the administrator's. */
void make_directory(const std::string& directory) {
  if (mkdir(directory.c_str(), 0700) == 0 || errno == EEXIST) return;
  throw StoreError(directory + ": " + strerror(errno));
}

int64_t version_of(Database& database) {
  auto version = database.query("PRAGMA user_version");
  version.next();
  return version.number(0);
}

/* Not the quick check: rows that an index has lost would be archived again. */
std::string damage_of(Database& database) {
  auto damage = database.query("PRAGMA integrity_check(1)");
  return damage.next() ? damage.text(0) : "";
}

bool is_sound(Database& database, const SummedTable& table) {
  std::ostringstream select;
  select << "SELECT " << table.columns << ", sum FROM " << table.name;
  for (auto row = database.query(select.str().c_str()); row.next();) {
    if (!row.is_sound(table.count + 1)) return false;
  }
  return true;
}

/* Copies the rows of an older form of the table, which have no sums. */
void take_rows(Database& database, const SummedTable& table) {
  std::ostringstream select;
  select << "SELECT " << table.columns << " FROM old_" << table.name;
  std::ostringstream insert;
  insert << "INSERT INTO " << table.name << " (" << table.columns << ", sum) VALUES (?";
  for (int i = 0; i < table.count; ++i) insert << ", ?";
  insert << ")";
  for (auto row = database.query(select.str().c_str()); row.next();) {
    database.query(insert.str().c_str()).bind_row(row, table.count).bind_sum().run();
  }
}

/* The first version had no sums, and knew one intent of a section. */
void take_first_version(Database& database) {
  for (const SummedTable& table : summed_tables) {
    database.run((std::string("ALTER TABLE ") + table.name + " RENAME TO old_" + table.name).c_str());
  }
  database.run("DROP INDEX archived_section");
  database.run(schema);
  for (const SummedTable& table : summed_tables) {
    take_rows(database, table);
    database.run((std::string("DROP TABLE old_") + table.name).c_str());
  }
}

void check(Database& database, const std::string& directory) {
  const std::string file = directory + "/tavrend.db";
  const int64_t found = version_of(database);
  if (found > schema_version) throw StoreError(file + ": written by a newer version of this program");
  const std::string damage = damage_of(database);
  if (damage != "ok") throw StoreError(file + ": damaged: " + damage);
  if (found == schema_version) {
    const bool is_all_sound = std::all_of(std::begin(summed_tables), std::end(summed_tables),
                                          [&](const SummedTable& table) { return is_sound(database, table); });
    if (!is_all_sound) throw StoreError(file + ": damaged: a value has changed");
    return;
  }
  database.transaction([&database, found] {
    if (found == 0) {
      database.run(schema);
    } else {
      take_first_version(database);
    }
    database.run("PRAGMA user_version = 2");
  });
}

Identity identity_at(const Database::Query& row, int column) {
  return {static_cast<uint64_t>(row.number(column)), static_cast<uint64_t>(row.number(column + 1)),
          static_cast<uint32_t>(row.number(column + 2)), static_cast<uint64_t>(row.number(column + 3))};
}

Database::Query& bind(Database::Query& query, const Identity& identity) {
  return query.bind(static_cast<int64_t>(identity.device))
      .bind(static_cast<int64_t>(identity.inode))
      .bind(static_cast<int64_t>(identity.head_length))
      .bind(static_cast<int64_t>(identity.head_checksum));
}

constexpr const char* setting_names[] = {"host", "dir", "user", "password", "host_key", "fingerprint"};

std::string& setting(Settings& settings, int number) {
  static constexpr std::string Settings::*all[] = {&Settings::host,     &Settings::dir,      &Settings::user,
                                                   &Settings::password, &Settings::host_key, &Settings::fingerprint};
  return settings.*all[number];
}

}  // namespace

Store::Store(const std::string& directory) {
  make_directory(directory);
  database = std::make_unique<Database>(directory + "/tavrend.db");
  check(*database, directory);
}

Store::~Store() = default;

int64_t Store::number(const char* name) {
  auto query = database->query("SELECT value FROM number WHERE name = ?");
  query.bind(std::string_view(name));
  return query.next() ? query.number(0) : 0;
}

void Store::set_number(const char* name, int64_t value) {
  database->query("INSERT OR REPLACE INTO number VALUES (?, ?, ?)")
      .bind(std::string_view(name))
      .bind(value)
      .bind_sum()
      .run();
}

std::optional<ArchiveConfig> Store::config() {
  if (number("configured") == 0) return std::nullopt;
  ArchiveConfig config;
  for (int i = 0; i < 6; ++i) setting(config.settings, i) = text(std::string("config.") + setting_names[i]);
  config.space_limit[0] = static_cast<int32_t>(number("space_limit.0"));
  config.space_limit[1] = static_cast<int32_t>(number("space_limit.1"));
  return config;
}

bool Store::is_enabled() { return number("enabled") != 0; }

void Store::set_config_now(const ArchiveConfig& config) {
  ArchiveConfig copy = config;
  for (int i = 0; i < 6; ++i) {
    database->query("INSERT OR REPLACE INTO text VALUES (?, ?, ?)")
        .bind(std::string("config.") + setting_names[i])
        .bind(setting(copy.settings, i))
        .bind_sum()
        .run();
  }
  set_number("space_limit.0", config.space_limit[0]);
  set_number("space_limit.1", config.space_limit[1]);
  set_number("configured", 1);
  set_number("claimed", 0);
}

void Store::set_config(const std::optional<ArchiveConfig>& config, bool enabled) {
  database->transaction([&] {
    if (config) set_config_now(*config);
    set_number("enabled", enabled ? 1 : 0);
  });
}

bool Store::is_claimed() { return number("claimed") != 0; }

void Store::set_claimed() {
  database->transaction([this] { set_number("claimed", 1); });
}

std::string Store::text(const std::string& kind) {
  auto query = database->query("SELECT value FROM text WHERE name = ?");
  query.bind(kind);
  return query.next() ? query.text(0) : "";
}

void Store::set_text(const std::string& kind, const std::string& text) {
  database->transaction(
      [&] { database->query("INSERT OR REPLACE INTO text VALUES (?, ?, ?)").bind(kind).bind(text).bind_sum().run(); });
}

std::vector<std::string> Store::errors() {
  std::vector<std::string> errors;
  for (auto query = database->query("SELECT serialised FROM error ORDER BY id"); query.next();) {
    errors.push_back(query.text(0));
  }
  return errors;
}

void Store::add_error(const std::string& serialised) {
  database->transaction([&] {
    database->query("INSERT INTO error (serialised) VALUES (?)").bind(serialised).run();
    database->query("DELETE FROM error WHERE id <= (SELECT MAX(id) FROM error) - ?")
        .bind(static_cast<int64_t>(most_errors))
        .run();
  });
}

void Store::clear_errors() {
  database->transaction([this] { database->query("DELETE FROM error").run(); });
}

std::vector<ArchivedFile> Store::archived_files(const std::string& section) {
  std::vector<ArchivedFile> files;
  auto query = database->query(
      "SELECT device, inode, head_length, head_checksum, size, mtime_ns FROM archived WHERE section = ? ORDER BY id");
  query.bind(section);
  while (query.next()) files.push_back({identity_at(query, 0), query.number(4), query.number(5)});
  return files;
}

std::vector<Identity> Store::known_files(const std::string& section) {
  std::vector<Identity> known;
  for (const ArchivedFile& file : archived_files(section)) known.push_back(file.identity);
  return known;
}

void Store::forget_missing_files(const std::string& section, const ClosedFiles& look, int64_t now_ms) {
  struct Change {
    int64_t id;
    int64_t missing_since_ms; /* forgotten: -1 */
  };
  std::vector<Change> changes;
  auto query = database->query(
      "SELECT device, inode, head_length, head_checksum, id, missing_since_ms FROM archived WHERE section = ?");
  query.bind(section);
  while (query.next()) {
    const int64_t since = query.number(5);
    /* A clock that was set back says nothing of how long: the time begins anew. */
    const bool is_counted = since != 0 && since <= now_ms;
    if (!look.is_missing(identity_at(query, 0))) {
      if (since != 0) changes.push_back({query.number(4), 0});
    } else if (!is_counted) {
      changes.push_back({query.number(4), now_ms});
    } else if (now_ms - since >= week_ms) {
      changes.push_back({query.number(4), -1});
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

std::optional<Progress> Store::progress(const std::string& section) {
  auto query = database->query(
      "SELECT device, inode, head_length, head_checksum, offset, seen, mtime_ns, finished FROM progress"
      " WHERE section = ?");
  query.bind(section);
  if (!query.next()) return std::nullopt;
  return Progress{identity_at(query, 0), query.number(4), query.number(5), query.number(6), query.number(7) != 0};
}

void Store::write_progress(const std::string& section, const Progress& progress) {
  auto query = database->query("INSERT OR REPLACE INTO progress VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
  bind(query.bind(section), progress.identity)
      .bind(progress.offset)
      .bind(progress.seen)
      .bind(progress.mtime_ns)
      .bind(int64_t{progress.finished})
      .bind_sum()
      .run();
}

void Store::note_look(const std::string& section, const std::optional<Progress>& now,
                      const std::vector<LogFile>& known) {
  /* Most looks show nothing new, and nothing is written then. */
  const auto before = progress(section);
  const bool is_news = now && !(before && *before == *now);
  std::vector<LogFile> new_files = known;
  const auto archived = archived_files(section);
  const auto is_known = [&archived](const LogFile& file) {
    return std::any_of(archived.begin(), archived.end(),
                       [&file](const ArchivedFile& a) { return is_archived(a, file); });
  };
  new_files.erase(std::remove_if(new_files.begin(), new_files.end(), is_known), new_files.end());
  if (!is_news && new_files.empty()) return;
  database->transaction([&] {
    if (now) write_progress(section, *now);
    for (const LogFile& file : new_files) remember_file(section, file);
  });
}

std::vector<ArchivedSection> Store::sections() {
  std::vector<ArchivedSection> sections;
  for (auto query = database->query("SELECT name, compartment FROM section ORDER BY name"); query.next();) {
    sections.push_back({query.text(0), static_cast<int>(query.number(1))});
  }
  return sections;
}

void Store::add_section(const ArchivedSection& section) {
  /* Nothing is written when it is no news: a full disk does not keep the daemon from its start. */
  const auto known = sections();
  const auto is_it = [&section](const ArchivedSection& other) {
    return other.name == section.name && other.compartment == section.compartment;
  };
  if (std::any_of(known.begin(), known.end(), is_it)) return;
  database->transaction([&] {
    database
        ->query(
            "INSERT INTO section VALUES (?, ?, ?, ?)"
            " ON CONFLICT (name) DO UPDATE SET compartment = excluded.compartment, sum = excluded.sum")
        .bind(section.name)
        .bind(static_cast<int64_t>(section.compartment))
        .bind(last_item_time(section.name))
        .bind_sum()
        .run();
  });
}

int64_t Store::last_item_time(const std::string& section) {
  auto query = database->query("SELECT last_item_ms FROM section WHERE name = ?");
  query.bind(section);
  return query.next() ? query.number(0) : 0;
}

std::vector<Intent> Store::open_intents(const std::string& section) {
  std::vector<Intent> open;
  auto query = database->query(
      "SELECT remote_path, path, device, inode, size, mtime_ns, head, follows, grows, first, length FROM intent"
      " WHERE section = ? ORDER BY remote_path");
  query.bind(section);
  while (query.next()) {
    const LogFile file{query.text(1),
                       static_cast<uint64_t>(query.number(2)),
                       static_cast<uint64_t>(query.number(3)),
                       query.number(4),
                       query.number(5),
                       query.text(6)};
    open.push_back(
        {section, query.text(0), file, query.number(7) != 0, query.number(8) != 0, query.number(9), query.number(10)});
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
  database->query("INSERT OR REPLACE INTO intent VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)")
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

void Store::remember_file(const std::string& section, const LogFile& file) {
  auto query = database->query(
      "INSERT INTO archived (section, device, inode, head_length, head_checksum, size, mtime_ns, sum)"
      " VALUES (?, ?, ?, ?, ?, ?, ?, ?)");
  bind(query.bind(section), identity_of(file)).bind(file.size).bind(file.mtime_ns).bind_sum().run();
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
  bool is_known = false;
  for (const Identity& known : known_files(intent.section)) {
    if (!is_same_file(known, intent.file)) continue;
    is_known = true;
    auto query = database->query(
        "DELETE FROM archived WHERE section = ? AND device = ? AND inode = ? AND head_length = ? AND head_checksum = "
        "?");
    bind(query.bind(intent.section), known).run();
  }
  if (!is_known) return false;
  LogFile archived = intent.file;
  archived.size = intent.first + intent.length;
  remember_file(intent.section, archived);
  return true;
}

void Store::note_finished(const Intent& intent) {
  if (note_late_end(intent)) return end_intent(intent);
  const int64_t end = intent.first + intent.length;
  const bool is_whole = !intent.grows && end == intent.file.size;
  write_progress(intent.section, {identity_of(intent.file), end, intent.file.size, intent.file.mtime_ns, is_whole});
  if (is_whole) remember_file(intent.section, intent.file);
  end_intent(intent);
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
