#ifndef SRC_CORE_CATALOGUE_H
#define SRC_CORE_CATALOGUE_H

#include <libintl.h>

#include <string>

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

#endif
