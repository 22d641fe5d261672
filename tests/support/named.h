#ifndef TESTS_SUPPORT_NAMED_H
#define TESTS_SUPPORT_NAMED_H

#include <ostream>
#include <string>

/*
 * A test's parameter under a name of its own. By itself a parameter shows as an address or as raw bytes, and the
 * test would have another name in every run.
 */
template <class Value>
struct Named {
  const char* name;
  Value value;
};

template <class Value>
void PrintTo(const Named<Value>& parameter, std::ostream* out) {
  *out << parameter.name;
}

/* Names the tests of a suite after its Named parameters. */
inline constexpr auto by_name = [](const auto& test) { return std::string(test.param.name); };

#endif
