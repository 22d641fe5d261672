/*
 * Memory that crosses the C interface: the caller releases strings that the library hands out with free. Any thread may
 * call these.
 */
#ifndef TAVREN_CMEM_H
#define TAVREN_CMEM_H

#include "tavren_constants.h"

TAVREN_BEGIN_C

/*
 * Returns a copy of s, the caller's, or NULL, unreported, when there is no memory. A NULL s is reported as a failed
 * allocation; NULL is returned when the malloc handler returns.
 */
TAVREN_EXPORT char* tavren_strdup(const char* s);

/*
 * Flushes the standard output and error streams, reports a failed allocation at line of file (at most 79 bytes) on
 * descriptor 2, and runs the malloc handler. With the basic handler, which ends the process, what a reader of the
 * streams does not take at once is lost; with another one it is waited for.
 */
TAVREN_EXPORT void _tavren_check_alloc(const char* file, int line);

TAVREN_END_C

#endif
