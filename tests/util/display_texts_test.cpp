#include <gtest/gtest.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <string>

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

/* Any number can arrive from a C program or the daemon, though C++ gives the enumeration fewer values. */
template <class Enumeration>
Enumeration received(int32_t number) {
  Enumeration value;
  static_assert(sizeof value == sizeof number);
  memcpy(&value, &number, sizeof value);
  return value;
}

TEST(DisplayText, OfAStateIsEnabledForOneOnly) {
  EXPECT_STREQ(tavren_state_to_string(TAVREN_STATE_ENABLED), "Enabled");
  EXPECT_STREQ(tavren_state_to_string(TAVREN_STATE_DISABLED), "Disabled");
  EXPECT_STREQ(tavren_state_to_string(received<tavren_state_t>(2)), "Disabled");
  EXPECT_STREQ(tavren_state_to_string(received<tavren_state_t>(-1)), "Disabled");
}

TEST(DisplayText, OfAConnectionStatusIsItsWord) {
  EXPECT_STREQ(tavren_connection_status_to_string(TAVREN_CONNECTION_NONE), "None");
  EXPECT_STREQ(tavren_connection_status_to_string(TAVREN_CONNECTION_OK), "OK");
  EXPECT_STREQ(tavren_connection_status_to_string(TAVREN_CONNECTION_FAILED), "Failed");
}

TEST(DisplayText, OfAnotherConnectionStatusIsUnknown) {
  EXPECT_STREQ(tavren_connection_status_to_string(received<tavren_connection_status_t>(3)), "Unknown");
  EXPECT_STREQ(tavren_connection_status_to_string(received<tavren_connection_status_t>(4)), "Unknown");
  EXPECT_STREQ(tavren_connection_status_to_string(received<tavren_connection_status_t>(-1)), "Unknown");
}

struct Size {
  int (*format)(int, char*);
  int megabytes;
  std::string text;
};

class SizeText : public testing::TestWithParam<Size> {};

TEST_P(SizeText, IsWrittenAndItsLengthReturned) {
  Buffer buffer;
  EXPECT_EQ(GetParam().format(GetParam().megabytes, buffer.text), static_cast<int>(GetParam().text.size()));
  EXPECT_EQ(std::string(buffer.text), GetParam().text);
  EXPECT_TRUE(buffer.surroundings_are_untouched());
}

INSTANTIATE_TEST_SUITE_P(OfASpaceLimit, SizeText,
                         testing::Values(Size{tavren_format_space_limit, -1, "Unlimited"},
                                         Size{tavren_format_space_limit, 0, "0 MB"},
                                         Size{tavren_format_space_limit, 100, "100 MB"},
                                         Size{tavren_format_space_limit, -2, "-2 MB"},
                                         Size{tavren_format_space_limit, INT_MIN, "-2147483648 MB"}));

INSTANTIATE_TEST_SUITE_P(OfASpaceUsed, SizeText,
                         testing::Values(Size{tavren_format_space_used, -1, "Not monitored"},
                                         Size{tavren_format_space_used, -2, "Unknown"},
                                         Size{tavren_format_space_used, -3, "Query failed"},
                                         Size{tavren_format_space_used, -4, "-4 MB"},
                                         Size{tavren_format_space_used, 0, "0 MB"},
                                         Size{tavren_format_space_used, INT_MAX, "2147483647 MB"}));

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

constexpr time_t sample_time = 1769903999; /* 2026-01-31T23:59:59 in UTC */

TEST_F(TimeText, IsLocal) {
  EXPECT_EQ(tavren_format_time(sample_time, buffer.text), 19);
  EXPECT_STREQ(buffer.text, "2026/02/01 01:59:59");
}

TEST_F(TimeText, InIsoFormIsUtcWithoutAZone) {
  EXPECT_EQ(tavren_format_iso_time(sample_time, buffer.text), 19);
  EXPECT_STREQ(buffer.text, "2026-01-31T23:59:59");
}

TEST_F(TimeText, OfTheFirstSecondIsATime) {
  tavren_format_time(1, buffer.text);
  EXPECT_STREQ(buffer.text, "1970/01/01 02:00:01");
  tavren_format_iso_time(1, buffer.text);
  EXPECT_STREQ(buffer.text, "1970-01-01T00:00:01");
}

TEST_F(TimeText, OfNoTimeIsNone) {
  for (const time_t t : {time_t{0}, time_t{-1}, time_t{INT_MIN}}) {
    EXPECT_EQ(tavren_format_time(t, buffer.text), 4);
    EXPECT_STREQ(buffer.text, "None");
    EXPECT_EQ(tavren_format_iso_time(t, buffer.text), 4);
    EXPECT_STREQ(buffer.text, "None");
  }
}

TEST_F(TimeText, StaysInsideItsBuffer) {
  for (const time_t t : {sample_time, time_t{INT_MAX}, time_t{0}}) {
    tavren_format_time(t, buffer.text);
    tavren_format_iso_time(t, buffer.text);
    EXPECT_TRUE(buffer.surroundings_are_untouched());
  }
}

timespec monotonic_now() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now;
}

TEST(Uptime, IsTheMonotonicClocksInSeconds) {
  const time_t before = monotonic_now().tv_sec;
  const int uptime = tavren_get_uptime();
  const time_t after = monotonic_now().tv_sec;
  EXPECT_GE(uptime, before);
  EXPECT_LE(uptime, after);
}

TEST(Uptime, InMillisecondsIsTheMonotonicClocks) {
  const timespec before = monotonic_now();
  const int64_t uptime = tavren_get_uptime_ms();
  const timespec after = monotonic_now();
  EXPECT_GE(uptime, int64_t{before.tv_sec} * 1000 + before.tv_nsec / 1000000);
  EXPECT_LE(uptime, int64_t{after.tv_sec} * 1000 + after.tv_nsec / 1000000);
}

}  // namespace
