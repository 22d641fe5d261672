/*
 * The programs' own texts, in the user's language where a catalogue has them.
 */
#ifndef TOOLS_TEXT_H
#define TOOLS_TEXT_H

#include <libintl.h>

/* Returns text in the user's language, text itself when no catalogue has it. */
__attribute__((format_arg(1))) static inline const char* translate(const char* text) {
  return dgettext("tavren", text);
}

#endif
