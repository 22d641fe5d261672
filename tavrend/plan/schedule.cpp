#include "plan/schedule.h"

#include <algorithm>
#include <charconv>
#include <map>

#include "plan/checksum.h"

int64_t first_delay_ms(const std::string& chassis, const std::string& task, int32_t interval) {
  const uint64_t interval_ms = static_cast<uint64_t>(interval) * 1000;
  return static_cast<int64_t>(checksum(chassis + "\n" + task) % interval_ms);
}

int64_t retry_delay_ms(int32_t seconds, double draw) {
  const double usual = std::max(seconds, shortest_interval) * 1000.0;
  return static_cast<int64_t>(usual * (0.9 + 0.2 * draw));
}

uint32_t first_of_draws(const std::string& chassis, int64_t now_ms) {
  const uint64_t sum = checksum(chassis + "\n" + std::to_string(now_ms));
  return static_cast<uint32_t>(sum ^ (sum >> 32));
}

int64_t next_due_ms(int64_t due_ms, int64_t now_ms, int32_t interval) {
  const int64_t interval_ms = static_cast<int64_t>(interval) * 1000;
  const int64_t missed = std::max<int64_t>(now_ms - due_ms, 0) / interval_ms;
  return due_ms + (missed + 1) * interval_ms;
}

int32_t parse_interval(const std::string& text) {
  static const std::map<std::string, int64_t> units = {{"", 1}, {"s", 1}, {"min", 60}, {"h", 3600}, {"d", 86400}};
  int64_t count = 0;
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, count);
  const auto unit = units.find(std::string(rest, end));
  if (error != std::errc() || unit == units.end() || count < 1 || count > longest_interval / unit->second) return 0;
  return static_cast<int32_t>(count * unit->second);
}
