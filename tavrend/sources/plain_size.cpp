#include "sources/plain_size.h"

#include <zstd.h>

namespace {

/* The lowest byte comes first. */
int64_t number_in(std::string_view tail) {
  int64_t number = 0;
  for (size_t i = tail.size(); i > 0; --i) number = number << 8 | static_cast<unsigned char>(tail[i - 1]);
  return number;
}

}  // namespace

int64_t plain_size_of(std::string_view head, std::string_view tail) {
  constexpr size_t shortest_gzip = 18;
  constexpr std::string_view gzip = "\x1F\x8B";
  constexpr std::string_view zstd = "\x28\xB5\x2F\xFD";
  if (head.substr(0, gzip.size()) == gzip && head.size() >= shortest_gzip && tail.size() == tail_size) {
    return number_in(tail);
  }
  if (head.substr(0, zstd.size()) != zstd) return -1;
  const unsigned long long size = ZSTD_getFrameContentSize(head.data(), head.size());
  const bool is_said = size != ZSTD_CONTENTSIZE_UNKNOWN && size != ZSTD_CONTENTSIZE_ERROR;
  return is_said && size <= INT64_MAX ? static_cast<int64_t>(size) : -1;
}
