#include "plan/space.h"

int64_t kib_of(int64_t bytes) { return (bytes + 1023) / 1024; }

Room room_for(int64_t bytes, int64_t used_kib, int32_t limit_mb) {
  if (limit_mb == no_space_limit) return Room::fits;
  const int64_t limit_kib = static_cast<int64_t>(limit_mb) * 1024;
  if (kib_of(bytes) > limit_kib) return Room::never;
  return used_kib + kib_of(bytes) <= limit_kib ? Room::fits : Room::after_removing_the_oldest;
}
