#ifndef TAVREND_STORE_DATABASE_H
#define TAVREND_STORE_DATABASE_H

#include <stdint.h>

#include <functional>
#include <map>
#include <string>
#include <string_view>

#include "store/row_sum.h"

struct sqlite3;
struct sqlite3_stmt;

/*
 * An open SQLite database, with statements that are prepared once. Whatever SQLite reports is a StoreError that names
 * the file. Not for more than one thread.
 */
class Database {
 public:
  /* Opens the database at path for this process alone. One that may be new is made when it is not there, mode 0600. */
  enum class Kind { old, may_be_new };
  explicit Database(const std::string& path, Kind kind = Kind::old);
  ~Database();
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  /* A statement with its arguments, run row by row. Reset when it goes. */
  class Query {
   public:
    Query(Database& database, sqlite3_stmt* statement);
    ~Query();
    Query(Query&& other) noexcept;
    Query& operator=(Query&&) = delete;
    Query(const Query&) = delete;

    Query& bind(int64_t value);
    Query& bind(std::string_view value);            /* any bytes */
    Query& bind_row(const Query& row, int columns); /* the first ones of another's present row */
    Query& bind_sum();                              /* of what was bound so far */

    /* Goes on to the next row. Returns whether there is one. */
    bool next();
    /* Runs a statement that has no rows. */
    void run();

    int64_t number(int column) const;
    std::string text(int column) const;
    /* Whether the last of so many columns is the sum of those before it. */
    bool is_sound(int columns) const;

   private:
    Database& database;
    sqlite3_stmt* statement;
    int bound = 0;
    RowSum sum;
  };

  Query query(const char* sql);

  /* Runs statements without arguments or rows. */
  void run(const char* sql);

  /* Runs change as one transaction, which is on the disk when this returns, and has not taken place when it throws. */
  void transaction(const std::function<void()>& change);

  /*
   * The same, but it is on the disk together with the next transaction, or after sync: until then the end of this
   * process leaves it, and a power cut takes it back.
   */
  void transaction_on_disk_later(const std::function<void()>& change);
  void sync();

  /* Puts all that there is into the database itself, which is on the disk when this returns. */
  void put_into_one_file();

 private:
  void use_log();
  void close();
  [[noreturn]] void fail() const;

  std::string path;
  sqlite3* handle = nullptr;
  bool is_synced = true;
  std::map<std::string, sqlite3_stmt*> statements;
};

#endif
