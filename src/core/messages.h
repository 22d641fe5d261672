#ifndef SRC_CORE_MESSAGES_H
#define SRC_CORE_MESSAGES_H

#include <libintl.h>

/* Marks a text for the catalogue where it stands and is translated elsewhere. */
#define TAVREN_TEXT(text) text

/* Returns text in the user's language, text itself when no catalogue has it. */
__attribute__((format_arg(1))) inline const char* translate(const char* text) { return dgettext("tavren", text); }

#endif
