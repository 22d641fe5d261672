/*
 * The programs' own texts, in the user's language where a catalogue has them.
 */
#ifndef TOOLS_TEXT_H
#define TOOLS_TEXT_H

#include <libintl.h>
#include <stdio.h>

/* Marks a text for the catalogue where it stands and is translated elsewhere. */
#define TOOLS_TEXT(text) text

/* Returns text in the user's language, text itself when no catalogue has it. */
__attribute__((format_arg(1))) static inline const char* translate(const char* text) {
  return dgettext("tavren", text);
}

/* Prints a label, blanks up to that many columns, and one more. */
void print_label(FILE* out, const char* label, int width);

#endif
