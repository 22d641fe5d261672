#include <gtest/gtest.h>
#include <stdlib.h>

#include <string>

#include "daemon/api_calls.h"
#include "daemon/daemon_fixture.h"

namespace {

class ApiRequest : public ApiTest {};

TEST_F(ApiRequest, SetsTheState) {
  EXPECT_EQ(tavren_api_set_state(&handle, TAVREN_STATE_ENABLED), 0);
  EXPECT_EQ(tavren_api_set_state(&handle, TAVREN_STATE_DISABLED), 0);
  EXPECT_EQ(requests(), "set_state\n1\nset_state\n0\n");
}

TEST_F(ApiRequest, SetsAConfiguration) {
  char host[] = "h", dir[] = "/d", user[] = "u", password[] = "p", key[] = "k", fingerprint[] = "f";
  const tavren_config_t config = {{host, dir, user, password, key, fingerprint}, {1, -1}};
  EXPECT_EQ(tavren_api_set_config(&handle, &config, 0), 0);
  EXPECT_EQ(requests(), "set_config\nh\n/d\nu\np\nk\nf\n1\n-1\n0\n");
}

/* The RPC library sends what it could encode. The daemon cannot read that, and the handle goes on. */
TEST_F(ApiRequest, WithAStringThatIsMissingFails) {
  const tavren_config_t config{};
  EXPECT_EQ(tavren_api_set_config(&handle, &config, 0), TAVREN_API_E_RPC);
  EXPECT_EQ(message(handle).find("Archiving API error: RPC failure: RPC: Can't encode arguments"), 0U)
      << message(handle);
  EXPECT_EQ(tavren_api_set_state(&handle, TAVREN_STATE_ENABLED), 0) << message(handle);
}

TEST_F(ApiRequest, OfATaskNameOfAMegabyteArrives) {
  const std::string name(1 << 20, 't');
  EXPECT_EQ(tavren_api_run_task(&handle, name.c_str()), 0);
  EXPECT_TRUE(requests() == "run_task\n" + name + "\n");
}

TEST_F(ApiRequest, AboutAnAuditFileReturnsTheAnswer) {
  for (const int expected : {0, 1, 5}) {
    answer("audit_file_was_archived", std::to_string(expected));
    EXPECT_EQ(tavren_api_audit_file_was_archived(&handle, "audit.1"), expected);
    EXPECT_EQ(handle.error, 0);
    EXPECT_EQ(requests(), "audit_file_was_archived\naudit.1\n");
  }
}

TEST_F(ApiRequest, AboutAnAuditFileStoresANegativeAnswer) {
  answer("audit_file_was_archived", "-7");
  EXPECT_EQ(tavren_api_audit_file_was_archived(&handle, "audit.1"), -7);
  EXPECT_EQ(handle.error, -7);
  EXPECT_EQ(message(handle), "Internal log archiving API error (error code -7)");
  for (const int later : {5, 0}) {
    answer("audit_file_was_archived", std::to_string(later));
    EXPECT_EQ(tavren_api_audit_file_was_archived(&handle, "audit.1"), later);
    EXPECT_EQ(handle.error, -7);
  }
}

TEST_F(ApiRequest, MayBeRefusedWithAMessageWhichIsNoFailure) {
  for (const char* procedure : {"clear_stored_data", "set_tunable", "set_remote_command", "set_interval"}) {
    SCOPED_TRACE(procedure);
    char unset = 0;
    char* text = &unset;
    EXPECT_EQ(call_for_text(procedure, &handle, &text), 0);
    EXPECT_EQ(text, nullptr);
    answer(procedure, "not today");
    EXPECT_EQ(call_for_text(procedure, &handle, &text), 0);
    EXPECT_STREQ(text, "not today");
    EXPECT_EQ(handle.error, 0);
    free(text);
  }
}

}  // namespace
