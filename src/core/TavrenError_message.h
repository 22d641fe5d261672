#ifndef SRC_CORE_TAVRENERROR_MESSAGE_H
#define SRC_CORE_TAVRENERROR_MESSAGE_H

#include <sstream>

#include "TavrenError.h"
#include "tavren_cmem.h"

/* Returns what error prints, without its time, as a text that the caller frees. */
inline char* message_of(const TavrenError& error) {
  std::ostringstream text;
  error.print_body(text);
  return tavren_strdup(text.str().c_str());
}

#endif
