#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "daemon/api_calls.h"
#include "daemon/wire.h"

using wire::text;
using wire::unit;

/*
 * The client API over a client that is played: what it is asked to send, for how long, and what becomes of it.
 */
namespace {

/* A call as the RPC library would get it. */
struct Call {
  rpcproc_t procedure;
  std::string arguments;
  std::string timeout;
};

std::vector<Call> calls;
int destroyed = 0;
std::string reply; /* what results are decoded from */

clnt_stat note_call(CLIENT*, rpcproc_t procedure, xdrproc_t filter, void* arguments, xdrproc_t result_filter,
                    void* result, struct timeval timeout) {
  std::string bytes(1000, '\0');
  XDR xdrs;
  xdrmem_create(&xdrs, bytes.data(), static_cast<u_int>(bytes.size()), XDR_ENCODE);
  if (filter(&xdrs, arguments) == FALSE) return RPC_CANTENCODEARGS;
  bytes.resize(xdr_getpos(&xdrs));
  calls.push_back({procedure, bytes, std::to_string(timeout.tv_sec) + " s " + std::to_string(timeout.tv_usec) + " us"});
  xdrmem_create(&xdrs, reply.data(), static_cast<u_int>(reply.size()), XDR_DECODE);
  return result_filter(&xdrs, result) != FALSE ? RPC_SUCCESS : RPC_CANTDECODERES;
}

void note_destruction(CLIENT*) { ++destroyed; }
void report_success(CLIENT*, rpc_err* error) { error->re_status = RPC_SUCCESS; }

class ApiClient : public testing::Test {
 protected:
  ApiClient() {
    operations.cl_call = note_call;
    operations.cl_destroy = note_destruction;
    operations.cl_geterr = report_success;
    client.cl_ops = &operations;
    handle.clnt = &client;
    calls.clear();
    destroyed = 0;
    /* Any result can be read from as many zeros. */
    reply.assign(1000, '\0');
  }

  CLIENT::clnt_ops operations{};
  CLIENT client{};
  tavren_api_handle_t handle{};
};

TEST_F(ApiClient, IsDestroyedByClosingAndStaysInTheHandle) {
  tavren_api_close(&handle);
  EXPECT_EQ(destroyed, 1);
  EXPECT_EQ(handle.clnt, &client);
}

TEST_F(ApiClient, LeavesTheStringsThatWereInAConfiguration) {
  char mine[] = "not on the heap";
  tavren_config_t config{{mine, mine, mine, mine, mine, mine}, {1, 2}};
  reply = text("h") + text("d") + text("u") + text("p") + text("k") + text("f") + unit(3) + unit(4);
  EXPECT_EQ(tavren_api_get_config(&handle, &config), 0);
  EXPECT_STREQ(config.settings.host, "h");
  EXPECT_STREQ(mine, "not on the heap");
  tavren_config_free_contents(&config);
}

TEST_F(ApiClient, TakesTextsForTexts) {
  char buffer[TAVREN_API_TEXT_SIZE];
  reply = text("a%sb%n");
  EXPECT_EQ(tavren_api_get_archive_host(&handle, buffer), 0);
  EXPECT_STREQ(buffer, "a%sb%n");
  EXPECT_EQ(tavren_api_get_archive_directory(&handle, buffer), 0);
  EXPECT_STREQ(buffer, "a%sb%n");
}

TEST_F(ApiClient, HasItsMessagesInTheCallersBuffer) {
  for (const int error : {0, TAVREN_API_E_CONNECT, TAVREN_API_E_RPC, -7}) {
    char buffer[TAVREN_API_TEXT_SIZE] = "untouched";
    handle.error = error;
    EXPECT_EQ(tavren_api_errmsg(&handle, buffer), buffer) << error;
    EXPECT_STRNE(buffer, "untouched") << error;
  }
}

TEST_F(ApiClient, TakesTextsOfAnyLength) {
  using Read = clnt_stat (*)(char**, CLIENT*);
  const std::string long_text(20000, 'x');
  reply = text(long_text);
  for (const Read read :
       {tavren_rpc_get_tunables_1, tavren_rpc_get_remote_commands_1, tavren_rpc_get_archive_host_1,
        tavren_rpc_get_archive_directory_1, tavren_rpc_clear_stored_data_1, tavren_rpc_get_tunable_table_1,
        tavren_rpc_get_remote_command_table_1, tavren_rpc_get_interval_table_1}) {
    char* result = nullptr;
    EXPECT_EQ(read(&result, &client), RPC_SUCCESS);
    EXPECT_EQ(result, long_text);
    free(result);
  }
}

TEST_F(ApiClient, TakesAStateThatTheEnumerationDoesNotHave) {
  int state = 0;
  static_assert(sizeof state == sizeof(tavren_state_t));
  reply = unit(77);
  EXPECT_EQ(tavren_api_get_state(&handle, reinterpret_cast<tavren_state_t*>(&state)), 0);
  EXPECT_EQ(state, 77);
}

TEST_F(ApiClient, StoresEachNegativeAnswerAboutAnAuditFile) {
  for (const int answer : {-1, -2, -3, INT32_MIN}) {
    reply = unit(static_cast<uint32_t>(answer));
    EXPECT_EQ(tavren_api_audit_file_was_archived(&handle, "file"), answer);
    EXPECT_EQ(handle.error, answer);
  }
}

TEST_F(ApiClient, KeepsItsErrorThroughSuccessAndClosing) {
  handle.error = TAVREN_API_E_RPC;
  EXPECT_EQ(tavren_api_set_state(&handle, TAVREN_STATE_ENABLED), 0);
  EXPECT_EQ(handle.error, TAVREN_API_E_RPC);
  tavren_api_close(&handle);
  EXPECT_EQ(handle.error, TAVREN_API_E_RPC);
  tavren_api_handle_t failed{nullptr, TAVREN_API_E_CONNECT};
  tavren_api_close(&failed);
  EXPECT_EQ(failed.error, TAVREN_API_E_CONNECT);
}

TEST_F(ApiClient, SendsNothingWithTheCallOfNothing) {
  calls.clear();
  EXPECT_EQ(tavren_rpc_null_1(nullptr, &client), RPC_SUCCESS);
  ASSERT_EQ(calls.size(), 1U);
  EXPECT_EQ(calls[0].procedure, 0U);
  EXPECT_EQ(calls[0].arguments, "");
  EXPECT_EQ(calls[0].timeout, "25 s 0 us");
}

class ApiRequestBytes : public ApiClient, public testing::WithParamInterface<Named<ApiCall>> {};

TEST_P(ApiRequestBytes, AreTheProceduresNumberAndArgumentsWithinTheTimeout) {
  alignas(16) unsigned char result[512] = {};
  const ApiCall& call = GetParam().value;
  if (call.procedure == "get_errors") reply = unit(0) + unit(2) + unit('0') + unit(0);
  EXPECT_EQ(call.make(&handle, result), 0);
  ASSERT_EQ(calls.size(), 1U);
  EXPECT_EQ(calls[0].procedure, call.number);
  EXPECT_EQ(calls[0].arguments, call.arguments);
  EXPECT_EQ(calls[0].timeout, "25 s 0 us");
  if (call.procedure == "get_config") tavren_config_free_contents(as<tavren_config_t>(result));
  if (call.procedure.find("table") != std::string::npos) free(*as<char*>(result));
}

INSTANTIATE_TEST_SUITE_P(, ApiRequestBytes, testing::ValuesIn(api_calls), by_name);

}  // namespace
