#ifndef TAVREND_STORE_ROW_SUM_H
#define TAVREND_STORE_ROW_SUM_H

#include <stdint.h>

#include <string>
#include <string_view>

#include "plan/checksum.h"

/*
 * The checksum of a row's values, in their order. SQLite finds damage in how its pages hang together; a bit that has
 * changed in a value, an offset for example, it takes for what was written.
 */
class RowSum {
 public:
  void add(int64_t value) {
    char bytes[sizeof value];
    for (size_t i = 0; i < sizeof bytes; ++i) bytes[i] = static_cast<char>(static_cast<uint64_t>(value) >> (8 * i));
    sum = checksum(std::string_view(bytes, sizeof bytes), sum);
  }
  void add(std::string_view text) {
    add(static_cast<int64_t>(text.size()));
    sum = checksum(text, sum);
  }
  int64_t value() const { return static_cast<int64_t>(sum); }

 private:
  uint64_t sum = checksum_of_nothing;
};

#endif
