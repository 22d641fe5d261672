#include <time.h>

#include "support/real_function.h"

/* For LD_PRELOAD: the time of day is always the same, as it is on many machines that begin without knowing it. */
STANDS_BEFORE_THE_REAL_ONE int clock_gettime(clockid_t clock, timespec* now) noexcept {
  static auto* const real_one = real<int(clockid_t, timespec*)>("clock_gettime");
  if (clock != CLOCK_REALTIME) return real_one(clock, now);
  *now = {1000000, 0};
  return 0;
}
