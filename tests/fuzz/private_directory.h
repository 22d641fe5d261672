#ifndef TESTS_FUZZ_PRIVATE_DIRECTORY_H
#define TESTS_FUZZ_PRIVATE_DIRECTORY_H

#include <stdlib.h>

#include "fuzz/fuzz.h"
#include "support/temporary_directory.h"
#include "tavren_share.h"

/* Gives the program its private temporary directory, once, in a place of its own. */
inline void set_up_private_directory() {
  static const TemporaryDirectory home;
  static const bool ready = [] {
    setenv("TAVREN_HOME", home.path().c_str(), 1);
    char message[TAVREN_MESSAGE_SIZE] = "";
    return tavren_setup_tmp_dir("fuzz", message) == 0;
  }();
  MUST(ready);
}

#endif
