#ifndef TESTS_SUPPORT_OWN_MACHINE_H
#define TESTS_SUPPORT_OWN_MACHINE_H

#include <gtest/gtest.h>
#include <stdlib.h>

#include <string>

/* Ends the test as skipped, with that reason; where everything is supposed to be there, as failed. */
[[noreturn]] inline void skip(const std::string& reason) {
  if (getenv("CI") != nullptr) {
    ADD_FAILURE() << reason;
  } else {
    [&] { GTEST_SKIP() << reason; }();
  }
  /* Which GoogleTest takes for the end of a test that has said why. */
  throw testing::AssertionException(testing::TestPartResult(testing::TestPartResult::kSkip, __FILE__, __LINE__, ""));
}

/* Skips the test where the archive host is in place: what the test does would reach other people on the machine. */
inline void need_own_machine(const std::string& what) {
  if (getenv("LAB_IN_PLACE") != nullptr) skip("this needs namespaces, which nobody may make here: " + what);
}

#endif
