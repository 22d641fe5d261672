#include <gtest/gtest.h>

#include <string>

#include "daemon/daemon_fixture.h"

namespace {

TEST_F(ApiTest, ReadsTheState) {
  answer("get_state", "1");
  tavren_state_t state = TAVREN_STATE_DISABLED;
  EXPECT_EQ(tavren_api_get_state(&handle, &state), 0);
  EXPECT_EQ(state, TAVREN_STATE_ENABLED);
  EXPECT_EQ(requests(), "get_state\n");
}

TEST_F(ApiTest, ReadsATableOfAMegabyte) {
  const std::string table(1 << 20, 'x');
  answer("get_tunable_table", table);
  char* text = nullptr;
  EXPECT_EQ(tavren_api_get_tunable_table(&handle, &text), 0) << message(handle);
  EXPECT_TRUE(text == table);
  free(text);
}

TEST_F(ApiTest, SurvivesADaemonThatHasDied) {
  stop(SIGKILL);
  tavren_state_t state = TAVREN_STATE_DISABLED;
  for (int i = 0; i < 5; ++i) EXPECT_EQ(tavren_api_get_state(&handle, &state), TAVREN_API_E_RPC);
}

}  // namespace
