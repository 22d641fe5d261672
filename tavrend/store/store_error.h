#ifndef TAVREND_STORE_STORE_ERROR_H
#define TAVREND_STORE_STORE_ERROR_H

#include <stdexcept>

/* Why the state cannot be used; nothing was thrown away. */
struct StoreError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

#endif
