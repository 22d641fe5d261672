#include <gtest/gtest.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "tavren_basic.h"

namespace {

/* A buffer of the size that the functions are promised, with bytes around it that they must leave alone. */
struct Buffer {
  Buffer() { memset(this, 'x', sizeof *this); }
  bool surroundings_are_untouched() const {
    return std::string(before, sizeof before) == "xxxxxxxx" && std::string(after, sizeof after) == "xxxxxxxx";
  }
  char before[8];
  char text[TAVREN_FORMAT_SIZE];
  char after[8];
};

/* Any number can arrive from a C program or the daemon, though C++ gives the enumeration fewer values: calls as C does.
 */
template <class Enumeration>
const char* text_of(const char* (*to_string)(Enumeration), int32_t number) {
  static_assert(sizeof(Enumeration) == sizeof number);
  return reinterpret_cast<const char* (*)(int32_t)>(to_string)(number);
}

TEST(DisplayText, OfAStateIsEnabledForOneOnly) {
  EXPECT_STREQ(tavren_state_to_string(TAVREN_STATE_ENABLED), "Enabled");
  EXPECT_STREQ(tavren_state_to_string(TAVREN_STATE_DISABLED), "Disabled");
  EXPECT_STREQ(text_of(tavren_state_to_string, 2), "Disabled");
  EXPECT_STREQ(text_of(tavren_state_to_string, -1), "Disabled");
}

TEST(DisplayText, OfAConnectionStatusIsItsWordAndOfAnotherUnknown) {
  for (const auto& [number, word] :
       {std::pair{0, "None"}, {1, "OK"}, {2, "Failed"}, {3, "Unknown"}, {4, "Unknown"}, {-1, "Unknown"}}) {
    EXPECT_STREQ(text_of(tavren_connection_status_to_string, number), word) << number;
  }
}

void expect_size_texts(int (*format)(int, char*), const std::vector<std::pair<int, std::string>>& texts) {
  for (const auto& [megabytes, text] : texts) {
    Buffer buffer;
    EXPECT_EQ(format(megabytes, buffer.text), static_cast<int>(text.size()));
    EXPECT_EQ(std::string(buffer.text), text);
    EXPECT_TRUE(buffer.surroundings_are_untouched()) << text;
  }
}

TEST(SizeText, OfASpaceLimitIsWrittenAndItsLengthReturned) {
  expect_size_texts(tavren_format_space_limit,
                    {{-1, "Unlimited"}, {0, "0 MB"}, {100, "100 MB"}, {-2, "-2 MB"}, {INT_MIN, "-2147483648 MB"}});
}

TEST(SizeText, OfASpaceUsedIsWrittenAndItsLengthReturned) {
  expect_size_texts(tavren_format_space_used, {{-1, "Not monitored"},
                                               {-2, "Unknown"},
                                               {-3, "Query failed"},
                                               {-4, "-4 MB"},
                                               {0, "0 MB"},
                                               {INT_MAX, "2147483647 MB"}});
}

/* Two hours east of Greenwich for the length of a test. */
class TimeText : public testing::Test {
 protected:
  TimeText() {
    setenv("TZ", "EAST-2", 1);
    tzset();
  }
  ~TimeText() override {
    unsetenv("TZ");
    tzset();
  }

  Buffer buffer;
};

TEST_F(TimeText, IsLocalAndInIsoFormUtcWithoutAZoneAndNoneForNoTime) {
  const std::tuple<time_t, std::string, std::string> times[] = {
      {1769903999, "2026/02/01 01:59:59", "2026-01-31T23:59:59"},
      {INT_MAX, "2038/01/19 05:14:07", "2038-01-19T03:14:07"},
      {1, "1970/01/01 02:00:01", "1970-01-01T00:00:01"},
      {0, "None", "None"},
      {-1, "None", "None"},
      {INT_MIN, "None", "None"}};
  for (const auto& [time, local, utc] : times) {
    EXPECT_EQ(tavren_format_time(time, buffer.text), static_cast<int>(local.size()));
    EXPECT_EQ(buffer.text, local);
    EXPECT_EQ(tavren_format_iso_time(time, buffer.text), static_cast<int>(utc.size()));
    EXPECT_EQ(buffer.text, utc);
    EXPECT_TRUE(buffer.surroundings_are_untouched());
  }
}

timespec monotonic_now() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now;
}

TEST(Uptime, IsTheMonotonicClocksInSecondsAndInMilliseconds) {
  const timespec before = monotonic_now();
  const int seconds = tavren_get_uptime();
  const int64_t milliseconds = tavren_get_uptime_ms();
  const timespec after = monotonic_now();
  EXPECT_GE(seconds, before.tv_sec);
  EXPECT_LE(seconds, after.tv_sec);
  EXPECT_GE(milliseconds, int64_t{before.tv_sec} * 1000 + before.tv_nsec / 1000000);
  EXPECT_LE(milliseconds, int64_t{after.tv_sec} * 1000 + after.tv_nsec / 1000000);
}

}  // namespace
