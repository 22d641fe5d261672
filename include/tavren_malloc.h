/*
 * What happens when memory runs out: one handler for the whole process.
 *
 * A failing operator new (once tavren_setup_new_handler has run) and the library's own allocation checks both reach it.
 * A handler that returns makes operator new try again, so it must have freed something. Set it before threads exist. No
 * errors.
 */
#ifndef TAVREN_MALLOC_H
#define TAVREN_MALLOC_H

#include "tavren_constants.h"

TAVREN_BEGIN_C

/* What is called when memory runs out. */
typedef void (*tavren_malloc_handler_t)(void);

/* Makes handler (never NULL) the process's malloc handler and calls tavren_setup_new_handler. */
TAVREN_EXPORT void tavren_set_malloc_handler(tavren_malloc_handler_t handler);

/* Makes a failing operator new run the malloc handler. */
TAVREN_EXPORT void tavren_setup_new_handler(void);

/* Runs the malloc handler, and returns when it does. */
TAVREN_EXPORT void tavren_run_malloc_handler(void);

/*
 * The default handler: writes "FATAL ERROR: Ran out of heap memory.\n" to descriptor 2 and leaves with _exit(2), or
 * with exit(0) when tavren_suppress_abort is set. Never returns.
 */
TAVREN_EXPORT void tavren_basic_malloc_handler(void) __attribute__((noreturn));

TAVREN_END_C

#endif
