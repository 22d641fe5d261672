/*
 * Tests that fail, each in one of the ways in which the others can: CTest is told to expect it, which proves that a
 * failure is noticed.
 */
#include <gtest/gtest.h>

#include "support/run_in_child.h"
#include "tavren_assert.h"

namespace {

TEST(Runner, NoticesAFailedExpectation) { EXPECT_EQ(1 + 1, 3); }

TEST(Runner, NoticesAnAssertionThatDidNotFail) {
  expect_assertion("source", "a == b", [] {});
}

TEST(Runner, NoticesAnAssertionOfAnotherSource) {
  expect_assertion("source", "a == b", [] { _tavren_assert("a == b", "another", 1); });
}

TEST(Runner, NoticesAnotherAssertion) {
  expect_assertion("source", "a == b", [] { _tavren_assert("a != b", "source", 1); });
}

TEST(Runner, NoticesADiagnosticWithoutAnAbort) {
  expect_assertion("source", "a == b", [] {
    tavren_suppress_abort = true;
    _tavren_assert("a == b", "source", 1);
  });
}

}  // namespace
