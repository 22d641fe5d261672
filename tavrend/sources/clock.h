#ifndef TAVREND_SOURCES_CLOCK_H
#define TAVREND_SOURCES_CLOCK_H

#include <stdint.h>

/* Returns the time of day in milliseconds since the epoch. It may be set at any time. */
int64_t now_ms();

#endif
