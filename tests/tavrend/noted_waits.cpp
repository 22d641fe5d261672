#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>

#include "support/real_function.h"

/*
 * For LD_PRELOAD: until when a thread waits for another one, in milliseconds of the clock that it waits by, is the last
 * line of the file $NOTED_WAITS.
 */
STANDS_BEFORE_THE_REAL_ONE int pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                                      clockid_t clock, const timespec* end) {
  static auto* const real_one =
      real<int(pthread_cond_t*, pthread_mutex_t*, clockid_t, const timespec*)>("pthread_cond_clockwait");
  const char* const path = getenv("NOTED_WAITS");
  FILE* const file = path != nullptr ? fopen(path, "ae") : nullptr;
  if (file != nullptr) {
    fprintf(file, "%lld\n", static_cast<long long>(end->tv_sec) * 1000 + end->tv_nsec / 1000000);
    fclose(file);
  }
  return real_one(condition, mutex, clock, end);
}
