#include "tavren_malloc.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <new>

#include "core/catalogue.h"
#include "core/diagnostic.h"
#include "tavren_assert.h"
#include "tavren_cmem.h"

namespace {

tavren_malloc_handler_t malloc_handler = tavren_basic_malloc_handler;

void private_malloc_handler() { tavren_run_malloc_handler(); }

}  // namespace

void tavren_set_malloc_handler(tavren_malloc_handler_t handler) {
  malloc_handler = handler;
  tavren_setup_new_handler();
}

void tavren_setup_new_handler() { std::set_new_handler(private_malloc_handler); }

void tavren_run_malloc_handler() { malloc_handler(); }

void tavren_basic_malloc_handler() {
  write_diagnostic(translate("FATAL ERROR: Ran out of heap memory.\n"));
  if (tavren_suppress_abort) exit_without_waiting();
  _exit(2);
}

void _tavren_check_alloc(const char* file, int line) {
  char report[80];
  snprintf(report, sizeof report, translate("Memory allocation failed: %s, line %d\n"), file, line);
  /* Another handler may return, or end the process in its own way. */
  if (malloc_handler == tavren_basic_malloc_handler) {
    write_diagnostic(report);
  } else {
    write_report(report);
  }
  tavren_run_malloc_handler();
}

char* tavren_strdup(const char* s) {
  /* Deliberately the argument is checked, not the result: callers see a failed copy as NULL. */
  if (s == nullptr) {
    _tavren_check_alloc("tavren_malloc", __LINE__);
    return nullptr;
  }
  return strdup(s);
}
