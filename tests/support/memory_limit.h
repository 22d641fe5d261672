#ifndef TESTS_SUPPORT_MEMORY_LIMIT_H
#define TESTS_SUPPORT_MEMORY_LIMIT_H

#include <stddef.h>
#include <sys/resource.h>

/*
 * For children that run out of memory. Not for programs built with a sanitizer, which needs memory of its own and
 * brings an operator new that never calls a handler.
 */

/* An allocation of that size never fits into what a process has left over from earlier ones. */
constexpr size_t large_size = size_t{64} * 1024 * 1024;

/* Lets the process get no memory beyond limit bytes; what it has, it keeps. */
inline void limit_memory(rlim_t limit) {
  const rlimit memory{limit, RLIM_INFINITY};
  setrlimit(RLIMIT_AS, &memory);
}

#endif
