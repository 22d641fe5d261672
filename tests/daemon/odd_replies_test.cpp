#include <gtest/gtest.h>
#include <limits.h>
#include <netinet/in.h>
#include <rpc/pmap_clnt.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>

#include "daemon/api_calls.h"
#include "daemon/wire.h"

using wire::text;
using wire::unit;

namespace {

/* The same random bytes each time. */
std::string noise(size_t size) {
  std::mt19937 random(1);
  std::string bytes(size, '\0');
  for (char& byte : bytes) byte = static_cast<char>(random());
  return bytes;
}

/* A daemon that writes bytes of its own in the place of replies: one connection, one reply to each request. */
class OddReply : public testing::Test {
 protected:
  OddReply() {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (bind(listener, reinterpret_cast<sockaddr*>(&address), length) != 0 || listen(listener, 1) != 0 ||
        getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
      throw std::runtime_error("no listener");
    }
    pmap_unset(TAVREN_RPC_PROG_DEFAULT, TAVREN_RPC_VERS);
    if (pmap_set(TAVREN_RPC_PROG_DEFAULT, TAVREN_RPC_VERS, IPPROTO_TCP, ntohs(address.sin_port)) == FALSE) {
      throw std::runtime_error("not registered");
    }
  }
  ~OddReply() override {
    tavren_api_close(&handle);
    shutdown(listener, SHUT_RDWR); /* nobody may have come */
    if (daemon.joinable()) daemon.join();
    close(listener);
  }

  /*
   * Opens the handle to a daemon that answers so many requests with what make_reply makes of their transaction ids, and
   * then hangs up, or stays without looking at more.
   */
  void serve(const std::function<std::string(const std::string&)>& make_reply, int count = INT_MAX,
             bool stays = false) {
    daemon = std::thread([this, make_reply, count, stays] {
      const int connection = accept(listener, nullptr, nullptr);
      std::string xid;
      for (int i = 0; i < count && !(xid = read_request(connection)).empty(); ++i) {
        const std::string bytes = make_reply(xid);
        if (send(connection, bytes.data(), bytes.size(), MSG_NOSIGNAL) < 0) break;
      }
      if (stays) accept(listener, nullptr, nullptr); /* nobody comes: until the end of the test */
      close(connection);
    });
    ASSERT_EQ(tavren_api_open(&handle), 0);
  }

  /* Opens the handle to a daemon that answers every request with the table, on every connection, one after another. */
  void serve_all_connections() {
    daemon = std::thread([this] {
      for (int connection; (connection = accept(listener, nullptr, nullptr)) != -1; close(connection)) {
        ++connections;
        for (std::string xid; !(xid = read_request(connection)).empty();) {
          const std::string bytes = reply(xid, text("table"));
          if (send(connection, bytes.data(), bytes.size(), MSG_NOSIGNAL) < 0) break;
        }
      }
    });
    ASSERT_EQ(tavren_api_open(&handle), 0);
  }

  /* A reply of success with these results. */
  static std::string reply(const std::string& xid, const std::string& results) {
    const std::string bytes = xid + unit(1) + unit(0) + unit(0) + unit(0) + unit(0) + results;
    return unit(static_cast<uint32_t>(bytes.size()) | 0x80000000U) + bytes;
  }

  /* Asks for a table, which must be the text "table". */
  void get_the_table() {
    char* table = nullptr;
    EXPECT_EQ(tavren_api_get_tunable_table(&handle, &table), 0);
    EXPECT_STREQ(table, "table");
    free(table);
  }

  /* Does so, which must fail, say so everywhere and leave its result alone. Returns the RPC library's reason. */
  std::string fail_to_get_a_table() {
    char unset = 0;
    char* table = &unset;
    EXPECT_EQ(tavren_api_get_tunable_table(&handle, &table), TAVREN_API_E_RPC);
    EXPECT_EQ(handle.error, TAVREN_API_E_RPC);
    EXPECT_EQ(table, &unset);
    char message[TAVREN_API_TEXT_SIZE];
    const std::string text = tavren_api_errmsg(&handle, message);
    const std::string introduction = "Archiving API error: RPC failure: RPC: ";
    EXPECT_EQ(text.substr(0, introduction.size()), introduction);
    return text.substr(std::min(introduction.size(), text.size()));
  }

  tavren_api_handle_t handle{};
  std::atomic<int> connections{0}; /* that serve_all_connections has accepted */

 private:
  /* Returns the transaction id of the next request, nothing at the end. */
  static std::string read_request(int connection) {
    uint32_t header = 0;
    if (recv(connection, &header, sizeof header, MSG_WAITALL) != sizeof header) return "";
    std::string request(ntohl(header) & 0x7FFFFFFF, '\0');
    if (recv(connection, request.data(), request.size(), MSG_WAITALL) != static_cast<ssize_t>(request.size()))
      return "";
    return request.substr(0, 4);
  }

  int listener = -1;
  std::thread daemon;
};

TEST_F(OddReply, ThatIsInOrderIsTaken) {
  serve([](const std::string& xid) { return reply(xid, text("table")); });
  get_the_table();
}

TEST_F(OddReply, ThatIsCutIsAFailure) {
  serve([](const std::string& xid) { return reply(xid, text("table")).substr(0, 30); }, 1);
  EXPECT_EQ(fail_to_get_a_table(), "Unable to receive; errno = Connection reset by peer");
}

TEST_F(OddReply, ThatIsCutInAStatusLeavesTheResultAlone) {
  serve([](const std::string& xid) { return reply(xid, unit(1) + unit(1) + unit(2) + unit(3)); });
  tavren_status_t status{-1, TAVREN_CONNECTION_FAILED, {{-1, -1, -1}, {-1, -1, -1}}};
  EXPECT_EQ(tavren_api_get_status(&handle, &status), TAVREN_API_E_RPC);
  EXPECT_EQ(status.connection_time, -1);
  EXPECT_EQ(status.connection_status, TAVREN_CONNECTION_FAILED);
  EXPECT_EQ(status.compartment_status[0].word1, -1);
}

/* Nothing more comes, and nobody hangs up: that takes the library's 25 seconds. */
TEST_F(OddReply, ThatStopsInItsMiddleIsATimeout) {
  serve([](const std::string& xid) { return reply(xid, text("table")).substr(0, 30); });
  EXPECT_EQ(fail_to_get_a_table(), "Timed out");
}

/* A request that does not fit into the sockets' buffers is not sent for ever. */
TEST_F(OddReply, ThatNeverComesBecauseTheRequestIsNotReadIsAFailure) {
  serve([](const std::string&) { return ""; }, 0, true);
  EXPECT_EQ(tavren_api_run_task(&handle, std::string(16 << 20, 't').c_str()), TAVREN_API_E_RPC);
  char message[TAVREN_API_TEXT_SIZE];
  EXPECT_STREQ(tavren_api_errmsg(&handle, message),
               "Archiving API error: RPC failure: RPC: Unable to send; errno = Resource temporarily unavailable");
}

TEST_F(OddReply, WithoutASoundHeaderIsPassedOver) {
  serve([](const std::string& xid) { return unit(400U | 0x80000000U) + noise(400) + reply(xid, text("table")); });
  get_the_table();
}

/* The random bytes are the record's length, too. */
TEST_F(OddReply, OfNothingButNoiseIsAFailure) {
  serve([](const std::string&) { return noise(4096); }, 1);
  fail_to_get_a_table();
}

/* The memory is asked for, and not touched before something comes to fill it. */
TEST_F(OddReply, ThatAnnouncesTwoGigabytesIsAFailureWithoutSoMuchMemory) {
  serve([](const std::string& xid) { return reply(xid, unit(0x7FFFFFFF) + "abcd"); });
  EXPECT_EQ(fail_to_get_a_table(), "Can't decode result");
#if !defined __SANITIZE_ADDRESS__ && !defined __SANITIZE_THREAD__ /* which keep memory of their own */
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  EXPECT_LT(usage.ru_maxrss, 64 * 1024); /* KiB */
#endif
}

TEST_F(OddReply, ThatAnnouncesFourGigabytesOfErrorsIsAFailure) {
  serve([](const std::string& xid) { return reply(xid, unit(0) + unit(0xFFFFFFFF) + unit('x')); });
  char unset = 0;
  char* errors = &unset;
  EXPECT_EQ(tavren_api_get_errors(&handle, &errors), TAVREN_API_E_RPC);
  EXPECT_EQ(errors, &unset);
}

TEST_F(OddReply, ThatEndsInsideAConfigurationReleasesWhatItHad) {
  serve([](const std::string& xid) { return reply(xid, text("host") + text("dir") + text("user")); });
  tavren_config_t config{};
  EXPECT_EQ(tavren_api_get_config(&handle, &config), TAVREN_API_E_RPC);
  EXPECT_EQ(config.settings.host, nullptr);
}

TEST_F(OddReply, IsFollowedByTheNextOne) {
  int requests = 0;
  serve([&requests](const std::string& xid) {
    return ++requests == 1 ? reply(xid, unit(0x7FFFFFFF) + "abcd") : reply(xid, text("table"));
  });
  fail_to_get_a_table();
  get_the_table();
}

TEST_F(OddReply, ToAnotherRequestIsPassedOver) {
  serve([](const std::string& xid) { return reply("oooo", text("other")) + reply(xid, text("table")); });
  get_the_table();
}

TEST_F(OddReply, ToNoneOfManyRequestsTakesAConnectionOfItsOwn) {
  serve_all_connections();
  for (int i = 0; i < 100; ++i) get_the_table();
  EXPECT_EQ(connections, 1);
}

/* Noise behind a sound beginning, so that it comes to the decoders. */
class RandomReply : public OddReply, public testing::WithParamInterface<Named<ApiCall>> {};

TEST_P(RandomReply, IsAResultOrAFailureAndNoMore) {
  serve([](const std::string& xid) { return reply(xid, noise(4096)); }, 1);
  alignas(16) unsigned char result[512] = {};
  const int first = GetParam().value.make(&handle, result);
  EXPECT_EQ(handle.error, first < 0 ? first : 0);
  EXPECT_EQ(GetParam().value.make(&handle, result), TAVREN_API_E_RPC);
}

INSTANTIATE_TEST_SUITE_P(, RandomReply, testing::ValuesIn(api_calls), by_name);

}  // namespace
