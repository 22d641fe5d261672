#include <gtest/gtest.h>
#include <stdlib.h>

#include <functional>
#include <string>

#include "daemon/daemon_fixture.h"
#include "support/named.h"

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

TEST_F(ApiRequest, SetsNoConfigurationAndAnyTrueFlag) {
  EXPECT_EQ(tavren_api_set_config(&handle, nullptr, 5), 0);
  EXPECT_EQ(requests(), "set_config\nno config\n1\n");
}

/* The RPC library sends what it could encode. The daemon cannot read that, and the handle goes on. */
TEST_F(ApiRequest, WithAStringThatIsMissingFails) {
  const tavren_config_t config{};
  EXPECT_EQ(tavren_api_set_config(&handle, &config, 0), TAVREN_API_E_RPC);
  EXPECT_EQ(message(handle).find("Archiving API error: RPC failure: RPC: Can't encode arguments"), 0U)
      << message(handle);
  EXPECT_EQ(tavren_api_set_state(&handle, TAVREN_STATE_ENABLED), 0) << message(handle);
}

TEST_F(ApiRequest, RunsATask) {
  EXPECT_EQ(tavren_api_run_task(&handle, "some task"), 0);
  EXPECT_EQ(requests(), "run_task\nsome task\n");
}

TEST_F(ApiRequest, ForTheAuditFileIsATask) {
  EXPECT_EQ(tavren_api_request_to_archive_audit_file(&handle), 0);
  EXPECT_EQ(requests(), "run_task\nLogTypeTask.audit\n");
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

/* A request that the daemon may refuse with a message, what it sends, and the procedure that it calls. */
struct Refusable {
  std::function<int(tavren_api_handle_t*, char**)> make;
  std::string procedure;
  std::string arguments;
};

class ApiRefusal : public ApiTest, public testing::WithParamInterface<Named<Refusable>> {
 protected:
  int make(char** text) { return GetParam().value.make(&handle, text); }
};

TEST_P(ApiRefusal, IsAMessageAndNoFailure) {
  answer(GetParam().value.procedure, "not today");
  char* text = nullptr;
  EXPECT_EQ(make(&text), 0);
  EXPECT_STREQ(text, "not today");
  EXPECT_EQ(handle.error, 0);
  free(text);
}

TEST_P(ApiRefusal, ThatDoesNotComeIsNull) {
  char unset = 0;
  char* text = &unset;
  EXPECT_EQ(make(&text), 0);
  EXPECT_EQ(text, nullptr);
  EXPECT_EQ(requests(), GetParam().value.procedure + "\n" + GetParam().value.arguments);
}

const Named<Refusable> refusable[] = {
    {"Clearing",
     {[](tavren_api_handle_t* h, char** text) { return tavren_api_clear_stored_data(h, text); }, "clear_stored_data",
      ""}},
    {"Tunable",
     {[](tavren_api_handle_t* h, char** text) { return tavren_api_set_tunable(h, "name", "value", text); },
      "set_tunable", "name\nvalue\n"}},
    {"Command",
     {[](tavren_api_handle_t* h, char** text) { return tavren_api_set_remote_command(h, "ls", "/bin/ls -1", text); },
      "set_remote_command", "ls\n/bin/ls -1\n"}},
    {"Interval",
     {[](tavren_api_handle_t* h, char** text) { return tavren_api_set_interval(h, "name", "5m", text); },
      "set_interval", "name\n5m\n"}},
};

INSTANTIATE_TEST_SUITE_P(, ApiRefusal, testing::ValuesIn(refusable), by_name);

}  // namespace
