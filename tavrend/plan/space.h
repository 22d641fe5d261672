#ifndef TAVREND_PLAN_SPACE_H
#define TAVREND_PLAN_SPACE_H

#include <stdint.h>

constexpr int32_t no_space_limit = -1;

enum class Room { fits, after_removing_the_oldest, never };

/*
 * Returns whether an item of so many bytes has room in a compartment that uses used_kib of limit_mb (MB of 1,024 KiB;
 * no_space_limit: any).
 */
Room room_for(int64_t bytes, int64_t used_kib, int32_t limit_mb);

/* Returns bytes in KiB, rounded up. */
int64_t kib_of(int64_t bytes);

#endif
