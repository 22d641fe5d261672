#include <errno.h>
#include <gtest/gtest.h>
#include <rpc/rpc.h>
#include <signal.h>
#include <sys/socket.h>

#include <string>
#include <thread>

#include "support/real_function.h"
#include "tavren_api.h"

/*
 * What the client API shares with the rest of the process: signals, and the RPC library's place for its messages. This
 * program creates the library's RPC clients itself, and creates none.
 */
namespace {

thread_local clnt_stat reason = RPC_PROGNOTREGISTERED;
int interruptions = 0;    /* of the next connections */
std::string long_message; /* that the RPC library gives in the place of its own */

}  // namespace

/* Fails as the real one does when those whom it asks hang up. */
STANDS_BEFORE_THE_REAL_ONE CLIENT* clnt_create(const char*, rpcprog_t, rpcvers_t, const char*) {
  raise(SIGPIPE);
  rpc_createerr.cf_stat = reason;
  return nullptr;
}

STANDS_BEFORE_THE_REAL_ONE int connect(int fd, const sockaddr* address, socklen_t size) {
  if (interruptions == 0) return real<int(int, const sockaddr*, socklen_t)>("connect")(fd, address, size);
  --interruptions;
  errno = EINTR;
  return -1;
}

STANDS_BEFORE_THE_REAL_ONE char* clnt_spcreateerror(const char* introduction) {
  static auto* const real_one = real<char*(const char*)>("clnt_spcreateerror");
  return long_message.empty() ? real_one(introduction) : long_message.data();
}

STANDS_BEFORE_THE_REAL_ONE char* clnt_sperror(CLIENT*, const char*) { return long_message.data(); }

namespace {

TEST(ApiOpeningInAProcess, GoesOnAfterASignalAndLeavesNoSigpipe) {
  interruptions = 2;
  tavren_api_handle_t handle{};
  EXPECT_EQ(tavren_api_open(&handle), TAVREN_API_E_CONNECT);
  EXPECT_EQ(interruptions, 0);
  char message[TAVREN_API_TEXT_SIZE];
  EXPECT_STREQ(tavren_api_errmsg(&handle, message), "Cannot connect to archiving daemon: RPC: Program not registered");
  sigset_t pending;
  sigpending(&pending);
  EXPECT_EQ(sigismember(&pending, SIGPIPE), 0);
}

/* The RPC library of today cuts its messages earlier. */
TEST(LongApiMessage, IsCutTo255Bytes) {
  for (const int32_t error : {TAVREN_API_E_CONNECT, TAVREN_API_E_RPC}) {
    for (const size_t length : {255U, 256U, 1000U}) {
      long_message.assign(length, 'x');
      tavren_api_handle_t handle{nullptr, error};
      std::string buffer(TAVREN_API_TEXT_SIZE + 1, 'z');
      tavren_api_errmsg(&handle, buffer.data());
      EXPECT_EQ(buffer, std::string(255, 'x') + '\0' + 'z') << error << ", " << length;
    }
  }
}

/* Opens and asks for the message, which must always be that of this thread. Returns how often it was not. */
int mix_ups(clnt_stat status, const std::string& expected) {
  reason = status;
  tavren_api_handle_t handle{};
  tavren_api_open(&handle);
  int count = 0;
  for (int i = 0; i < 100000; ++i) {
    char message[TAVREN_API_TEXT_SIZE];
    if (tavren_api_errmsg(&handle, message) != expected) ++count;
  }
  return count;
}

TEST(ApiMessages, AreThoseOfTheirThread) {
  int others = -1;
  std::thread other(
      [&others] { others = mix_ups(RPC_UNKNOWNHOST, "Cannot connect to archiving daemon: RPC: Unknown host"); });
  EXPECT_EQ(mix_ups(RPC_PROGNOTREGISTERED, "Cannot connect to archiving daemon: RPC: Program not registered"), 0);
  other.join();
  EXPECT_EQ(others, 0);
}

}  // namespace
