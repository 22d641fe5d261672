#ifndef SRC_UTIL_REFUSAL_H
#define SRC_UTIL_REFUSAL_H

#include <stdarg.h>
#include <stdio.h>

#include "tavren_constants.h"

/* Writes a reason into a caller's buffer of TAVREN_MESSAGE_SIZE bytes; longer text is cut. Returns -1. */
__attribute__((format(printf, 2, 3))) inline int refuse(char* message, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  vsnprintf(message, TAVREN_MESSAGE_SIZE, format, arguments);
  va_end(arguments);
  return -1;
}

#endif
