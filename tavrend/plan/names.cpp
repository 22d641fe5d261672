#include "plan/names.h"

#include <stdio.h>
#include <time.h>

#include <algorithm>

namespace {

constexpr size_t longest_base = 200; /* bytes, so that time and ending fit into a name of 255 */

std::string archived_base(const std::string& base) {
  std::string name = base.substr(0, longest_base);
  const auto is_control = [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; };
  std::replace_if(name.begin(), name.end(), is_control, '_');
  return name;
}

/* What stands behind an item's time. */
std::string ending_of(const std::string& base, bool compressed) {
  return "." + archived_base(base) + (compressed ? ".zst" : "");
}

}  // namespace

int64_t next_item_time(int64_t now_ms, int64_t last_ms) { return std::max(now_ms, last_ms + 1); }

std::string time_stamp(int64_t ms) {
  const auto seconds = static_cast<time_t>(ms / 1000);
  struct tm utc {};
  gmtime_r(&seconds, &utc);
  char text[80];
  const size_t length = strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &utc);
  snprintf(text + length, sizeof text - length, ".%03d", static_cast<int>(ms % 1000));
  return text;
}

std::string item_path(const std::string& section, int64_t ms, const std::string& base, bool compressed) {
  return section + "/" + time_stamp(ms) + ending_of(base, compressed);
}

bool is_item_of(const std::string& path, const std::string& base, bool compressed) {
  const size_t time = path.find('/') + 1;
  const size_t length = time_stamp(0).size();
  return path.size() > time + length && path.substr(time + length) == ending_of(base, compressed);
}
