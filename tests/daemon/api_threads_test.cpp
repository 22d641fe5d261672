#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "daemon/daemon_fixture.h"

/*
 * The RPC library moves the padding of strings through one static buffer, which all threads write to and none reads. It
 * is not built with the thread sanitizer; ours is.
 */
extern "C" const char* __tsan_default_options();
extern "C" const char* __tsan_default_options() { return "ignore_noninstrumented_modules=1"; }

namespace {

constexpr int threads = 10;
constexpr int calls_of_each = 10000;

class ApiThreads : public DaemonTest {};

TEST_F(ApiThreads, WithAHandleEachGetTheRightAnswers) {
  answer("audit_file_was_archived", "5");
  answer("get_archive_host", "archive.example");
  std::atomic<int> right{0};
  std::vector<std::thread> all;
  for (int i = 0; i < threads; ++i) {
    all.emplace_back([&right] {
      tavren_api_handle_t handle{};
      if (tavren_api_open(&handle) != 0) return;
      char buffer[TAVREN_API_TEXT_SIZE];
      for (int call = 0; call < calls_of_each / 2; ++call) {
        if (tavren_api_audit_file_was_archived(&handle, "file") == 5) ++right;
        if (tavren_api_get_archive_host(&handle, buffer) == 0 && std::string(buffer) == "archive.example") ++right;
      }
      tavren_api_close(&handle);
    });
  }
  for (std::thread& thread : all) thread.join();
  EXPECT_EQ(right, threads * calls_of_each);
}

}  // namespace
