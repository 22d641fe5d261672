#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>

#include "daemon/daemon_fixture.h"

namespace {

/* The example program that asks the daemon. */
class DaemonStatusExample : public DaemonTest {
 protected:
  static int run() {
    const int status = system(DAEMON_STATUS " >$LAB/out 2>&1");
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  static std::string out() { return read_file(std::string(getenv("LAB")) + "/out"); }
};

TEST_F(DaemonStatusExample, ShowsHowTheDaemonDoes) {
  answer("get_state", "1");
  answer("get_status", "0\n2\n");
  EXPECT_EQ(run(), 0);
  EXPECT_EQ(out(), "Archiving: Enabled\nConnection: Failed\nSince: None\n");
}

TEST_F(DaemonStatusExample, SaysThatThereIsNoDaemon) {
  unregister();
  EXPECT_EQ(run(), 1);
  EXPECT_EQ(out(), "daemon_status: Cannot connect to archiving daemon: RPC: Program not registered\n");
}

}  // namespace
