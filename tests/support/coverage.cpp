/*
 * Only in a build that counts lines (coverage.cmake): a process writes its counts down where it calls exit. Here it
 * does so, too, before it ends at once, is to be ended by abort, or becomes another program. Part of the library, whose
 * counts are its own, and of the tests, whose children mostly end with _exit.
 */
#include <sys/resource.h>

/* goes_on: counts what follows, too. */
extern "C" void _tavren_write_counts(bool goes_on);

#ifdef tavren_EXPORTS
extern "C" void __gcov_dump();
extern "C" void __gcov_reset();

extern "C" __attribute__((visibility("default"))) void _tavren_write_counts(bool goes_on) {
  /* One that may not write a file any more would be killed for it. */
  rlimit file{};
  getrlimit(RLIMIT_FSIZE, &file);
  if (file.rlim_cur != RLIM_INFINITY) return;
  /* Where memory has run out there must be some again, but not for what follows. */
  rlimit memory{};
  getrlimit(RLIMIT_AS, &memory);
  const rlimit more{memory.rlim_max, memory.rlim_max};
  setrlimit(RLIMIT_AS, &more);
  __gcov_dump();
  if (goes_on) __gcov_reset();
  setrlimit(RLIMIT_AS, &memory);
}
#endif

/* The linker puts __wrap_NAME in NAME's place, and NAME in that of __real_NAME. */
extern "C" [[noreturn]] void __real__exit(int status);
extern "C" [[noreturn]] void __real_abort();
extern "C" int __real_execve(const char* path, char* const* argv, char* const* environment);

extern "C" [[noreturn]] void __wrap__exit(int status) {
  _tavren_write_counts(false);
  __real__exit(status);
}

extern "C" [[noreturn]] void __wrap_abort() {
  _tavren_write_counts(false);
  __real_abort();
}

extern "C" int __wrap_execve(const char* path, char* const* argv, char* const* environment) {
  _tavren_write_counts(true);
  return __real_execve(path, argv, environment);
}
