#include "tavren_malloc.h"

#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>

#include <new>
#include <utility>

#include "core/buffered_streams.h"
#include "support/files.h"
#include "support/run_in_child.h"
#include "tavren_assert.h"
#include "tavren_cmem.h"

/* The handlers belong to the process and are never reset, so they are set in children only. */
namespace {

constexpr char fatal_error[] = "FATAL ERROR: Ran out of heap memory.\n";

void say_that_it_ran() { fputs("handler ran\n", stdout); }

void say_goodbye() { fputs("exit handlers ran", stdout); }

TEST(MallocHandler, IsTheBasicOneAtTheStart) {
  const Outcome outcome = run_in_child([] { tavren_run_malloc_handler(); });
  EXPECT_EQ(outcome.err, fatal_error);
  EXPECT_TRUE(outcome.exited_with(2)) << outcome.wait_status;
}

TEST(MallocHandler, ThatWasSetIsRunAndMayReturnAndIsTheNewHandlerToo) {
  const Outcome outcome = run_in_child([] {
    tavren_set_malloc_handler(say_that_it_ran);
    tavren_run_malloc_handler();
    std::get_new_handler()();
    fputs("and returned", stdout);
  });
  EXPECT_EQ(outcome.out, "handler ran\nhandler ran\nand returned");
}

TEST(NewHandler, IsNotInstalledByTheLibraryItself) { EXPECT_EQ(std::get_new_handler(), nullptr); }

TEST(NewHandler, OnceSetUpRunsTheMallocHandlerOfTheMoment) {
  const Outcome outcome = run_in_child([] {
    tavren_setup_new_handler();
    const std::new_handler installed = std::get_new_handler();
    tavren_set_malloc_handler(say_that_it_ran);
    installed();
  });
  EXPECT_EQ(outcome.out, "handler ran\n");
}

TEST(BasicMallocHandler, RunsNoExitHandlersUnlessAbortIsSuppressed) {
  for (const bool suppressed : {false, true}) {
    const Outcome outcome = run_in_child([suppressed] {
      atexit(say_goodbye);
      tavren_suppress_abort = suppressed;
      tavren_basic_malloc_handler();
    });
    EXPECT_EQ(outcome.err, fatal_error);
    EXPECT_EQ(outcome.out, suppressed ? "exit handlers ran" : "");
    EXPECT_TRUE(outcome.exited_with(suppressed ? 0 : 2)) << outcome.wait_status;
  }
}

/* The handler, and the check of an allocation that runs it. */
TEST(EndForLackOfMemory, FlushesTheBufferedStreamsFirstIfItCanAndShowsItsText) {
  const std::pair<void (*)(), const char*> ends[] = {
      {tavren_basic_malloc_handler, ""},
      {[] { _tavren_check_alloc("source", 12); }, "Memory allocation failed: source, line 12\n"}};
  for (const auto& [prepare, before] : states_of_the_streams) {
    for (const auto& end : ends) {
      const Outcome outcome = run_in_child([prepare = prepare, &end] {
        prepare();
        end.first();
      });
      EXPECT_EQ(outcome.err, std::string(before) + end.second + fatal_error);
      EXPECT_TRUE(outcome.exited_with(2)) << outcome.wait_status;
    }
  }
}

TEST(AllocationCheck, ReturnsWhenTheHandlerReturns) {
  const Outcome outcome = run_in_child([] {
    tavren_set_malloc_handler(say_that_it_ran);
    _tavren_check_alloc("source", 12);
    fputs("and returned", stdout);
  });
  EXPECT_EQ(outcome.err, "Memory allocation failed: source, line 12\n");
  EXPECT_EQ(outcome.out, "handler ran\nand returned");
}

TEST(AllocationCheck, CutsItsReportTo79Bytes) {
  const Outcome outcome = run_in_child([] {
    tavren_set_malloc_handler(say_that_it_ran);
    _tavren_check_alloc(std::string(100, 's').c_str(), 12);
  });
  EXPECT_EQ(outcome.err, "Memory allocation failed: " + std::string(79 - 26, 's'));
}

TEST(Strdup, ReturnsACopyThatFreeReleases) {
  for (const char* original : {"text", ""}) {
    std::string text = original;
    char* const copy = tavren_strdup(text.c_str());
    text.assign("n");
    EXPECT_STREQ(copy, original);
    free(copy);
  }
}

TEST(Strdup, OfNullIsReportedLikeAFailedAllocation) {
  const Outcome outcome = run_in_child([] { free(tavren_strdup(nullptr)); });
  const int line = line_of(SOURCES "/core/tavren_malloc.cpp", "_tavren_check_alloc(\"tavren_malloc\", __LINE__)");
  EXPECT_EQ(outcome.err, "Memory allocation failed: tavren_malloc, line " + std::to_string(line) + "\n" + fatal_error);
  EXPECT_TRUE(outcome.exited_with(2));
}

TEST(Strdup, OfNullIsNullWhenTheHandlerReturns) {
  const Outcome outcome = run_in_child([] {
    tavren_set_malloc_handler(say_that_it_ran);
    fputs(tavren_strdup(nullptr) == nullptr ? "NULL" : "not NULL", stdout);
  });
  EXPECT_EQ(outcome.out, "handler ran\nNULL");
}

}  // namespace
