#ifndef TESTS_TAVREND_CHOICE_H
#define TESTS_TAVREND_CHOICE_H

#include <stdlib.h>
#include <string.h>

#include <random>
#include <string>

/*
 * Which of all that could be tried: one of so many, another one in each run. TAVREN_FAULTS is "full" for each of them,
 * as scripts/faults has it, or of how many one is to be taken.
 */
class Choice {
 public:
  explicit Choice(long one_of)
      : step(wanted_step(one_of)), first(std::uniform_int_distribution<long>(0, step - 1)(device)) {}
  bool takes(long number) const { return number % step == first; }

 private:
  static long wanted_step(long usual) {
    const char* const wanted = getenv("TAVREN_FAULTS");
    if (wanted == nullptr) return usual;
    return strcmp(wanted, "full") == 0 ? 1 : std::stol(wanted);
  }

  std::random_device device;
  const long step;
  const long first;
};

#endif
