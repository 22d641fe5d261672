/*
 * The program's name, and how a failed internal check ends the process.
 *
 * A failed check writes its diagnostic to descriptor 2 and aborts; in a program named "tavrend" it also leaves a report
 * under /tmp. All state is global to the process and takes no lock: set it once, before threads exist. No errors.
 */
#ifndef TAVREN_ASSERT_H
#define TAVREN_ASSERT_H

#include "tavren_constants.h"

#ifndef __cplusplus
#include <stdbool.h>
#endif

TAVREN_BEGIN_C

/* False at first. When true, the fatal paths leave with exit(0), exit handlers included, not abort() or _exit(2). */
TAVREN_EXPORT extern bool tavren_suppress_abort;

/* Names the program: copies the part of path after its last slash, cut to 31 characters. Before that it is "error". */
TAVREN_EXPORT void tavren_set_program_name(const char* path);

/* Returns the program's name; it belongs to the library and stays valid. */
TAVREN_EXPORT const char* tavren_get_program_name(void);

/* Stores what the next abort reports before its message; kind and file are not copied and must live on. */
TAVREN_EXPORT void _tavren_set_abort_info(const char* kind, const char* file, int line);

/*
 * Flushes the standard output and error streams as far as their readers take it at once, writes an empty line, the
 * stored information (at most 79 bytes) and the formatted message (at most 159) to descriptor 2, which gets two seconds
 * to take all of it, and ends the process. Allocates nothing. Never returns.
 */
TAVREN_EXPORT void _tavren_abort(const char* format, ...) __attribute__((noreturn, format(printf, 1, 2)));

/*
 * Reports a failed check: its text, the source's name without folder or extension, and the line. Where a class has
 * several sources, the name is the class's, and the line that of the one where the check stands. Never returns.
 */
TAVREN_EXPORT void _tavren_assert(const char* expression, const char* file, int line) __attribute__((noreturn));

TAVREN_END_C

#endif
