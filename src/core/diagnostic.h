#ifndef SRC_CORE_DIAGNOSTIC_H
#define SRC_CORE_DIAGNOSTIC_H

#include <stdio.h>

/*
 * What a process says before it ends. Nothing here allocates, and nothing waits for the standard streams: not for a
 * reader that takes nothing or is gone, and not for another thread that holds one. What readers do not take at once is
 * lost.
 */

/* Flushes the standard output and error streams as far as they take it, and writes text, unbuffered, to descriptor 2.
 */
void write_diagnostic(const char* text);

/* The same for a process that may go on: nothing is lost, and a slow reader is waited for. */
void write_report(const char* text);

/* Prints text to stream, unless another thread holds it. */
void print_without_waiting(FILE* stream, const char* text);

/* Exits with status 0, exit handlers included. */
[[noreturn]] void exit_without_waiting();

#endif
