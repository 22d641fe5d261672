#include "support/run_in_child.h"
#include "tavrend/daemon_fixture.h"

namespace {

class Caller : public TavrendTest {
 protected:
  static constexpr uint32_t get_remote_command_table = 45;
  static constexpr uint32_t is_tavrend_sleeping = 48;

  /* Returns a record of those words, as they travel. */
  static std::string record(std::vector<uint32_t> words) {
    words.insert(words.begin(), static_cast<uint32_t>(0x80000000 | words.size() * sizeof(uint32_t)));
    for (uint32_t& word : words) word = htonl(word);
    return {reinterpret_cast<const char*>(words.data()), words.size() * sizeof(uint32_t)};
  }

  /* Returns so many calls of a procedure without an argument. */
  static std::string calls(uint32_t procedure, size_t count) {
    const std::string call = record({1, 0, 2, 100171, 1, procedure, 0, 0, 0, 0});
    std::string all;
    for (size_t i = 0; i < count; ++i) all += call;
    return all;
  }

  /* Returns a connection with the daemon that has no room for answers. */
  static int without_room(uint16_t port) {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    const int least = 1;
    setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &least, sizeof least);
    connect_to_daemon(fd, port);
    return fd;
  }
};

}  // namespace

/* What they would have to take is more than the kernel keeps for them. */
TEST_F(Caller, ThatTakesNothingKeepsNobodyWaiting) {
  start(following("messages"));
  const std::string long_text(50000, 'x');
  ASSERT_EQ(refusal_of([&](auto* h, char** m) { return tavren_api_set_remote_command(h, "ls", long_text.c_str(), m); }),
            "");
  const std::string requests = calls(get_remote_command_table, 400);
  const uint16_t where = port();
  std::vector<int> callers;
  for (int i = 0; i < 10; ++i) {
    callers.push_back(without_room(where));
    /* The daemon may have hung up before it has taken them all. */
    EXPECT_GT(send(callers.back(), requests.data(), requests.size(), MSG_NOSIGNAL), 0);
  }
  const int before = tavren_get_uptime();
  for (int i = 0; i < 100; ++i) {
    tavren_state_t now{};
    ASSERT_EQ(tavren_get_state(&now), 0);
  }
  EXPECT_LT(tavren_get_uptime(), before + 10);
  for (const int fd : callers) close(fd);
}

TEST_F(Caller, ThatIsAStrangerAndTakesNothingDoesNotEndTheDaemon) {
  start(following("messages"));
  const std::string requests = calls(is_tavrend_sleeping, 20000);
  const uint16_t where = port();
  const Outcome outcome = run_in_child([&] {
    if (setuid(4711) != 0) _exit(1);
    const int fd = without_room(where);
    for (size_t sent = 0; sent < requests.size();) {
      const ssize_t n = send(fd, requests.data() + sent, requests.size() - sent, MSG_NOSIGNAL);
      if (n == -1) break; /* it has hung up */
      sent += static_cast<size_t>(n);
    }
  });
  EXPECT_TRUE(outcome.exited_with(0));
  tavren_state_t now{};
  EXPECT_EQ(tavren_get_state(&now), 0);
  EXPECT_EQ(waitpid(daemon, nullptr, WNOHANG), 0);
}

/* The credentials of the RPC protocol are the caller's own words. */
TEST_F(Caller, WhoSaysToBeRootIsAStrangerAllTheSame) {
  constexpr uint32_t auth_sys = 1;
  constexpr uint32_t root_without_a_name[] = {0, 0, 0, 0, 0}; /* stamp, name, user, group, groups */
  std::vector<uint32_t> call = {1, 0, 2, 100171, 1, get_remote_command_table, auth_sys, sizeof root_without_a_name};
  call.insert(call.end(), std::begin(root_without_a_name), std::end(root_without_a_name));
  call.insert(call.end(), {0, 0});
  start(following("messages"));
  const std::string request = record(call);
  const std::string refusal = record({1, 1, 1, 1, 5}); /* a reply: denied, for its credentials, which are too weak */
  const uint16_t where = port();
  const Outcome outcome = run_in_child([&] {
    if (setuid(4711) != 0) _exit(1);
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    connect_to_daemon(fd, where);
    std::string answer(refusal.size(), '\0');
    if (send(fd, request.data(), request.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(request.size())) _exit(2);
    if (recv(fd, answer.data(), answer.size(), MSG_WAITALL) != static_cast<ssize_t>(answer.size())) _exit(3);
    if (answer != refusal) _exit(4);
  });
  EXPECT_TRUE(outcome.exited_with(0)) << outcome.wait_status;
}
