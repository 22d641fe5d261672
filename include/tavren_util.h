/* Small routines on standard strings. Any thread may call them; they throw nothing but std::bad_alloc. */
#ifndef TAVREN_UTIL_H
#define TAVREN_UTIL_H

#include <string>

#include "tavren_constants.h"

/* Returns the decimal text of value. */
TAVREN_EXPORT std::string tavren_int_to_string(int value);

/* Returns s followed by blanks up to width characters, or s itself when it is as long or longer. */
TAVREN_EXPORT std::string tavren_pad_end(const std::string& s, int width);

/* Returns the part of path after its last slash, the whole of it when it has none. */
TAVREN_EXPORT std::string tavren_basename(const std::string& path);

#endif
