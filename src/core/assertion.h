#ifndef SRC_CORE_ASSERTION_H
#define SRC_CORE_ASSERTION_H

#include "tavren_assert.h"

/*
 * Ends the process unless expression holds. Its text is what people see and search for, so it is reported exactly as
 * written; source is the source's name without folder or extension, the class's where a class has several.
 */
#define TAVREN_ASSERT(source, expression) \
  ((expression) ? static_cast<void>(0) : _tavren_assert(#expression, source, __LINE__))

#endif
