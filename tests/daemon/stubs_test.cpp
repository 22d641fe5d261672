#include <gtest/gtest.h>
#include <signal.h>
#include <stdio.h>
#include <unistd.h>

#include <iterator>
#include <string>

#include "daemon/api_calls.h"
#include "daemon/daemon_fixture.h"
#include "support/run_in_child.h"
#include "tavren_rpc.h"

namespace {

/* Single calls, which the client API makes but for the first. */
class Stub : public ApiTest {};

TEST_F(Stub, OfNothingIsAnswered) {
  EXPECT_EQ(tavren_rpc_null_1(nullptr, handle.clnt), RPC_SUCCESS);
  EXPECT_EQ(requests(), "null\n");
}

TEST_F(Stub, ReturnsTheReasonOfARequestThatCannotBeSent) {
  EXPECT_EQ(tavren_rpc_run_task_1(nullptr, nullptr, handle.clnt), RPC_CANTENCODEARGS);
}

TEST_F(Stub, ReturnsTheReasonOfAReplyThatDoesNotCome) {
  tell("null", "die");
  EXPECT_EQ(tavren_rpc_null_1(nullptr, handle.clnt), RPC_CANTRECV);
}

TEST_F(Stub, ReturnsTheReasonOfADaemonThatSpeaksAnotherVersion) {
  unregister();
  start("100171", "2");
  tavren_api_close(&handle);
  ASSERT_EQ(tavren_api_open(&handle), 0);
  EXPECT_EQ(tavren_rpc_null_1(nullptr, handle.clnt), RPC_PROGVERSMISMATCH);
}

/* What all of them leave on the standard streams. */
class StubOutput : public Stub {
 protected:
  /* Calls every procedure in a process of its own, which exits with the number of those that have failed. */
  Outcome call_all() {
    answer("get_errors", std::string("0\0", 2));
    return run_in_child([this] {
      int failures = tavren_rpc_null_1(nullptr, handle.clnt) == RPC_SUCCESS ? 0 : 1;
      for (const auto& call : api_calls) {
        alignas(16) unsigned char result[512] = {};
        if (call.value.make(&handle, result) != 0) ++failures;
      }
      fflush(nullptr);
      _exit(failures);
    });
  }
};

TEST_F(StubOutput, OfCallsThatSucceedIsNone) {
  const Outcome outcome = call_all();
  EXPECT_TRUE(outcome.exited_with(0)) << outcome.wait_status;
  EXPECT_EQ(outcome.out + outcome.err, "");
}

TEST_F(StubOutput, OfCallsThatFailIsNone) {
  stop(SIGKILL);
  const Outcome outcome = call_all();
  EXPECT_TRUE(outcome.exited_with(static_cast<int>(std::size(api_calls)) + 1)) << outcome.wait_status;
  EXPECT_EQ(outcome.out + outcome.err, "");
}

const std::string megabyte(1 << 20, 'm');

TEST_F(Stub, CarriesSettingsOfAMegabyteBothWays) {
  std::string name = megabyte, value = "v" + megabyte;
  const std::string refusal = "refused " + megabyte;
  using Change = clnt_stat (*)(char*, char*, char**, CLIENT*);
  const std::pair<const char*, Change> changes[] = {{"set_tunable", tavren_rpc_set_tunable_1},
                                                    {"set_remote_command", tavren_rpc_set_remote_command_1},
                                                    {"set_interval", tavren_rpc_set_interval_1}};
  for (const auto& [procedure, change] : changes) {
    answer(procedure, refusal);
    char* reply = nullptr;
    EXPECT_EQ(change(name.data(), value.data(), &reply, handle.clnt), RPC_SUCCESS) << procedure;
    EXPECT_TRUE(reply == refusal) << procedure;
    EXPECT_TRUE(requests() == procedure + ("\n" + name) + "\n" + value + "\n") << procedure;
    free(reply);
  }
}

TEST_F(Stub, CarriesTheNameOfAnAuditFileOfAMegabyte) {
  std::string name = megabyte;
  int answered = 0;
  answer("audit_file_was_archived", "5");
  EXPECT_EQ(tavren_rpc_audit_file_was_archived_1(name.data(), &answered, handle.clnt), RPC_SUCCESS);
  EXPECT_EQ(answered, 5);
  EXPECT_TRUE(requests() == "audit_file_was_archived\n" + name + "\n");
}

}  // namespace
