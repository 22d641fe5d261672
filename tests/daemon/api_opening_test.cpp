#include <fcntl.h>
#include <gtest/gtest.h>
#include <rpc/rpc.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include "daemon/daemon_fixture.h"
#include "support/process_state.h"

namespace {

/* Machines on which the daemon is not what it should be. */
class ApiOpening : public DaemonTest {
 protected:
  tavren_api_handle_t handle{};
};

TEST_F(ApiOpening, WithoutADaemonFails) {
  handle.clnt = reinterpret_cast<struct __rpc_client*>(this); /* of an earlier opening */
  unregister();
  EXPECT_EQ(tavren_api_open(&handle), TAVREN_API_E_CONNECT);
  EXPECT_EQ(handle.error, TAVREN_API_E_CONNECT);
  EXPECT_EQ(handle.clnt, nullptr);
  EXPECT_EQ(message(handle), "Cannot connect to archiving daemon: RPC: Program not registered");
  tavren_api_close(&handle);
}

TEST_F(ApiOpening, OfADaemonThatDiedWithoutAWordFails) {
  stop(SIGKILL);
  EXPECT_EQ(tavren_api_open(&handle), TAVREN_API_E_CONNECT);
  EXPECT_EQ(message(handle).find("Cannot connect to archiving daemon: RPC: "), 0U) << message(handle);
}

void stop_rpc_services() {
  ASSERT_EQ(system("pkill -x rpcbind; while pgrep -x rpcbind >/dev/null; do sleep 0.01; done; rm -f /run/rpcbind.sock"),
            0);
}

TEST_F(ApiOpening, WithoutRpcServicesFailsAtOnce) {
  constexpr int no_time_out = 5; /* seconds: the RPC library's shortest would be twenty-five */
  stop_rpc_services();
  const int before = tavren_get_uptime();
  EXPECT_EQ(tavren_api_open(&handle), TAVREN_API_E_CONNECT);
  EXPECT_LT(tavren_get_uptime(), before + no_time_out);
  EXPECT_EQ(message(handle), "Cannot connect to archiving daemon: RPC: Remote system error - Connection refused");
}

/* The RPC library by itself ends the process then: it remembers them. */
TEST_F(ApiOpening, AfterTheRpcServicesHaveGoneFails) {
  ASSERT_EQ(tavren_api_open(&handle), 0);
  tavren_api_close(&handle);
  stop_rpc_services();
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(tavren_api_open(&handle), TAVREN_API_E_CONNECT);
    EXPECT_EQ(message(handle), "Cannot connect to archiving daemon: RPC: Remote system error - Connection refused");
  }
}

/* The same when it has looked up the network and cannot have a socket any more. */
TEST_F(ApiOpening, WithoutDescriptorsFails) {
  ASSERT_EQ(tavren_api_open(&handle), 0);
  tavren_api_close(&handle);
  const rlimit few{50, 50};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
  while (dup(STDERR_FILENO) != -1) {
  }
  int result = TAVREN_API_E_CONNECT;
  for (int left = 0; result != 0 && left < 10; ++left) {
    result = tavren_api_open(&handle);
    EXPECT_TRUE(result == 0 || left < 5);
    if (left < 2) {
      EXPECT_EQ(message(handle), "Cannot connect to archiving daemon: RPC: Remote system error - Too many open files");
    }
    close(static_cast<int>(few.rlim_cur) - 1 - left);
  }
  EXPECT_EQ(result, 0);
  tavren_api_close(&handle);
}

/* What a host without standard streams prints would go to the daemon, as a request of that many bytes. */
TEST_F(ApiOpening, KeepsOffTheStandardStreams) {
  answer("get_state", "1\n");
  for (unsigned missing = 1; missing < 8; ++missing) {
    const pid_t host = fork();
    if (host == 0) {
      for (int fd = 0; fd < 3; ++fd) {
        if ((missing >> fd & 1) != 0) close(fd);
      }
      if (tavren_api_open(&handle) != 0) _exit(1);
      for (int fd = 0; fd < 3; ++fd) {
        if ((missing >> fd & 1) != 0 && write(fd, "printed", 7) != -1) _exit(2);
      }
      tavren_state_t state{};
      const bool answered = tavren_api_get_state(&handle, &state) == 0 && state == TAVREN_STATE_ENABLED;
      tavren_api_close(&handle);
      _exit(answered ? 0 : 3);
    }
    int status = 0;
    waitpid(host, &status, 0);
    EXPECT_EQ(status, 0) << missing;
  }
}

TEST_F(ApiOpening, OfAnotherVersionSucceedsAndItsFirstCallFails) {
  unregister();
  start("100171", "2");
  EXPECT_EQ(tavren_api_open(&handle), 0);
  tavren_state_t state{};
  EXPECT_EQ(tavren_api_get_state(&handle, &state), TAVREN_API_E_RPC);
  EXPECT_EQ(message(handle),
            "Archiving API error: RPC failure: RPC: Program/version mismatch; low version = 2, high version = 2");
  tavren_api_close(&handle);
}

TEST_F(ApiOpening, AndFailingCallsLeaveNoSigpipeNoMaskAndNoDisposition) {
  sigset_t sigpipe, before, after, pending;
  sigemptyset(&sigpipe);
  sigaddset(&sigpipe, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, nullptr, &before);
  EXPECT_EQ(sigismember(&before, SIGPIPE), 0);
  tavren_state_t state{};
  ASSERT_EQ(tavren_api_open(&handle), 0);
  stop(SIGKILL);
  for (int i = 0; i < 5; ++i) tavren_api_get_state(&handle, &state);
  pthread_sigmask(SIG_BLOCK, &sigpipe, &after);
  EXPECT_EQ(sigismember(&after, SIGPIPE), 0);
  sigpending(&pending);
  EXPECT_EQ(sigismember(&pending, SIGPIPE), 0);
  struct sigaction disposition {};
  sigaction(SIGPIPE, nullptr, &disposition);
  EXPECT_EQ(disposition.sa_handler, SIG_DFL);
  tavren_api_close(&handle);
}

/* Four times as long is the limit of a call. */
TEST_F(ApiOpening, MakesASocketThatNoChildInheritsAndThatWaitsSixSeconds) {
  ASSERT_EQ(tavren_api_open(&handle), 0);
  int fd = -1;
  ASSERT_TRUE(clnt_control(handle.clnt, CLGET_FD, reinterpret_cast<char*>(&fd)));
  EXPECT_EQ(fcntl(fd, F_GETFD), FD_CLOEXEC);
  timeval limit{};
  socklen_t size = sizeof limit;
  ASSERT_EQ(getsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, &size), 0);
  EXPECT_EQ(limit.tv_sec, 6);
  EXPECT_EQ(limit.tv_usec, 0);
  tavren_api_close(&handle);
}

TEST_F(ApiOpening, AndClosingLeaveNoDescriptor) {
  const auto before = count_open_descriptors();
  for (int i = 0; i < 50; ++i) {
    ASSERT_EQ(tavren_api_open(&handle), 0);
    tavren_api_close(&handle);
  }
  EXPECT_EQ(count_open_descriptors(), before);
}

}  // namespace
