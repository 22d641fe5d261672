#include "support/wiped_texts.h"

#include <string.h>

#include "support/real_function.h"

std::string wiped_texts;

STANDS_BEFORE_THE_REAL_ONE void explicit_bzero(void* bytes, size_t size) noexcept {
  /* Volatile, because the compiler knows that nobody reads what this function is given. */
  const volatile char* const text = static_cast<const volatile char*>(bytes);
  for (size_t i = 0; i < size; ++i) wiped_texts += text[i];
  wiped_texts += '|';
  real<void(void*, size_t)>("explicit_bzero")(bytes, size);
}
