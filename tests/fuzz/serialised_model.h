#ifndef TESTS_FUZZ_SERIALISED_MODEL_H
#define TESTS_FUZZ_SERIALISED_MODEL_H

#include <stdint.h>
#include <time.h>

#include <algorithm>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "fuzz/number_model.h"

/*
 * The serialised form of errors, read byte by byte: which texts are one, and what they say. White space before a number
 * and before what ends it is passed over, and the last argument may lack its NUL byte.
 */
class SerialisedModel {
 public:
  struct Malformed {};
  struct Error {
    int64_t time = 0;
    std::vector<std::pair<int64_t, std::vector<std::string>>> lines;
  };

  explicit SerialisedModel(std::string serialised) : text(std::move(serialised)) {}

  Error error() {
    if (item() != "TavrenError") throw Malformed();
    Error error;
    error.time = number<time_t>();
    for (int64_t count = number<int32_t>(); count > 0; --count) {
      if (item() != "error_line_t") throw Malformed();
      const int64_t code = number<int32_t>();
      std::vector<std::string> arguments;
      for (int64_t rest = number<int32_t>(); rest > 0; --rest) arguments.push_back(item());
      error.lines.emplace_back(code, arguments);
    }
    return error;
  }

  /* A counted buffer. What comes before a malformed error is in errors. */
  void errors(std::vector<Error>& errors) {
    for (int64_t count = number<int32_t>(); count > 0; --count) errors.push_back(error());
    skip_space();
    if (position < text.size()) throw Malformed();
  }

 private:
  void skip_space() {
    while (position < text.size() && number_model::is_space(text[position])) ++position;
  }

  std::string item() {
    if (position == text.size()) throw Malformed();
    const size_t end = std::min(text.find('\0', position), text.size());
    const std::string result = text.substr(position, end - position);
    position = std::min(end + 1, text.size());
    return result;
  }

  template <class Integer>
  int64_t number() {
    skip_space();
    const bool negative = text.compare(position, 1, "-") == 0;
    if (negative || text.compare(position, 1, "+") == 0) ++position;
    const size_t first = position;
    /* Downwards, where there is one number more. */
    int64_t value = 0;
    for (; position < text.size() && text[position] >= '0' && text[position] <= '9'; ++position) {
      const int digit = text[position] - '0';
      if (value < (std::numeric_limits<Integer>::min() + digit) / 10) throw Malformed();
      value = value * 10 - digit;
    }
    if (position == first) throw Malformed();
    if (!negative && value == std::numeric_limits<Integer>::min()) throw Malformed();
    if (!negative) value = -value;
    skip_space();
    if (position == text.size() || text[position] != '\0') throw Malformed();
    ++position;
    return value;
  }

  std::string text;
  size_t position = 0;
};

#endif
