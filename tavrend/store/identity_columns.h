#ifndef TAVREND_STORE_IDENTITY_COLUMNS_H
#define TAVREND_STORE_IDENTITY_COLUMNS_H

#include <stdint.h>

#include "plan/closed_files.h"
#include "plan/log_file.h"
#include "store/database.h"

/* A file's identity in four columns of a row: device, inode, head_length, head_checksum. */

inline Identity identity_at(const Database::Query& row, int column) {
  return {static_cast<uint64_t>(row.number(column)), static_cast<uint64_t>(row.number(column + 1)),
          static_cast<uint32_t>(row.number(column + 2)), static_cast<uint64_t>(row.number(column + 3))};
}

/* The same in the first four columns, with size and mtime_ns behind them. */
inline ArchivedFile file_at(const Database::Query& row) { return {identity_at(row, 0), row.number(4), row.number(5)}; }

inline Database::Query& bind_inode(Database::Query& query, const Inode& inode) {
  return query.bind(static_cast<int64_t>(inode.first)).bind(static_cast<int64_t>(inode.second));
}

inline Database::Query& bind(Database::Query& query, const Identity& identity) {
  return bind_inode(query, inode_of(identity))
      .bind(static_cast<int64_t>(identity.head_length))
      .bind(static_cast<int64_t>(identity.head_checksum));
}

#endif
