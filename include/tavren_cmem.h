/*
 * Memory that crosses the C interface: strings that the library hands out are made by tavren_strdup, and the caller
 * releases them with free. Any thread may call these.
 */
#ifndef TAVREN_CMEM_H
#define TAVREN_CMEM_H

#include "tavren_constants.h"

TAVREN_BEGIN_C

/*
 * Copies s, which must not be NULL: a NULL argument is reported like a failed allocation, and the result is NULL if
 * the malloc handler returns. Returns the copy, owned by the caller and released with free; NULL, unreported, when
 * there is no memory.
 */
TAVREN_EXPORT char* tavren_strdup(const char* s);

/*
 * Reports on descriptor 2 that an allocation failed at line of file (at most 79 bytes) and runs the malloc handler.
 * Returns when the handler returns.
 */
TAVREN_EXPORT void _tavren_check_alloc(const char* file, int line);

TAVREN_END_C

#endif
