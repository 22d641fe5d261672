#include <gtest/gtest.h>

#include "daemon/api_calls.h"
#include "daemon/daemon_fixture.h"
#include "faults/runner.h"

/*
 * Calls of a real daemon in which every call of the C library fails in turn.
 */
namespace {

class ApiFaults : public DaemonTest, public testing::WithParamInterface<Named<ApiCall>> {};

TEST_P(ApiFaults, AreFailures) {
  answer("get_errors", std::string("0\0", 2));
  tavren_api_handle_t handle{};
  alignas(16) unsigned char result[512] = {};
  int returned = 0;
  try_all_faults({[] {},
                  [&] {
                    const std::string outcome = outcome_of([&] {
                      returned = tavren_api_open(&handle);
                      if (returned == 0) returned = GetParam().value.make(&handle, result);
                    });
                    return outcome == "success" ? outcome_of(returned, nullptr) : outcome;
                  },
                  [&] {
                    message(handle);
                    tavren_api_close(&handle);
                  }},
                 "",
                 /* The RPC library and the C library's look for host names do not live through it: they crash. */
                 "malloc");
}

INSTANTIATE_TEST_SUITE_P(, ApiFaults, testing::ValuesIn(api_calls), by_name);

}  // namespace
