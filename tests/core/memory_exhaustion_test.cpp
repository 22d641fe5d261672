#include <gtest/gtest.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <new>

#include "support/files.h"
#include "support/memory_limit.h"
#include "support/private_tmp.h"
#include "support/run_in_child.h"
#include "tavren_assert.h"
#include "tavren_cmem.h"
#include "tavren_malloc.h"

namespace {

constexpr char fatal_error[] = "FATAL ERROR: Ran out of heap memory.\n";

int handler_calls = 0;

/* Takes every byte of memory that the process could still get. */
void exhaust_memory() {
  limit_memory(0);
  void* volatile taken = nullptr; /* a compiler may leave out an allocation that nobody looks at */
  for (size_t size = large_size; size > 0; size /= 2) {
    do taken = malloc(size);
    while (taken != nullptr);
  }
}

void give_memory_back() {
  ++handler_calls;
  limit_memory(RLIM_INFINITY);
}

TEST(OperatorNew, WithoutMemoryReportsAndExits) {
  const Outcome outcome = run_in_child([] {
    tavren_setup_new_handler();
    exhaust_memory();
    operator delete(operator new(large_size));
  });
  EXPECT_EQ(outcome.err, fatal_error);
  EXPECT_TRUE(outcome.exited_with(2)) << outcome.wait_status;
}

TEST(OperatorNew, TriesAgainWhenTheHandlerReturns) {
  const Outcome outcome = run_in_child([] {
    tavren_set_malloc_handler(give_memory_back);
    limit_memory(0);
    operator delete(operator new(large_size));
    _exit(handler_calls);
  });
  EXPECT_TRUE(outcome.exited_with(1)) << outcome.wait_status;
}

TEST(OperatorNew, WithoutASetUpThrows) {
  const Outcome outcome = run_in_child([] {
    limit_memory(0);
    try {
      operator delete(operator new(large_size));
    } catch (const std::bad_alloc&) {
      _exit(3);
    }
  });
  EXPECT_TRUE(outcome.exited_with(3)) << outcome.wait_status;
}

TEST(FailedAssertion, WithoutMemoryShowsItsDiagnostic) {
  const Outcome outcome = run_in_child([] {
    exhaust_memory();
    _tavren_assert("a == b", "f", 12);
  });
  EXPECT_EQ(outcome.err, "\nASSERTION ERROR (f:12)\nassertion failed: a == b\n");
  EXPECT_TRUE(outcome.killed_by(SIGABRT));
}

class DaemonsFailedAssertion : public PrivateTmpTest {};

TEST_F(DaemonsFailedAssertion, WithoutMemoryLeavesItsReport) {
  const Outcome outcome = run_in_child([] {
    if (!enter_private_tmp()) abort();
    tavren_set_program_name("tavrend");
    const Outcome daemon = run_in_child([] {
      exhaust_memory();
      _tavren_assert("a == b", "f", 12);
    });
    fputs(read_file("/tmp/tavrend_error.0").c_str(), stdout);
  });
  EXPECT_EQ(outcome.out, "ASSERTION ERROR (f:12)\nassertion failed: a == b\n");
}

TEST(AllocationCheck, WithoutMemoryReportsAndExits) {
  const Outcome outcome = run_in_child([] {
    exhaust_memory();
    _tavren_check_alloc("source", 12);
  });
  EXPECT_EQ(outcome.err, "Memory allocation failed: source, line 12\n" + std::string(fatal_error));
  EXPECT_TRUE(outcome.exited_with(2)) << outcome.wait_status;
}

TEST(Strdup, WithoutMemoryIsNullAndUnreported) {
  const Outcome outcome = run_in_child([] {
    const std::string text(large_size, 'x');
    limit_memory(0);
    _exit(tavren_strdup(text.c_str()) == nullptr ? 3 : 4);
  });
  EXPECT_EQ(outcome.err, "");
  EXPECT_TRUE(outcome.exited_with(3)) << outcome.wait_status;
}

}  // namespace
