#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>

#include "support/memory_limit.h"
#include "support/run_in_child.h"
#include "tavren_basic.h"
#include "tavren_malloc.h"

namespace {

void do_nothing() {}

TEST(SplitFields, WithoutMemoryIsReportedByTheSourcesName) {
  const Outcome outcome = run_in_child([] {
    std::string text(large_size, ',');
    limit_memory(0);
    char** fields = nullptr;
    tavren_split_fields(text.data(), ',', &fields);
    free(fields);
  });
  const std::string report = outcome.err.substr(0, outcome.err.find_first_of("0123456789"));
  EXPECT_EQ(report, "Memory allocation failed: tavren_basic, line ");
  EXPECT_TRUE(outcome.exited_with(2)) << outcome.wait_status;
}

TEST(SplitFields, WithoutMemoryIsNothingWhenTheHandlerReturns) {
  const Outcome outcome = run_in_child([] {
    tavren_set_malloc_handler(do_nothing);
    std::string text(large_size, ',');
    limit_memory(0);
    char* unset = nullptr;
    char** fields = &unset;
    _exit(tavren_split_fields(text.data(), ',', &fields) == 0 && fields == nullptr ? 3 : 4);
  });
  EXPECT_TRUE(outcome.exited_with(3)) << outcome.wait_status;
}

}  // namespace
