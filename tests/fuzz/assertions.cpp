#include "fuzz/fuzz.h"
#include "tavren_assert.h"

/* Stands before the library's own, for the library too. */
void _tavren_assert(const char* expression, const char* file, int line) {
  MUST(file != nullptr && line > 0);
  throw FailedAssertion{expression};
}
