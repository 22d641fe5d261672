#ifndef SRC_CORE_MESSAGES_H
#define SRC_CORE_MESSAGES_H

#include <libintl.h>
#include <stdarg.h>
#include <stdio.h>

#include <sstream>
#include <string>

#include "TavrenError.h"
#include "tavren_cmem.h"
#include "tavren_constants.h"

/* Marks a text for the catalogue where it stands and is translated elsewhere. */
#define TAVREN_TEXT(text) text

/* Returns text in the user's language, text itself when no catalogue has it. */
__attribute__((format_arg(1))) inline const char* translate(const char* text) { return dgettext("tavren", text); }

/* The same with argument, any bytes, in the place of the text's "%s", which a translation writes in the same way. */
inline std::string translate(const char* text, const std::string& argument) {
  std::string message = translate(text);
  const size_t place = message.find("%s");
  return place == std::string::npos ? message : message.replace(place, 2, argument);
}

/* Writes a message into a caller's buffer of TAVREN_MESSAGE_SIZE bytes; longer text is cut. Returns -1. */
__attribute__((format(printf, 2, 3))) inline int refuse(char* message, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  vsnprintf(message, TAVREN_MESSAGE_SIZE, format, arguments);
  va_end(arguments);
  return -1;
}

/* Returns what error prints, without its time, as a text that the caller frees. */
inline char* message_of(const TavrenError& error) {
  std::ostringstream text;
  error.print_body(text);
  return tavren_strdup(text.str().c_str());
}

#endif
