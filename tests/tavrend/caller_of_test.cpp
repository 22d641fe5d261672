#include <gtest/gtest.h>
#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <functional>
#include <optional>

#include "service/caller.h"
#include "support/real_function.h"
#include "support/run_in_child.h"
#include "tavren_basic.h"

namespace {

/* What becomes of the kernel's answer about a socket before it is read. */
std::function<void(inet_diag_msg& answer)> change_answer;

}  // namespace

STANDS_BEFORE_THE_REAL_ONE ssize_t recv(int fd, void* bytes, size_t size, int flags) {
  const ssize_t length = real<ssize_t(int, void*, size_t, int)>("recv")(fd, bytes, size, flags);
  if (change_answer && length >= static_cast<ssize_t>(NLMSG_LENGTH(sizeof(inet_diag_msg)))) {
    change_answer(*static_cast<inet_diag_msg*>(NLMSG_DATA(bytes)));
  }
  return length;
}

namespace {

/* Both ends of a connection on this machine. */
class CallerOf : public testing::Test {
 protected:
  CallerOf() {
    const int listening = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    EXPECT_EQ(bind(listening, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    EXPECT_EQ(listen(listening, 1), 0);
    EXPECT_EQ(getsockname(listening, reinterpret_cast<sockaddr*>(&address), &size), 0);
    EXPECT_EQ(connect(theirs, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ours = accept(listening, nullptr, nullptr);
    EXPECT_NE(ours, -1);
    close(listening);
  }
  ~CallerOf() override {
    change_answer = nullptr;
    hang_up();
    close(ours);
  }

  void hang_up() {
    if (theirs != -1) close(theirs);
    theirs = -1;
  }

  int theirs = socket(AF_INET, SOCK_STREAM, 0);
  int ours = -1;
};

}  // namespace

TEST_F(CallerOf, AConnectionIsWhoHoldsItsOtherEnd) { EXPECT_EQ(caller_of(ours), getuid()); }

/* The kernel names root, whoever it was. */
TEST_F(CallerOf, AConnectionWhoseOtherEndHasHungUpIsNobody) {
  EXPECT_EQ(write(theirs, "x", 1), 1);
  hang_up();
  EXPECT_EQ(caller_of(ours), std::nullopt);
}

/* Then the kernel sends the question back, in which an answer's place for the user reads as root. */
TEST_F(CallerOf, AConnectionWhoseOtherEndTheKernelHasForgottenIsNobody) {
  const int seconds = 1;
  ASSERT_EQ(setsockopt(theirs, IPPROTO_TCP, TCP_LINGER2, &seconds, sizeof seconds), 0);
  hang_up();
  const int end = tavren_get_uptime() + 3;
  while (tavren_get_uptime() < end) {
    ASSERT_EQ(caller_of(ours), std::nullopt);
    usleep(20000);
  }
}

TEST_F(CallerOf, AConnectionIsNobodyWhereTheAnswerIsAboutAnother) {
  const std::function<void(inet_diag_sockid&)> changes[] = {
      [](inet_diag_sockid& id) { id.idiag_sport ^= 1; },
      [](inet_diag_sockid& id) { id.idiag_dport = 0; },
      [](inet_diag_sockid& id) { id.idiag_src[0] ^= 1; },
      [](inet_diag_sockid& id) { id.idiag_dst[0] = 0; },
  };
  for (const auto& change : changes) {
    change_answer = [&change](inet_diag_msg& answer) { change(answer.id); };
    EXPECT_EQ(caller_of(ours), std::nullopt);
  }
  change_answer = [](inet_diag_msg&) {};
  EXPECT_EQ(caller_of(ours), getuid());
}

/* The number alone goes into the child: to look at an object of ours a sanitizer needs descriptors. */
TEST_F(CallerOf, AConnectionIsNobodyWhereTheKernelCannotBeAsked) {
  const Outcome outcome = run_in_child([connection = ours] {
    const rlimit none{0, 0};
    setrlimit(RLIMIT_NOFILE, &none);
    _exit(caller_of(connection) ? 1 : 0);
  });
  EXPECT_TRUE(outcome.exited_with(0));
}

TEST_F(CallerOf, AConnectionOfAnotherKindIsNobody) {
  int ends[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
  EXPECT_EQ(caller_of(ends[0]), std::nullopt);
  for (const int fd : ends) close(fd);
}
