/*
 * The terminal on the standard input, which gets its settings back on every way out of the program.
 */
#ifndef TOOLS_TERMINAL_H
#define TOOLS_TERMINAL_H

#include <stdbool.h>

/*
 * Remembers the terminal's settings. Until release_terminal, signals that end or stop the program put them back first,
 * and one that is continued takes its own up again and shows the question, NULL for none, once more. Returns false,
 * with nothing done, when there is no terminal.
 */
bool guard_terminal(const char* question);

/* Has a guarded terminal hand out each key at once and show none. */
void read_single_keys(void);

/* Puts the settings, and what signals do, back to what they were. */
void release_terminal(void);

#endif
