#include "store/database.h"

#include <sqlite3.h>
#include <stdint.h>
#include <string.h>
#include <sys/stat.h>

#include <filesystem>
#include <system_error>
#include <utility>

#include "store/store_error.h"

namespace {

constexpr char on_disk_now[] = "PRAGMA synchronous = FULL";
constexpr char on_disk_later[] = "PRAGMA synchronous = NORMAL";

/*
 * When so many pages of 4 KiB stand in the log, they go into the database: an archived file takes about ten. It is done
 * after a thousand otherwise, for which a small file system has no room.
 */
constexpr char short_log[] = "PRAGMA wal_autocheckpoint = 32";
constexpr uintmax_t room_for_a_long_log = uintmax_t{64} * 1024 * 1024;

/* In KiB: most statements need a few pages, and a change of many of them shall not need memory by their number. */
constexpr char small_cache[] = "PRAGMA cache_size = -256";

bool has_room_for_a_long_log(const std::string& file) {
  std::error_code error;
  const auto room = std::filesystem::space(file, error);
  return !error && room.capacity >= room_for_a_long_log;
}

}  // namespace

Database::Database(const std::string& file, Kind kind) : path(file) {
  const int flags = SQLITE_OPEN_READWRITE | (kind == Kind::may_be_new ? SQLITE_OPEN_CREATE : 0);
  const mode_t old_umask = umask(077);
  const int result = sqlite3_open_v2(path.c_str(), &handle, flags, nullptr);
  umask(old_umask);
  try {
    if (result != SQLITE_OK) fail();
    /* SQLite falls back to reading alone. */
    if (sqlite3_db_readonly(handle, "main") != 0) throw StoreError(path + ": " + sqlite3_errstr(SQLITE_READONLY));
    sqlite3_extended_result_codes(handle, 1);
    run("PRAGMA locking_mode = EXCLUSIVE");
    use_log();
    run("BEGIN EXCLUSIVE; COMMIT");
  } catch (...) {
    close();
    throw;
  }
}

Database::~Database() { close(); }

/* It stays locked while there is a statement. */
void Database::close() {
  for (const auto& [sql, statement] : statements) sqlite3_finalize(statement);
  sqlite3_close_v2(handle);
}

/*
 * With a write-ahead log one write to the disk makes a change permanent, where a rollback journal takes four. It is a
 * file beside the database, which the last close empties into that and removes.
 */
void Database::use_log() {
  auto mode = query("PRAGMA journal_mode = WAL");
  mode.next();
  if (mode.text(0) != "wal") throw StoreError(path + ": cannot have a write-ahead log");
  if (!has_room_for_a_long_log(path)) run(short_log);
  run(on_disk_now);
  run(small_cache);
}

void Database::fail() const { throw StoreError(path + ": " + sqlite3_errmsg(handle)); }

Database::Query Database::query(const char* sql) {
  sqlite3_stmt*& statement = statements[sql];
  if (statement == nullptr &&
      sqlite3_prepare_v3(handle, sql, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr) != SQLITE_OK) {
    fail();
  }
  return Query(*this, statement);
}

void Database::run(const char* sql) {
  if (sqlite3_exec(handle, sql, nullptr, nullptr, nullptr) != SQLITE_OK) fail();
}

void Database::transaction(const std::function<void()>& change) {
  run("BEGIN IMMEDIATE");
  try {
    change();
    run("COMMIT");
  } catch (...) {
    /* A commit that failed may have ended the transaction by itself. */
    if (sqlite3_get_autocommit(handle) == 0) sqlite3_exec(handle, "ROLLBACK", nullptr, nullptr, nullptr);
    throw;
  }
}

void Database::transaction_on_disk_later(const std::function<void()>& change) {
  run(on_disk_later);
  is_synced = false;
  try {
    transaction(change);
  } catch (...) {
    run(on_disk_now);
    throw;
  }
  run(on_disk_now);
}

/* The log goes to the disk as a whole, with any change: a number is written as it is. */
void Database::sync() {
  if (is_synced) return;
  int64_t version = 0;
  {
    auto present = query("PRAGMA user_version");
    present.next();
    version = present.number(0);
  }
  run(("PRAGMA user_version = " + std::to_string(version)).c_str());
  is_synced = true;
}

/* The last close does the same, and says nothing where it cannot. */
void Database::put_into_one_file() {
  auto mode = query("PRAGMA journal_mode = DELETE");
  mode.next();
  if (mode.text(0) != "delete") throw StoreError(path + ": cannot be without a write-ahead log");
}

Database::Query::Query(Database& owner, sqlite3_stmt* prepared) : database(owner), statement(prepared) {}

Database::Query::~Query() {
  if (statement == nullptr) return;
  sqlite3_reset(statement);
  sqlite3_clear_bindings(statement);
}

Database::Query::Query(Query&& other) noexcept
    : database(other.database),
      statement(std::exchange(other.statement, nullptr)),
      bound(other.bound),
      sum(other.sum) {}

Database::Query& Database::Query::bind(int64_t value) {
  sum.add(value);
  if (sqlite3_bind_int64(statement, ++bound, value) != SQLITE_OK) database.fail();
  return *this;
}

Database::Query& Database::Query::bind(std::string_view value) {
  sum.add(value);
  const void* const bytes = value.empty() ? "" : value.data(); /* NULL would be no blob, but no value */
  if (sqlite3_bind_blob64(statement, ++bound, bytes, value.size(), SQLITE_TRANSIENT) != SQLITE_OK) database.fail();
  return *this;
}

Database::Query& Database::Query::bind_row(const Query& row, int columns) {
  for (int column = 0; column < columns; ++column) {
    if (sqlite3_column_type(row.statement, column) == SQLITE_INTEGER) {
      bind(row.number(column));
    } else {
      bind(row.text(column));
    }
  }
  return *this;
}

Database::Query& Database::Query::bind_sum() { return bind(sum.value()); }

bool Database::Query::is_sound(int columns) const {
  RowSum expected;
  for (int column = 0; column < columns - 1; ++column) {
    /* 0 and a blob of no bytes have the same sum. */
    const char* const declared = sqlite3_column_decltype(statement, column);
    const bool is_number = declared != nullptr && strcmp(declared, "INTEGER") == 0;
    if (sqlite3_column_type(statement, column) != (is_number ? SQLITE_INTEGER : SQLITE_BLOB)) return false;
    if (is_number) {
      expected.add(number(column));
    } else {
      expected.add(text(column));
    }
  }
  return number(columns - 1) == expected.value();
}

bool Database::Query::next() {
  const int result = sqlite3_step(statement);
  if (result != SQLITE_ROW && result != SQLITE_DONE) database.fail();
  return result == SQLITE_ROW;
}

void Database::Query::run() {
  while (next()) {
  }
}

int64_t Database::Query::number(int column) const { return sqlite3_column_int64(statement, column); }

std::string Database::Query::text(int column) const {
  const void* const bytes = sqlite3_column_blob(statement, column);
  const auto size = static_cast<size_t>(sqlite3_column_bytes(statement, column));
  return bytes == nullptr ? "" : std::string(static_cast<const char*>(bytes), size);
}
