#include <poll.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <time.h>

#include <algorithm>

#include "support/real_function.h"

/*
 * For LD_PRELOAD: the time of day is so many seconds later as the file $MOVED_CLOCK says, and the uptime as
 * $MOVED_UPTIME does. Both files may change at any time, and a poll() sees it.
 */
STANDS_BEFORE_THE_REAL_ONE int clock_gettime(clockid_t clock, timespec* now) noexcept {
  static auto* const real_one = real<int(clockid_t, timespec*)>("clock_gettime");
  const int result = real_one(clock, now);
  const char* const name = clock == CLOCK_REALTIME    ? "MOVED_CLOCK"
                           : clock == CLOCK_MONOTONIC ? "MOVED_UPTIME"
                                                      : nullptr;
  const char* const path = name != nullptr ? getenv(name) : nullptr;
  FILE* const file = path != nullptr ? fopen(path, "re") : nullptr;
  if (file == nullptr) return result;
  long seconds = 0;
  if (fscanf(file, "%ld", &seconds) == 1) now->tv_sec += seconds;
  fclose(file);
  return result;
}

static int64_t uptime_ms() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

STANDS_BEFORE_THE_REAL_ONE int poll(pollfd* entries, nfds_t count, int timeout) {
  static auto* const real_one = real<int(pollfd*, nfds_t, int)>("poll");
  if (timeout < 0) return real_one(entries, count, timeout);
  const int64_t end = uptime_ms() + timeout;
  for (;;) {
    const int64_t rest = std::clamp<int64_t>(end - uptime_ms(), 0, 20);
    const int ready = real_one(entries, count, static_cast<int>(rest));
    if (ready != 0 || uptime_ms() >= end) return ready;
  }
}
