#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <new>
#include <string>

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
};

TEST_F(ApiMemory, ThatRunsOutPassesGetErrors) {
  std::string stored = "1|TavrenError|1|1|error_line_t|12|1|a line|";
  std::replace(stored.begin(), stored.end(), '|', '\0');
  answer("get_errors", stored);
  char unset = 0;
  char* text = &unset;
  expect_bad_alloc([&] { tavren_api_get_errors(&handle, &text); });
  EXPECT_EQ(text, &unset);
}

TEST_F(ApiMemory, ThatRunsOutPassesLoadTunables) {
  answer("get_tunables", "log_dir_prefix=a\n");
  expect_bad_alloc([this] { tavren_api_load_tunables(&handle); });
}

TEST_F(ApiMemory, ThatRunsOutPassesLoadRemoteCommands) {
  answer("get_remote_commands", "cat=/bin/cat \n");
  expect_bad_alloc([this] { tavren_api_load_remote_commands(&handle); });
}

}  // namespace
