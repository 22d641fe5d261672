#ifndef TESTS_SUPPORT_RUN_ALL_TESTS_H
#define TESTS_SUPPORT_RUN_ALL_TESTS_H

#include <gtest/gtest.h>

/*
 * Runs the tests that the command line chooses. Returns the program's exit status, of which GoogleTest's own knows
 * failures alone: 77 says that a test was skipped, however many others ran beside it, and none to run is a failure.
 */
inline int run_all_tests(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  const testing::UnitTest& program = *testing::UnitTest::GetInstance();
  const int status = RUN_ALL_TESTS();
  if (program.test_to_run_count() == 0) return 1;
  return status == 0 && program.skipped_test_count() > 0 ? 77 : status;
}

#endif
