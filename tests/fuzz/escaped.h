#ifndef TESTS_FUZZ_ESCAPED_H
#define TESTS_FUZZ_ESCAPED_H

#include <string>
#include <vector>

/*
 * What becomes of an argument of an error. A NUL byte and as many bytes behind it as stand before it become a backslash
 * and a zero.
 */
inline std::string escaped(const std::string& argument) {
  std::string done;
  std::string rest = argument;
  for (size_t p = 0; (p = rest.find('\0')) != std::string::npos;) {
    done += rest.substr(0, p) + "\\0";
    const size_t span = done.size() - 2 + 1;
    rest = span < rest.size() - p ? rest.substr(p + span) : "";
  }
  return done + rest;
}

/* The arguments that an error's line keeps of these two: those at the end that are empty are dropped. */
inline std::vector<std::string> arguments_of(const std::string& arg1, const std::string& arg2) {
  if (!arg2.empty()) return {escaped(arg1), escaped(arg2)};
  if (!arg1.empty()) return {escaped(arg1)};
  return {};
}

#endif
