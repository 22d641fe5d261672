#ifndef TESTS_SUPPORT_REAL_FUNCTION_H
#define TESTS_SUPPORT_REAL_FUNCTION_H

#include <dlfcn.h>

/* A definition that takes the place of another library's, for the shared library under test too. */
#define STANDS_BEFORE_THE_REAL_ONE extern "C" __attribute__((visibility("default")))

/* Returns the function of that name whose place ours takes. */
template <class Function>
Function* real(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

#endif
