/*
 * Support for command-line programs: archive targets, questions, hidden input, and the program's private temporary
 * directory with its single-instance lock.
 *
 * Messages are translated, into the caller's buffer of TAVREN_MESSAGE_SIZE bytes; longer text is cut. Nothing here
 * throws. The directory is global to the process: set it up before threads exist. Questions belong to one thread.
 */
#ifndef TAVREN_SHARE_H
#define TAVREN_SHARE_H

#include "tavren_constants.h"

TAVREN_BEGIN_C

/*
 * Splits spec, user@host:directory, in place; the three results point into it. The directory is all that follows; one
 * slash at its end, if it is longer than that, is cut off, of several only the last. Returns 0, or -1 when a part is
 * missing.
 */
TAVREN_EXPORT int tavren_parse_target(char* spec, char** user, char** host, char** directory);

/*
 * The same, and checks that the parts are of legal length and cannot be taken for options or expanded by the far shell.
 * Returns 0, message untouched, or -1 with the reason in message.
 */
TAVREN_EXPORT int tavren_process_target(char* spec, char** user, char** host, char** directory, char* message);

/*
 * Asks prompt on the standard output until the standard input answers yes, y, no or n in any letter case; a true
 * assume_yes or assume_no answers instead, visibly. Returns 1 for yes, 0 for no, -1 at the end of the input and when it
 * cannot be read.
 */
TAVREN_EXPORT int tavren_yes_or_no(const char* prompt, int assume_yes, int assume_no);

/*
 * Writes prompt and reads a line of standard input into buffer (size bytes, NUL included; the rest is zeroed), without
 * its newline; what does not fit is dropped. With hide a terminal does not echo meanwhile: a program that may be
 * interrupted restores it itself, and attributes that cannot be read are a failed assertion. The standard input's own
 * buffer may keep a copy. Returns the number of characters that the line had, more than size - 1 when it was cut.
 */
TAVREN_EXPORT int tavren_read_input(const char* prompt, char* buffer, int size, int hide);

/*
 * Makes name's private directory under tavren_get_tmp_root, open to everybody, takes its lock until the process ends or
 * tavren_cleanup_tmp_dir is called, and removes what an earlier run left there, but for names that begin with a point
 * and for subdirectories. The lock does not pass a fork: a program that goes into the background does so before. Not to
 * be set up twice. Returns 0, message untouched, or -1 with the reason in message, such as another running instance.
 */
TAVREN_EXPORT int tavren_setup_tmp_dir(const char* name, char* message);

/* Returns the private directory, the library's; NULL before a successful set-up and after tavren_cleanup_tmp_dir. */
TAVREN_EXPORT const char* tavren_get_tmp_dir(void);

/*
 * Removes from the private directory what tavren_setup_tmp_dir would, then its lock and, when nothing else is in it,
 * the directory; releases the lock. Failures are ignored.
 */
TAVREN_EXPORT void tavren_cleanup_tmp_dir(void);

TAVREN_END_C

#endif
