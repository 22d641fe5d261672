#include "tavrend/daemon_fixture.h"

/*
 * What becomes of the daemon when the machine's rpcbind is not there, forgets, or does not answer.
 */
namespace {

class DaemonsRegistration : public TavrendTest {
 protected:
  ~DaemonsRegistration() override { lab::run("pkill -CONT -x rpcbind || true"); }

  static void end_rpcbind() { lab::run("pkill -x rpcbind; while pgrep -x rpcbind >/dev/null; do sleep 0.01; done"); }
  static void hold_rpcbind() { lab::run("pkill -STOP -x rpcbind"); }

  static bool is_in_the_system_log(const std::string& text) {
    return lab::system_log().find(text) != std::string::npos;
  }

  void expect_an_end_within_five_seconds() {
    const int before = tavren_get_uptime();
    EXPECT_EQ(stop(), 0);
    EXPECT_LT(tavren_get_uptime(), before + 5);
  }

  /* Starts the daemon with a clock that tells it how long the machine is up, and that can be moved on. */
  void start_with_moved_uptime() {
    move_uptime_by(0);
    setenv("MOVED_UPTIME", moved.c_str(), 1);
    setenv("LD_PRELOAD", MOVED_CLOCK, 1);
    start(following("messages"));
    unsetenv("LD_PRELOAD");
    where = port();
  }

  void move_uptime_by(int seconds) const {
    write_file(moved + ".new", std::to_string(seconds));
    std::filesystem::rename(moved + ".new", moved);
  }

  const std::string moved = lab::value("LAB") + "/uptime";
  uint16_t where = 0;
};

}  // namespace

TEST_F(DaemonsRegistration, IsTriedAgainWhereThereIsNoRpcbindAtFirst) {
  end_rpcbind();
  write_file(config_file, following("messages"));
  const int64_t first_ms = tavren_get_uptime_ms();
  launch();
  wait_until("a message", [] { return is_in_the_system_log("there is no rpcbind to register with; trying again"); });
  begin_rpcbind();
  const int before = tavren_get_uptime();
  wait_until_registered();
  EXPECT_GE(tavren_get_uptime_ms(), first_ms + 5000);
  EXPECT_LT(tavren_get_uptime(), before + 8);
  EXPECT_TRUE(is_in_the_system_log("registered with rpcbind"));
}

TEST_F(DaemonsRegistration, IsMadeAgainWithinFiveMinutesWhenRpcbindHasForgottenIt) {
  start_with_moved_uptime();
  end_rpcbind();
  begin_rpcbind();
  move_uptime_by(300);
  wait_until_registered();
  EXPECT_TRUE(is_in_the_system_log("the registration with rpcbind was lost"));
}

TEST_F(DaemonsRegistration, IsMadeAgainWithinFiveMinutesWhenADeadDaemonOfAnotherHomeHasIt) {
  start_with_moved_uptime();
  lab::run("TAVREN_HOME=$LAB/logs " TAVREND " --config " + config_file + " --state $LAB/other & " +
           "until rpcinfo -p 127.0.0.1 | awk '$1 == 100171 {print $4}' | grep -qvx " + std::to_string(where) +
           "; do sleep 0.02; done; kill -9 $!");
  move_uptime_by(300);
  wait_until_registered();
}

TEST_F(DaemonsRegistration, IsMadeAgainAfterALookWithoutRpcbind) {
  start_with_moved_uptime();
  end_rpcbind();
  move_uptime_by(300);
  wait_until("a message", [] { return is_in_the_system_log("there is no rpcbind to register with; trying again"); });
  begin_rpcbind();
  move_uptime_by(305);
  wait_until_registered();
}

TEST_F(DaemonsRegistration, IsLeftBehindWhereRpcbindDoesNotAnswerAtTheEnd) {
  start(following("messages"));
  hold_rpcbind();
  expect_an_end_within_five_seconds();
}

TEST_F(DaemonsRegistration, DoesNotKeepTheDaemonWhereRpcbindDoesNotAnswerAtFirst) {
  hold_rpcbind();
  write_file(config_file, following("messages"));
  launch();
  wait_until("a message", [] { return is_in_the_system_log("there is no rpcbind to register with; trying again"); });
  expect_an_end_within_five_seconds();
}
