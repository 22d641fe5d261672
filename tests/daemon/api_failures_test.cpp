#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <thread>

#include "daemon/api_calls.h"
#include "daemon/daemon_fixture.h"
#include "support/process_state.h"

namespace {

constexpr char rpc_failure[] = "Archiving API error: RPC failure: RPC: ";

class ApiCallFailure : public ApiTest, public testing::WithParamInterface<Named<ApiCall>> {
 protected:
  /* Makes the call, which must fail and leave its result alone. */
  void expect_failure() {
    alignas(16) unsigned char result[512];
    std::fill(std::begin(result), std::end(result), 0xA5);
    EXPECT_EQ(GetParam().value.make(&handle, result), TAVREN_API_E_RPC);
    EXPECT_EQ(handle.error, TAVREN_API_E_RPC);
    EXPECT_TRUE(std::all_of(std::begin(result), std::end(result), [](unsigned char byte) { return byte == 0xA5; }));
    EXPECT_EQ(message(handle).find(rpc_failure), 0U) << message(handle);
  }
};

TEST_P(ApiCallFailure, OfADaemonThatDiesDuringTheCallIsStoredAndReported) {
  tell(GetParam().value.procedure, "die");
  expect_failure();
}

/* The third call writes to a socket that is known to be dead, which raises SIGPIPE in a program that takes no care. */
TEST_P(ApiCallFailure, OfADaemonThatIsGoneIsOneEachTime) {
  stop(SIGKILL);
  for (int i = 0; i < 5; ++i) expect_failure();
}

INSTANTIATE_TEST_SUITE_P(, ApiCallFailure, testing::ValuesIn(api_calls), by_name);

class ApiFailure : public ApiTest {
 protected:
  int get_state() { return tavren_api_get_state(&handle, &state); }

  tavren_state_t state{};
};

TEST_F(ApiFailure, StaysStoredAfterACallThatSucceeds) {
  answer("audit_file_was_archived", "-7");
  tavren_api_audit_file_was_archived(&handle, "file");
  EXPECT_EQ(get_state(), 0);
  EXPECT_EQ(handle.error, -7);
}

TEST_F(ApiFailure, IsForgottenByAnOpening) {
  tavren_api_handle_t other{};
  other.error = -7;
  EXPECT_EQ(tavren_api_open(&other), 0);
  EXPECT_EQ(other.error, 0);
  EXPECT_EQ(message(other), "Internal log archiving API error (error code 0)");
  tavren_api_close(&other);
}

/* Blocks the signal in this thread. Returns the set of it alone. */
sigset_t block_sigpipe() {
  sigset_t sigpipe;
  sigemptyset(&sigpipe);
  sigaddset(&sigpipe, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &sigpipe, nullptr);
  return sigpipe;
}

bool sigpipe_is_pending() {
  sigset_t pending;
  sigpending(&pending);
  return sigismember(&pending, SIGPIPE) == 1;
}

TEST_F(ApiFailure, WhereSigpipeIsBlockedLeavesOneThatWasPendingAndNoOther) {
  const sigset_t sigpipe = block_sigpipe();
  stop(SIGKILL);
  for (const bool was_pending : {false, true}) {
    if (was_pending) raise(SIGPIPE);
    for (int i = 0; i < 5; ++i) EXPECT_EQ(get_state(), TAVREN_API_E_RPC);
    EXPECT_EQ(sigpipe_is_pending(), was_pending);
  }
  constexpr timespec at_once{};
  sigtimedwait(&sigpipe, nullptr, &at_once);
}

TEST_F(ApiFailure, OfADaemonThatDiesDuringTheCallIsItsHangingUp) {
  tell("get_state", "die");
  EXPECT_EQ(get_state(), TAVREN_API_E_RPC);
  EXPECT_EQ(message(handle), std::string(rpc_failure) + "Unable to receive; errno = Connection reset by peer");
}

volatile sig_atomic_t sigpipes = 0;
void count_sigpipe(int) { sigpipes = sigpipes + 1; }

/* While the daemon dies in the call, so that the call fails and looks after a SIGPIPE of its own. */
TEST_F(ApiFailure, LeavesASigpipeThatAnotherProcessSends) {
  struct sigaction counting {
  }, previous{};
  counting.sa_handler = count_sigpipe;
  sigaction(SIGPIPE, &counting, &previous);
  tell("get_state", "sleep 1");
  std::thread killer([this] {
    block_sigpipe();
    system("sleep 0.3; kill -PIPE $PPID");
    stop(SIGKILL);
  });
  EXPECT_EQ(get_state(), TAVREN_API_E_RPC);
  killer.join();
  EXPECT_EQ(sigpipes, 1);
  sigaction(SIGPIPE, &previous, nullptr);
}

volatile sig_atomic_t handled_at = 0; /* seconds of uptime */

/* The library waits for a reply for as long as it must: 25 seconds. */
TEST_F(ApiFailure, OfADaemonThatDoesNotAnswerHoldsSignalsBackUntilItIsOver) {
  struct sigaction note {};
  note.sa_handler = [](int) { handled_at = tavren_get_uptime(); };
  sigaction(SIGALRM, &note, nullptr);
  tell("get_state", "silence");
  const int start = tavren_get_uptime();
  alarm(1);
  EXPECT_EQ(get_state(), TAVREN_API_E_RPC);
  EXPECT_GE(handled_at, start + 24); /* the call's 25 seconds, in whole ones */
}

TEST_F(ApiFailure, OfADaemonThatDoesNotAnswerIsATimeoutAndTheNextCallWorks) {
  tell("get_state", "silence");
  const auto descriptors = count_open_descriptors();
  const int64_t start = tavren_get_uptime_ms();
  EXPECT_EQ(get_state(), TAVREN_API_E_RPC);
  EXPECT_EQ(message(handle), std::string(rpc_failure) + "Timed out");
  EXPECT_GE(tavren_get_uptime_ms() - start, 25000);
  EXPECT_EQ(requests(), "get_state\n");
  tell("get_state", "");
  answer("get_state", "1");
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(get_state(), 0) << message(handle);
    EXPECT_EQ(state, TAVREN_STATE_ENABLED);
  }
  EXPECT_EQ(handle.error, TAVREN_API_E_RPC);
  EXPECT_EQ(count_open_descriptors(), descriptors);
}

/* A request that was not taken whole has left the stream in its middle. */
TEST_F(ApiFailure, OfADaemonThatDoesNotTakeTheRequestIsOneAndTheNextCallWorks) {
  kill(server, SIGSTOP);
  EXPECT_EQ(tavren_api_run_task(&handle, std::string(16 << 20, 't').c_str()), TAVREN_API_E_RPC);
  kill(server, SIGCONT);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(get_state(), 0) << message(handle);
}

/* A write with a time limit does not go on after that by itself. */
TEST_F(ApiFailure, OfAProcessThatWasStoppedInALongRequestIsOneAndTheNextCallWorks) {
  kill(server, SIGSTOP);
  std::thread stopper([] { system("sleep 1; kill -STOP $PPID; sleep 0.2; kill -CONT $PPID"); });
  EXPECT_EQ(tavren_api_run_task(&handle, std::string(16 << 20, 't').c_str()), TAVREN_API_E_RPC);
  stopper.join();
  kill(server, SIGCONT);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(get_state(), 0) << message(handle);
}

/* The reply to the first call comes while nobody waits for it any more. */
TEST_F(ApiFailure, OfADaemonThatAnswersTooLateDoesNotMixUpTheAnswers) {
  answer("get_archive_host", "late");
  tell("get_archive_host", "sleep 27");
  char buffer[TAVREN_API_TEXT_SIZE] = "";
  EXPECT_EQ(tavren_api_get_archive_host(&handle, buffer), TAVREN_API_E_RPC);
  tell("get_archive_host", "");
  answer("get_archive_host", "in time");
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(tavren_api_get_archive_host(&handle, buffer), 0) << message(handle);
    EXPECT_STREQ(buffer, "in time");
  }
}

TEST_F(ApiFailure, OfADaemonThatDoesNotAnswerAndGoesIsOneEachTime) {
  tell("get_state", "silence");
  EXPECT_EQ(get_state(), TAVREN_API_E_RPC);
  stop(SIGKILL);
  EXPECT_EQ(get_state(), TAVREN_API_E_RPC);
  EXPECT_EQ(get_state(), TAVREN_API_E_RPC);
  EXPECT_EQ(message(handle), std::string(rpc_failure) + "Timed out");
}

TEST_F(ApiFailure, OfACallOnAHandleWithoutAConnectionIsItsMissing) {
  tavren_api_handle_t closed{};
  EXPECT_EQ(tavren_api_get_state(&closed, &state), TAVREN_API_E_CONNECT);
  EXPECT_EQ(closed.error, TAVREN_API_E_CONNECT);
  tavren_api_close(&closed);
}

}  // namespace
