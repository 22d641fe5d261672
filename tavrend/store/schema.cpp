#include "store/schema.h"

#include <algorithm>
#include <iterator>
#include <sstream>

#include "store/database.h"
#include "store/store_error.h"

namespace {

constexpr int schema_version = 3;

/*
 * Texts are blobs, because paths may hold any bytes. Device, inode and checksum are unsigned: cast there and back. A
 * log is the path that is followed, log_dir_prefix before it; of closed files it is empty, and for files that were seen
 * the pattern.
 */
constexpr char schema[] =
    "CREATE TABLE number (name TEXT PRIMARY KEY, value INTEGER NOT NULL, sum INTEGER NOT NULL) WITHOUT ROWID;"
    "CREATE TABLE text (name BLOB PRIMARY KEY, value BLOB NOT NULL, sum INTEGER NOT NULL) WITHOUT ROWID;"
    "CREATE TABLE IF NOT EXISTS error (id INTEGER PRIMARY KEY, serialised BLOB NOT NULL);"
    "CREATE TABLE section (name BLOB PRIMARY KEY, compartment INTEGER NOT NULL, last_item_ms INTEGER NOT NULL,"
    " sum INTEGER NOT NULL) WITHOUT ROWID;"
    "CREATE TABLE archived (id INTEGER PRIMARY KEY, section BLOB NOT NULL, device INTEGER NOT NULL,"
    " inode INTEGER NOT NULL, head_length INTEGER NOT NULL, head_checksum INTEGER NOT NULL, size INTEGER NOT NULL,"
    " mtime_ns INTEGER NOT NULL, passed_over INTEGER NOT NULL, missing_since_ms INTEGER NOT NULL DEFAULT 0,"
    " sum INTEGER NOT NULL);"
    "CREATE INDEX archived_section ON archived (section);"
    "CREATE TABLE progress (section BLOB NOT NULL, log BLOB NOT NULL, device INTEGER NOT NULL, inode INTEGER NOT NULL,"
    " head_length INTEGER NOT NULL, head_checksum INTEGER NOT NULL, offset INTEGER NOT NULL, seen INTEGER NOT NULL,"
    " mtime_ns INTEGER NOT NULL, finished INTEGER NOT NULL, sum INTEGER NOT NULL, PRIMARY KEY (section, log))"
    " WITHOUT ROWID;"
    "CREATE TABLE intent (section BLOB NOT NULL, remote_path BLOB NOT NULL, path BLOB NOT NULL,"
    " device INTEGER NOT NULL, inode INTEGER NOT NULL, size INTEGER NOT NULL, mtime_ns INTEGER NOT NULL,"
    " head BLOB NOT NULL, follows INTEGER NOT NULL, grows INTEGER NOT NULL, first INTEGER NOT NULL,"
    " length INTEGER NOT NULL, log BLOB NOT NULL, compressed INTEGER NOT NULL, announced INTEGER NOT NULL,"
    " sum INTEGER NOT NULL, PRIMARY KEY (section, remote_path)) WITHOUT ROWID;"
    "CREATE TABLE seen (section BLOB NOT NULL, device INTEGER NOT NULL, inode INTEGER NOT NULL,"
    " head_length INTEGER NOT NULL, head_checksum INTEGER NOT NULL, size INTEGER NOT NULL, mtime_ns INTEGER NOT NULL,"
    " log BLOB NOT NULL, path BLOB NOT NULL, sum INTEGER NOT NULL,"
    " PRIMARY KEY (section, device, inode, head_length, head_checksum)) WITHOUT ROWID;"
    "CREATE TABLE begun (section BLOB NOT NULL, device INTEGER NOT NULL, inode INTEGER NOT NULL,"
    " head_length INTEGER NOT NULL, head_checksum INTEGER NOT NULL, size INTEGER NOT NULL, mtime_ns INTEGER NOT NULL,"
    " offset INTEGER NOT NULL, sum INTEGER NOT NULL,"
    " PRIMARY KEY (section, device, inode, head_length, head_checksum)) WITHOUT ROWID;";

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
    {"archived", "section, device, inode, head_length, head_checksum, size, mtime_ns, passed_over", 8},
    {"progress", "section, log, device, inode, head_length, head_checksum, offset, seen, mtime_ns, finished", 10},
    {"intent",
     "section, remote_path, path, device, inode, size, mtime_ns, head, follows, grows, first, length, log, compressed,"
     " announced",
     15},
    {"seen", "section, device, inode, head_length, head_checksum, size, mtime_ns, log, path", 9},
    {"begun", "section, device, inode, head_length, head_checksum, size, mtime_ns, offset", 8},
};

/* The same of the second version; the first had these columns, and no sums. */
constexpr SummedTable older_tables[] = {
    {"number", "name, value", 2},
    {"text", "name, value", 2},
    {"section", "name, compartment, last_item_ms", 3},
    {"archived", "section, device, inode, head_length, head_checksum, size, mtime_ns", 7},
    {"progress", "section, device, inode, head_length, head_checksum, offset, seen, mtime_ns, finished", 9},
    {"intent", "section, remote_path, path, device, inode, size, mtime_ns, head, follows, grows, first, length", 12},
};

/* What stands in a text by that name said which log a section followed. */
constexpr char log_of_section[] =
    "IFNULL((SELECT value FROM text WHERE name = CAST('follow.' || CAST(section AS TEXT) AS BLOB)), x'')";
constexpr char zst[] = "x'2E7A7374'";

/* What a row of those tables is now, in the order of its columns. */
std::string taken_over(const std::string& table) {
  if (table == "archived") return "section, device, inode, head_length, head_checksum, size, mtime_ns, 0";
  if (table == "progress") {
    return std::string("section, ") + log_of_section +
           ", device, inode, head_length, head_checksum, offset, seen, mtime_ns, finished";
  }
  if (table == "intent") {
    /* A file whose own name ends so has an item that ends so twice. */
    const std::string is_compressed = std::string("substr(remote_path, -4) = ") + zst + " AND (substr(path, -4) <> " +
                                      zst + " OR substr(remote_path, -8, 4) = " + zst + ")";
    return "section, remote_path, path, device, inode, size, mtime_ns, head, follows, grows, first, length,"
           " CASE follows WHEN 0 THEN x'' ELSE " +
           std::string(log_of_section) + " END, " + is_compressed + ", -1";
  }
  return "";
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

bool has(Database& database, const std::string& what) {
  auto count = database.query(("SELECT COUNT(*) FROM " + what).c_str());
  return count.next() && count.number(0) != 0;
}

/* What a version says must be what the tables say. */
int64_t version_by_tables(Database& database) {
  if (!has(database, "pragma_table_info('number')")) return 0;
  if (!has(database, "pragma_table_info('number') WHERE name = 'sum'")) return 1;
  return has(database, "pragma_table_info('seen')") ? 3 : 2;
}

bool is_sound(Database& database, const SummedTable& table) {
  std::ostringstream select;
  select << "SELECT " << table.columns << ", sum FROM " << table.name;
  for (auto row = database.query(select.str().c_str()); row.next();) {
    if (!row.is_sound(table.count + 1)) return false;
  }
  return true;
}

template <size_t Count>
void check_sums(Database& database, const SummedTable (&tables)[Count], const std::string& file) {
  const bool is_all_sound = std::all_of(std::begin(tables), std::end(tables),
                                        [&](const SummedTable& table) { return is_sound(database, table); });
  if (!is_all_sound) throw StoreError(file + ": damaged: a value has changed");
}

/* Copies the rows of an older form of the table. */
void take_rows(Database& database, const SummedTable& table) {
  const std::string taken = taken_over(table.name);
  std::ostringstream select;
  select << "SELECT " << (taken.empty() ? table.columns : taken) << " FROM old_" << table.name;
  std::ostringstream insert;
  insert << "INSERT INTO " << table.name << " (" << table.columns << ", sum) VALUES (?";
  for (int i = 0; i < table.count; ++i) insert << ", ?";
  insert << ")";
  for (auto row = database.query(select.str().c_str()); row.next();) {
    database.query(insert.str().c_str()).bind_row(row, table.count).bind_sum().run();
  }
}

/* The first version had no sums and knew one intent of a section; the second knew one log of a section. */
void take_older_version(Database& database) {
  for (const SummedTable& table : older_tables) {
    database.run((std::string("ALTER TABLE ") + table.name + " RENAME TO old_" + table.name).c_str());
  }
  database.run("DROP INDEX archived_section");
  database.run(schema);
  for (const SummedTable& table : summed_tables) {
    if (!has(database, "pragma_table_info('old_" + std::string(table.name) + "')")) continue;
    take_rows(database, table);
    database.run((std::string("DROP TABLE old_") + table.name).c_str());
  }
  database.run("DELETE FROM text WHERE substr(name, 1, 7) = CAST('follow.' AS BLOB)");
}

void set_version(Database& database) {
  database.run(("PRAGMA user_version = " + std::to_string(schema_version)).c_str());
}

}  // namespace

void make_state(Database& database) {
  if (version_of(database) != 0) return;
  database.transaction([&database] {
    database.run(schema);
    set_version(database);
  });
}

void prepare_state(Database& database, const std::string& file) {
  const int64_t found = version_of(database);
  if (found > schema_version) throw StoreError(file + ": written by a newer version of this program");
  const std::string damage = damage_of(database);
  if (damage != "ok") throw StoreError(file + ": damaged: " + damage);
  if (found != version_by_tables(database)) throw StoreError(file + ": damaged: its version has changed");
  if (found == 0) throw StoreError(file + ": damaged: nothing is in it");
  if (found == schema_version) return check_sums(database, summed_tables, file);
  if (found == 2) check_sums(database, older_tables, file);
  database.transaction([&database] {
    take_older_version(database);
    set_version(database);
  });
}
