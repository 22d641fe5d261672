#include "tavrend/daemon_fixture.h"

/*
 * The time of day jumps, as it does where a battery is empty and the network has the time.
 */
namespace {

constexpr int hour = 3600; /* seconds */

class DaemonsClock : public TavrendTest {
 protected:
  DaemonsClock() { move_to(0); }

  /* Has the daemon take the time of day for so many seconds later than it is. */
  void move_to(int seconds) const {
    write_file(offset + ".new", std::to_string(seconds));
    std::filesystem::rename(offset + ".new", offset);
  }

  void start_with_that_clock(const std::string& configuration) {
    setenv("MOVED_CLOCK", offset.c_str(), 1);
    setenv("LD_PRELOAD", MOVED_CLOCK, 1);
    /* Where there is a sanitizer, it would have to be the first that is loaded, or be told that it is not. */
    const char* const options = getenv("ASAN_OPTIONS");
    setenv("ASAN_OPTIONS",
           ((options != nullptr ? options + std::string(":") : "") + "verify_asan_link_order=0").c_str(), 1);
    start(configuration);
    unsetenv("LD_PRELOAD");
  }

  /* There was a rotated log before. */
  void stop_after_a_first_line() {
    append("messages.7", "long ago\n");
    lab::run("touch -d '10 hours ago' " + log("messages.7"));
    archive_a_first_line();
    stop();
  }

  const std::string offset = lab::value("LAB") + "/clock";
};

}  // namespace

TEST_F(DaemonsClock, ThatJumpsNeitherRepeatsNamesNorStopsTheIntervals) {
  start_with_that_clock(following("messages"));
  ASSERT_EQ(set_config(), 0);
  std::string written;
  for (const int hours : {0, -5, 10, -100, 1}) {
    move_to(hours * hour);
    const std::string line = "the clock is " + std::to_string(hours) + " hours late\n";
    written += line;
    append("messages", line);
    expect_archived("messages", written);
  }
  const auto names = items("messages");
  EXPECT_EQ(names.size(), 5U);
  /* It did jump: the third one was made ten hours after the first. */
  EXPECT_NE(names[0].substr(0, 13), names[2].substr(0, 13));
}

TEST_F(DaemonsClock, NamesItemsInUtcWhereverTheMachineIs) {
  const auto utc_now = [] {
    lab::run("TZ=UTC0 date +%Y-%m-%dT%H:%M:%S >$LAB/now");
    return read_file(lab::value("LAB") + "/now").substr(0, 19);
  };
  append("messages", "one\n");
  setenv("TZ", "HERE-11:30", 1);
  start(following("messages"));
  unsetenv("TZ");
  const std::string before = utc_now();
  ASSERT_EQ(set_config(), 0);
  expect_archived("messages", "one\n");
  const std::string name = items("messages").at(0).substr(0, 19);
  EXPECT_GE(name, before);
  EXPECT_LE(name, utc_now());
}

TEST_F(DaemonsClock, SetBackOverARestartRepeatsNoName) {
  append("messages", "one\n");
  move_to(5 * hour);
  start_with_that_clock(following("messages"));
  ASSERT_EQ(set_config(), 0);
  expect_archived("messages", "one\n");
  stop();
  move_to(0);
  append("messages", "two\n");
  start_again();
  expect_archived("messages", "one\ntwo\n");
  EXPECT_EQ(items("messages").size(), 2U);
}

/* Logs have the times of a clock that was set back, and those that were there at first stay unsent. */
TEST_F(DaemonsClock, SetBackLosesNoLogThatIsRotatedAfterIt) {
  stop_after_a_first_line();
  append("messages", "two\n");
  lab::run("cd " + logs + " && mv messages messages.2 && touch -d '5 hours ago' messages.2");
  append("messages.1", "three\n");
  append("messages", "four\n");
  lab::run("cd " + logs + " && touch -d '299 minutes ago' messages.1 && touch -d '298 minutes ago' messages");
  start_again();
  expect_archived("messages", "one\ntwo\nthree\nfour\n");
  EXPECT_EQ(errors(), "");
}

TEST_F(DaemonsClock, SetBackLosesNoLogThatIsOnlyWrittenAfterIt) {
  stop_after_a_first_line();
  lab::run("cd " + logs + " && mv messages messages.2");
  append("messages.1", "two\n");
  append("messages", "three\n");
  lab::run("cd " + logs + " && touch -d '11 hours ago' messages.1 && touch -d '298 minutes ago' messages");
  start_again();
  expect_archived("messages", "one\ntwo\nthree\n");
  EXPECT_EQ(errors(), "");
}
