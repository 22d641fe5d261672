#ifndef SRC_UTIL_OWN_FILES_H
#define SRC_UTIL_OWN_FILES_H

#include <stdio.h>

/*
 * The library's files in the private temporary directory. Everybody may write there, so a link that somebody has
 * planted in the place of such a file is not followed, neither to write nor to read. Errors are in errno; all is
 * close-on-exec.
 */

/*
 * Opens path as open(2) does with flags. The descriptor is never 0 to 2, also in a program that has closed its standard
 * streams. Returns NULL on failure.
 */
FILE* open_stream(const char* path, int flags);

/* Makes path anew, in the place of whatever is there, for writing. Returns NULL when that is not possible. */
FILE* make_own_file(const char* path);

/* Opens path for reading. Returns NULL when that is not possible, or it is a link. */
FILE* open_own_file(const char* path);

/* Writes text to file and closes it. Returns 0, or -1 when either fails; file may be NULL, which is a failure. */
int write_text_and_close(FILE* file, const char* text);

/*
 * Reads a line of at most size - 1 bytes from file, without its newline, into buffer, and closes it. Returns 0, or -1
 * when either fails or there is none; file may be NULL, which is a failure.
 */
int read_line_and_close(FILE* file, char* buffer, int size);

#endif
