#ifndef TESTS_FUZZ_NUMBER_MODEL_H
#define TESTS_FUZZ_NUMBER_MODEL_H

#include <limits.h>
#include <stdint.h>

#include <optional>
#include <string>

/* Numbers as the library reads them, digit by digit: what tavren_cstring_to_int is measured against. */
namespace number_model {

inline bool is_space(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

inline int digit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return INT_MAX;
}

inline std::optional<int> number(const std::string& text) {
  const std::string s =
      std::string(text.c_str()) + std::string(3, '\0'); /* to look ahead without looking after the end */
  size_t p = 0;
  while (is_space(s[p])) ++p;
  const bool negative = s[p] == '-';
  if (s[p] == '-' || s[p] == '+') ++p;

  int base = 10;
  if (s[p] == '0') {
    base = 8;
    if ((s[p + 1] == 'x' || s[p + 1] == 'X') && digit(s[p + 2]) < 16) {
      base = 16;
      p += 2;
    }
  }
  if (digit(s[p]) >= base) return std::nullopt;
  int64_t value = 0;
  for (; digit(s[p]) < base; ++p) {
    value = value * base + digit(s[p]);
    if (value > INT64_C(0x100000000)) value = INT64_C(0x100000000); /* beyond any int */
  }
  while (is_space(s[p])) ++p;
  if (s[p] != '\0') return std::nullopt;

  if (negative) value = -value;
  if (value > INT_MAX) return INT_MAX;
  if (value < INT_MIN) return INT_MIN;
  return static_cast<int>(value);
}

}  // namespace number_model

#endif
