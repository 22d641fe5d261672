#ifndef TESTS_CORE_ERROR_LINES_H
#define TESTS_CORE_ERROR_LINES_H

#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "TavrenError.h"

/* Everything that a line holds. */
using LineContent = std::pair<int, std::vector<std::string>>;

inline LineContent content(const TavrenError::error_line_t* line) {
  return {line->code, std::vector<std::string>(line->args, line->args + line->num_args)};
}

inline std::vector<LineContent> contents(const TavrenError& error) {
  std::vector<LineContent> all;
  for (const TavrenError::error_line_t* line : error.lines) all.push_back(content(line));
  return all;
}

/* Takes over a line that the library has handed out. */
inline LineContent take(TavrenError::error_line_t* line) {
  return content(std::unique_ptr<TavrenError::error_line_t>(line).get());
}

inline std::string body_of(const TavrenError& error) {
  std::ostringstream text;
  error.print_body(text);
  return text.str();
}

inline std::string printed(const TavrenError& error) {
  std::ostringstream text;
  error.print(text);
  return text.str();
}

inline std::string serialised(const TavrenError& error) {
  std::ostringstream text;
  error.serialize(text);
  return text.str();
}

/* A text with bytes that a string literal cannot hold otherwise: every bar is a NUL byte. */
inline std::string with_nul_bytes(std::string text) {
  for (char& c : text) c = c == '|' ? '\0' : c;
  return text;
}

#endif
