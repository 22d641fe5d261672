#ifndef TESTS_TAVREND_STORE_FIXTURE_H
#define TESTS_TAVREND_STORE_FIXTURE_H

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <stdint.h>

#include <memory>
#include <optional>
#include <string>

#include "store/store.h"
#include "support/temporary_directory.h"
#include "tavrend/row_sum_sql.h"

/* A store in a directory of its own, whose file can be looked at and changed without it. */
class StoreTest : public testing::Test {
 protected:
  StoreTest() { reopen(); }

  void reopen() {
    store.reset();
    store = std::make_unique<Store>(path);
  }

  std::string error_of_opening() const {
    try {
      const Store other(path);
    } catch (const StoreError& error) {
      return error.what();
    }
    return "none";
  }

  void run(const std::string& sql) const {
    sqlite3* handle = nullptr;
    ASSERT_EQ(sqlite3_open(database.c_str(), &handle), SQLITE_OK);
    add_row_sum(handle);
    EXPECT_EQ(sqlite3_exec(handle, sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK) << sqlite3_errmsg(handle);
    sqlite3_close(handle);
  }

  /* What a query gives: blanks between columns, commas between rows. */
  std::string rows(const std::string& sql) const {
    sqlite3* handle = nullptr;
    std::string all;
    EXPECT_EQ(sqlite3_open(database.c_str(), &handle), SQLITE_OK);
    const auto take = [](void* to, int count, char** columns, char**) {
      std::string& text = *static_cast<std::string*>(to);
      for (int i = 0; i < count; ++i) text += (i > 0 ? " " : text.empty() ? "" : ", ") + std::string(columns[i]);
      return 0;
    };
    EXPECT_EQ(sqlite3_exec(handle, sql.c_str(), take, &all, nullptr), SQLITE_OK) << sqlite3_errmsg(handle);
    sqlite3_close(handle);
    return all;
  }

  static ArchiveConfig config() {
    return {{"archive.example", "/it's", "logger", "se\"cret", "ssh-ed25519 AAAA", "SHA256:x"}, {1000, -1}};
  }

  static LogFile file(int64_t size = 10) {
    return {
        std::string("/var/log/a\nb\xFF", 13), 0xFFFFFFFFFFFFFFFF, 0x8000000000000001, size, 123456789012345678, "head"};
  }

  static Intent intent(int64_t first = 0, int64_t length = 10, bool grows = false) {
    return {"audit", "audit/2026-11-22T06:29:51.123.x", file(), grows, grows, first, length};
  }

  static ArchivedFile as_archived() { return {identity_of(file()), file().size, file().mtime_ns}; }

  const TemporaryDirectory directory;
  const std::string path = directory.path("state");
  const std::string database = path + "/tavrend.db";
  std::unique_ptr<Store> store;
};

#endif
