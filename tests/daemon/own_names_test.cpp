#include <gtest/gtest.h>

#include "daemon/wire.h"
#include "support/real_function.h"

/*
 * A program that brings filters and stubs with the library's names, as one does that links what a generator made of the
 * protocol's description: the library's own must not be replaced by them.
 */
namespace {

int own_filter_calls = 0;
int own_stub_calls = 0;
xdrproc_t result_filter = nullptr;

clnt_stat note_filters(CLIENT*, rpcproc_t, xdrproc_t, void*, xdrproc_t results, void*, struct timeval) {
  result_filter = results;
  return RPC_SUCCESS;
}

}  // namespace

STANDS_BEFORE_THE_REAL_ONE bool_t xdr_tavren_settings_t(XDR*, tavren_settings_t*) {
  ++own_filter_calls;
  return FALSE;
}

STANDS_BEFORE_THE_REAL_ONE clnt_stat tavren_rpc_get_state_1(tavren_state_t*, CLIENT*) {
  ++own_stub_calls;
  return RPC_FAILED;
}

namespace {

TEST(OwnFilters, AreNotUsedInsideTheLibrarysRecords) {
  char text[] = "x";
  const tavren_config_t config = {{text, text, text, text, text, text}, {1, 2}};
  EXPECT_EQ(wire::encoded(xdr_tavren_config_t, config)->size(), 6U * 8U + 8U);
  EXPECT_EQ(own_filter_calls, 0);
}

TEST(OwnFilters, AreNotUsedInTheLibrarysCalls) {
  CLIENT::clnt_ops operations{};
  operations.cl_call = note_filters;
  CLIENT client{};
  client.cl_ops = &operations;
  tavren_config_t config{};
  EXPECT_EQ(tavren_rpc_get_config_1(&config, &client), RPC_SUCCESS);
  ASSERT_NE(result_filter, nullptr);
  xdr_free(result_filter, &config);
  EXPECT_EQ(own_filter_calls, 0);
}

TEST(OwnStubs, AreNotUsedByTheClientApi) {
  CLIENT::clnt_ops operations{};
  operations.cl_call = note_filters;
  operations.cl_geterr = [](CLIENT*, rpc_err*) {};
  CLIENT client{};
  client.cl_ops = &operations;
  tavren_api_handle_t handle{&client, 0};
  tavren_state_t state{};
  EXPECT_EQ(tavren_api_get_state(&handle, &state), 0);
  EXPECT_EQ(own_stub_calls, 0);
}

}  // namespace
