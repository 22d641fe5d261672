#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <new>
#include <string>

#include "daemon/api_calls.h"
#include "daemon/daemon_fixture.h"
#include "support/failing_memory.h"

namespace {

/* The functions that make more of their answers than the RPC library has decoded, when memory runs out over that. */
class ApiMemory : public ApiTest {
 protected:
  static void expect_bad_alloc(const std::function<void()>& call) {
    EXPECT_THROW(
        {
          const failing_memory::FailAllocation exhausted(1);
          call();
        },
        std::bad_alloc);
  }

  static void answer_with_an_error() {
    std::string stored = "1|TavrenError|1|1|error_line_t|12|1|a line|";
    std::replace(stored.begin(), stored.end(), '|', '\0');
    answer("get_errors", stored);
  }
};

TEST_F(ApiMemory, ThatRunsOutPassesGetErrors) {
  answer_with_an_error();
  char unset = 0;
  char* text = &unset;
  expect_bad_alloc([&] { tavren_api_get_errors(&handle, &text); });
  EXPECT_EQ(text, &unset);
}

/* What is made before the copy is made in memory that is there. */
TEST_F(ApiMemory, ThatRunsOutOverTheCopyOfTheErrorsGivesNone) {
  answer_with_an_error();
  char unset = 0;
  char* text = &unset;
  int result = TAVREN_API_E_RPC;
  for (int count = 1; text == &unset && count < 500; ++count) {
    try {
      const failing_memory::FailAllocation exhausted(count);
      result = tavren_api_get_errors(&handle, &text);
    } catch (const std::bad_alloc&) {
    }
  }
  EXPECT_EQ(result, 0);
  EXPECT_EQ(text, nullptr);
}

TEST_F(ApiMemory, ThatRunsOutOverTheCopyOfATextGivesNone) {
  for (const std::string procedure : {"clear_stored_data", "set_tunable", "set_remote_command", "set_interval",
                                      "get_tunable_table", "get_remote_command_table", "get_interval_table"}) {
    answer(procedure, "a text");
    char unset = 0;
    char* text = &unset;
    int result = TAVREN_API_E_RPC;
    {
      const failing_memory::FailAllocation exhausted(1);
      result = call_for_text(procedure, &handle, &text);
    }
    EXPECT_EQ(result, 0) << procedure;
    EXPECT_EQ(text, nullptr) << procedure;
  }
}

TEST_F(ApiMemory, ThatRunsOutPassesLoadTunablesAndLoadRemoteCommands) {
  answer("get_tunables", "log_dir_prefix=a\n");
  expect_bad_alloc([this] { tavren_api_load_tunables(&handle); });
  answer("get_remote_commands", "cat=/bin/cat \n");
  expect_bad_alloc([this] { tavren_api_load_remote_commands(&handle); });
}

}  // namespace
