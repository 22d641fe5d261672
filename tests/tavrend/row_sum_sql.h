#ifndef TESTS_TAVREND_ROW_SUM_SQL_H
#define TESTS_TAVREND_ROW_SUM_SQL_H

#include <sqlite3.h>

#include <string_view>

#include "store/row_sum.h"

/* For SQL: the sum of a row's values, without which the daemon takes the row for damaged. */
inline void row_sum(sqlite3_context* context, int count, sqlite3_value** values) {
  RowSum sum;
  for (int i = 0; i < count; ++i) {
    if (sqlite3_value_type(values[i]) == SQLITE_INTEGER) {
      sum.add(sqlite3_value_int64(values[i]));
    } else {
      const auto* const bytes = static_cast<const char*>(sqlite3_value_blob(values[i]));
      const auto size = static_cast<size_t>(sqlite3_value_bytes(values[i]));
      sum.add(bytes == nullptr ? std::string_view() : std::string_view(bytes, size));
    }
  }
  sqlite3_result_int64(context, sum.value());
}

/* Has SQL of that connection know row_sum. */
inline void add_row_sum(sqlite3* handle) {
  sqlite3_create_function(handle, "row_sum", -1, SQLITE_UTF8, nullptr, row_sum, nullptr, nullptr);
}

#endif
