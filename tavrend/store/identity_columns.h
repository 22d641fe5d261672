#ifndef TAVREND_STORE_IDENTITY_COLUMNS_H
#define TAVREND_STORE_IDENTITY_COLUMNS_H

#include <stdint.h>

#include "plan/log_file.h"
#include "store/database.h"

/* A file's identity in four columns of a row: device, inode, head_length, head_checksum. */

inline Identity identity_at(const Database::Query& row, int column) {
  return {static_cast<uint64_t>(row.number(column)), static_cast<uint64_t>(row.number(column + 1)),
          static_cast<uint32_t>(row.number(column + 2)), static_cast<uint64_t>(row.number(column + 3))};
}

inline Database::Query& bind(Database::Query& query, const Identity& identity) {
  return query.bind(static_cast<int64_t>(identity.device))
      .bind(static_cast<int64_t>(identity.inode))
      .bind(static_cast<int64_t>(identity.head_length))
      .bind(static_cast<int64_t>(identity.head_checksum));
}

#endif
