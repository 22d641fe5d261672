#include <stdint.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <sstream>

#include "tavrend/procedures_fixture.h"

namespace {

class DaemonsRetry : public Procedure {
 protected:
  /* Starts the daemon without an archive host, and with a file that says until when it waits. */
  void start_in_an_outage() {
    lab::stop_sshd();
    start_with(NOTED_WAITS);
  }

  void start_with(const char* modules) {
    append("messages", "one\n");
    setenv("NOTED_WAITS", waits.c_str(), 1);
    setenv("LD_PRELOAD", modules, 1);
    start(sections());
    unsetenv("LD_PRELOAD");
    ASSERT_EQ(set_config(), 0);
  }

  /* Starts a chassis without a state, whose time of day is that of every other, and returns its wait after a failure.
   */
  int64_t first_wait_ms(const std::string& chassis) {
    become_chassis(chassis);
    start_with(NOTED_WAITS ":" STOPPED_CLOCK);
    EXPECT_EQ(set_tunable("failure_retry_interval", "10000"), "");
    const int64_t before_ms = tavren_get_uptime_ms();
    fail();
    const int64_t wait_ms = end_of_the_wait_ms() - before_ms;
    stop();
    std::filesystem::remove_all(state);
    return wait_ms;
  }

  /* Has the daemon try once more, and fail. */
  static void fail() {
    ASSERT_EQ(refusal_of(tavren_api_clear_stored_data), "");
    ASSERT_EQ(run_task("LogTypeTask.messages"), 0);
    wait_until("a failure", [] { return !errors().empty(); });
    wait_until("the wait after it", [] { return sleeping() == 1; });
  }

  int64_t end_of_the_wait_ms() const {
    std::istringstream lines(read_file(waits));
    int64_t last = 0;
    for (int64_t end = 0; lines >> end;) last = end;
    return last;
  }

  const std::string waits = lab::value("LAB") + "/waits";
};

}  // namespace

TEST_F(DaemonsRetry, ComesAfterFiveMinutesUnlessItIsToldOtherwise) {
  start_in_an_outage();
  const int64_t before_ms = tavren_get_uptime_ms();
  fail();
  EXPECT_GE(end_of_the_wait_ms(), before_ms + 270000);
  EXPECT_LE(end_of_the_wait_ms(), tavren_get_uptime_ms() + 330000);
}

TEST_F(DaemonsRetry, ComesATenthEarlierOrLaterAsIsDrawnAnewEachTime) {
  start_in_an_outage();
  ASSERT_EQ(set_tunable("failure_retry_interval", "1000"), "");
  int64_t shortest_ms = INT64_MAX;
  int64_t longest_ms = 0;
  for (int i = 0; i < 10; ++i) {
    const int64_t before_ms = tavren_get_uptime_ms();
    fail();
    const int64_t end_ms = end_of_the_wait_ms();
    EXPECT_GE(end_ms, before_ms + 900000);
    EXPECT_LE(end_ms, tavren_get_uptime_ms() + 1100000);
    shortest_ms = std::min(shortest_ms, end_ms - before_ms);
    longest_ms = std::max(longest_ms, end_ms - before_ms);
  }
  /* That all of them are closer to each other happens once in a hundred million times. */
  EXPECT_GT(longest_ms - shortest_ms, 20000);
}

TEST_F(DaemonsRetry, IsDrawnOtherwiseByAnotherChassisWhoseClockBeginsAlike) {
  lab::stop_sshd();
  const int64_t first_ms = first_wait_ms("CH-1");
  const int64_t second_ms = first_wait_ms("CH-2");
  /* A tenth of 10,000 s to either side is drawn from; a failure takes some seconds at the most. */
  EXPECT_GT(std::abs(first_ms - second_ms), 20000);
}

/* So many files that what is remembered of them needs room that there is not: a failure of which the host knows
 * nothing. */
TEST_F(DaemonsRetry, ComesAsLateWhereTheStateCannotBeWritten) {
  std::filesystem::create_directory(state);
  lab::change_machine("mount -t tmpfs -o size=300k tmpfs $LAB/state");
  start_with(NOTED_WAITS);
  ASSERT_EQ(set_tunable("failure_retry_interval", "1000"), "");
  lab::run("cat /dev/zero >$LAB/state/filler 2>/dev/null || true");
  for (int i = 0; i < 200; ++i) append("audit.log." + std::to_string(i), "x\n");
  const int64_t before_ms = tavren_get_uptime_ms();
  ASSERT_EQ(run_task("LogTypeTask.audit"), 0);
  wait_until("a failure",
             [] { return lab::system_log().find("tavrend.db: database or disk is full") != std::string::npos; });
  wait_until("the wait after it", [] { return sleeping() == 1; });
  EXPECT_GE(end_of_the_wait_ms(), before_ms + 900000);
  EXPECT_LE(end_of_the_wait_ms(), tavren_get_uptime_ms() + 1100000);
  EXPECT_NE(status().connection_status, TAVREN_CONNECTION_FAILED);
  stop();
  lab::change_machine("umount $LAB/state");
}
