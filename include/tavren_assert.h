/*
 * The program's name, and how a failed internal check ends the process.
 *
 * A failed check writes its diagnostic to descriptor 2 and aborts; in a program named "tavrend" it also leaves a
 * report under /tmp. All state is global to the process. Set the name, and tavren_suppress_abort where it is wanted,
 * once at start, before threads exist; nothing here is ever reset and nothing takes a lock.
 */
#ifndef TAVREN_ASSERT_H
#define TAVREN_ASSERT_H

#include "tavren_constants.h"

#ifndef __cplusplus
#include <stdbool.h>
#endif

TAVREN_BEGIN_C

/*
 * When true, the fatal paths leave with exit(0) instead of abort() or _exit(2). False at start. One byte. Exit handlers
 * run then, and what they find broken may be reported as well.
 */
TAVREN_EXPORT extern bool tavren_suppress_abort;

/*
 * Names the program: the part of path after its last slash, cut to 31 characters. Until the first call the name is
 * "error". The text is copied. Returns nothing; no errors.
 */
TAVREN_EXPORT void tavren_set_program_name(const char* path);

/*
 * Returns the program's name; it belongs to the library and stays valid. No errors.
 */
TAVREN_EXPORT const char* tavren_get_program_name(void);

/*
 * Stores what the next abort reports in its first line. kind and file are kept as pointers, so they must live as
 * long as the process. Returns nothing; no errors.
 */
TAVREN_EXPORT void _tavren_set_abort_info(const char* kind, const char* file, int line);

/*
 * Writes the stored abort information (at most 79 bytes) and the formatted message (at most 159 bytes) to
 * descriptor 2 and ends the process. Allocates nothing. Never returns.
 */
TAVREN_EXPORT void _tavren_abort(const char* format, ...) __attribute__((noreturn, format(printf, 1, 2)));

/*
 * Reports a failed check by the text of its expression, the source's name without folder or extension, and the
 * line, and ends the process. Never returns.
 */
TAVREN_EXPORT void _tavren_assert(const char* expression, const char* file, int line) __attribute__((noreturn));

TAVREN_END_C

#endif
