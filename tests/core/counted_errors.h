#ifndef TESTS_CORE_COUNTED_ERRORS_H
#define TESTS_CORE_COUNTED_ERRORS_H

#include <list>
#include <string>

#include "TavrenError.h"
#include "core/error_lines.h"

/* Errors that tavren_bytes_to_errors has handed out. */
struct Errors {
  ~Errors() {
    for (TavrenError* error : list) delete error;
  }
  std::list<TavrenError*> list;
};

/* Reads the counted buffer text, in which every bar is a NUL byte. */
inline void parse(const std::string& text, std::list<TavrenError*>& errors) {
  std::string content = with_nul_bytes(text);
  tavren_bytes_t bytes{0, {static_cast<uint32_t>(content.size()), content.data()}};
  TavrenError::tavren_bytes_to_errors(bytes, errors);
}

#endif
