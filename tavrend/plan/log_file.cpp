#include "plan/log_file.h"

#include <algorithm>
#include <iterator>
#include <string_view>
#include <tuple>

#include "plan/checksum.h"

bool operator==(const Identity& a, const Identity& b) {
  return std::tie(a.device, a.inode, a.head_length, a.head_checksum) ==
         std::tie(b.device, b.inode, b.head_length, b.head_checksum);
}

Identity identity_of(const LogFile& file) {
  return {file.device, file.inode, static_cast<uint32_t>(file.head.size()), checksum(file.head)};
}

bool begins_like(const Identity& known, const LogFile& file) {
  if (file.head.size() < known.head_length) return false;
  return checksum(std::string_view(file.head).substr(0, known.head_length)) == known.head_checksum;
}

bool is_same_file(const Identity& known, const LogFile& file) {
  return known.device == file.device && known.inode == file.inode && begins_like(known, file);
}

bool is_compressed(const LogFile& file) {
  using namespace std::string_view_literals;
  /* gzip, compress, bzip2, xz, zstd, lz4 */
  static constexpr std::string_view beginnings[] = {"\x1F\x8B"sv,      "\x1F\x9D"sv,         "BZh"sv,
                                                    "\xFD\x37zXZ\0"sv, "\x28\xB5\x2F\xFD"sv, "\x04\x22\x4D\x18"sv};
  return std::any_of(std::begin(beginnings), std::end(beginnings),
                     [&file](std::string_view beginning) { return file.head.rfind(beginning, 0) == 0; });
}

bool is_one_of(const std::vector<Identity>& known, const LogFile& file) {
  return std::any_of(known.begin(), known.end(), [&file](const Identity& k) { return is_same_file(k, file); });
}
