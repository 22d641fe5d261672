#ifndef SRC_PROCESS_DEADLINE_H
#define SRC_PROCESS_DEADLINE_H

#include <stdint.h>

#include <algorithm>

#include "tavren_basic.h"

/* The deadline, in seconds of uptime, that stands for no deadline. */
constexpr long no_deadline = 2147483647;

/* The seconds between SIGTERM and SIGKILL for a child that nobody needs any more. */
constexpr int stop_grace_time = 2;

/* How often to look for what cannot be waited for, such as the end of a child. */
constexpr int check_interval_ms = 100;
constexpr int checks_per_second = 1000 / check_interval_ms;

/*
 * Returns the deadline, in seconds of uptime, that lies timeout seconds ahead. Tunables have no bounds, so the sum is
 * made in 64 bits and held within the range of a deadline.
 */
inline long deadline_after(int timeout) {
  const int64_t sum = static_cast<int64_t>(tavren_get_uptime()) + timeout;
  return static_cast<long>(std::clamp<int64_t>(sum, -no_deadline, no_deadline));
}

/*
 * Returns the seconds until deadline, at most. Uptime comes in whole seconds, so one is added: a deadline equal to
 * the present second still leaves time, and every wait is rounded up by up to a second.
 */
inline int64_t seconds_until(long deadline) { return static_cast<int64_t>(deadline) - tavren_get_uptime() + 1; }

#endif
