#ifndef TESTS_FUZZ_PLAIN_ERROR_H
#define TESTS_FUZZ_PLAIN_ERROR_H

#include <list>
#include <string>

#include "TavrenError.h"
#include "fuzz/escaped.h"

/* An error as a target expects it: each line a code and two arguments. */
struct PlainError {
  struct Line {
    int code;
    std::string arg1, arg2;
  };

  explicit PlainError(int code, const std::string& arg1 = "", const std::string& arg2 = "") { add(code, arg1, arg2); }
  PlainError& add(int code, const std::string& arg1 = "", const std::string& arg2 = "") {
    lines.push_back({code, arg1, arg2});
    return *this;
  }
  template <class Texts>
  PlainError& add_all(int code, const Texts& texts) {
    for (const std::string& text : texts) add(code, text);
    return *this;
  }

  std::list<Line> lines;
};

/* What an error says, one text for each of its lines. */
inline std::list<std::string> words_of(const PlainError& error) {
  std::list<std::string> words;
  for (const auto& [code, arg1, arg2] : error.lines) {
    words.push_back(std::to_string(code));
    for (const std::string& argument : arguments_of(arg1, arg2)) words.back() += " [" + argument + "]";
  }
  return words;
}

inline std::list<std::string> words_of(const TavrenError& error) {
  std::list<std::string> words;
  for (const TavrenError::error_line_t* line : error.lines) {
    words.push_back(std::to_string(line->code));
    for (int32_t i = 0; i < line->num_args; ++i) words.back() += " [" + line->args[i] + "]";
  }
  return words;
}

#endif
