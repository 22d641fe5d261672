#include <fstream>
#include <functional>

#include "support/named.h"
#include "tavrend/held_items_fixture.h"

/*
 * A session that is ended in the middle of an item by what the daemon is told: that is no failure, and the item is sent
 * again, whole and in its place.
 */
namespace {

class SessionInTheMiddleOfAnItem : public Procedure {
 protected:
  /* Has item stand half in the archive, with the daemon about to send the rest. */
  void begin_to_send() { begin_to_send(following("messages")); }
  void begin_to_send(const std::string& section) {
    append("messages", lines);
    start(section);
    slow_the_network();
    ASSERT_EQ(set_config(), 0);
    wait_until_half_is_sent("messages");
    item = items("messages");
  }

  /* Waits until the session is over. What was on its way is still there, and half. */
  void expect_half_an_item() const {
    wait_until("the end of the session", [] { return sleeping() == 1; });
    EXPECT_EQ(items("messages"), item);
    EXPECT_LT(archive_of("messages").size(), lines.size());
  }

  void expect_the_item_in_its_place() const {
    expect_archived("messages", lines);
    EXPECT_EQ(items("messages"), item);
    EXPECT_EQ(errors(), "");
  }

  /* Goes on where the log is under that name, and unreadable even for root. */
  void go_on_with_an_unreadable(const std::string& name) {
    const std::string path = log(name);
    ASSERT_EQ(set_state(TAVREN_STATE_DISABLED), 0);
    expect_half_an_item();
    hurry_the_network();
    lab::run("mv -n " + log("messages") + " " + path + "; chown 4711 " + path + " && chmod 0 " + path);
    ASSERT_EQ(set_state(TAVREN_STATE_ENABLED), 0);
    wait_until("an error", [&path] { return errors().find(path + ", ecode=13") != std::string::npos; });
  }

  /* Whether the daemon has an open file beside its state that has no name. */
  bool has_temporary_file() const {
    for (const auto& fd : std::filesystem::directory_iterator("/proc/" + std::to_string(daemon) + "/fd")) {
      std::error_code none;
      if (std::filesystem::read_symlink(fd, none).string().rfind(state + "/#", 0) == 0) return true;
    }
    return false;
  }

  /* Has the far side take nothing any more, and waits until the daemon cannot send. */
  void stop_the_host() const {
    lab::run("pkill -STOP -u $LAB_USER");
    hurry_the_network();
    std::string written;
    wait_until("the daemon cannot send", [&] {
      const std::string before = std::exchange(written, bytes_written());
      usleep(300000);
      return before == written;
    });
  }

  /* What the daemon has written so far, as the kernel says it. */
  std::string bytes_written() const {
    const std::string counts = read_file("/proc/" + std::to_string(daemon) + "/io");
    return counts.substr(counts.find("wchar:"), counts.find("syscr:") - counts.find("wchar:"));
  }

  static void hurry_the_network() { lab::change_machine("tc qdisc del dev lo root"); }

  std::vector<std::string> item;
  const std::string lines = many_lines(20000000);
};

}  // namespace

TEST_F(SessionInTheMiddleOfAnItem, EndsWithTheDaemonWithinFiveSeconds) {
  begin_to_send();
  const int before = tavren_get_uptime();
  EXPECT_EQ(stop(), 0);
  EXPECT_LT(tavren_get_uptime(), before + 5);
  EXPECT_EQ(items("messages"), item);
  EXPECT_LT(archive_of("messages").size(), lines.size());
  hurry_the_network();
  start_again();
  expect_the_item_in_its_place();
}

/* The client has to say more than the host takes, and waits with its end for that. */
TEST_F(SessionInTheMiddleOfAnItem, EndsWithTheDaemonWithinFiveSecondsWhenTheHostTakesNothing) {
  begin_to_send();
  stop_the_host();
  const int before = tavren_get_uptime();
  EXPECT_EQ(stop(), 0);
  EXPECT_LT(tavren_get_uptime(), before + 5);
  EXPECT_EQ(items("messages"), item);
}

TEST_F(SessionInTheMiddleOfAnItem, EndsWhenArchivingIsSwitchedOff) {
  begin_to_send();
  ASSERT_EQ(set_state(TAVREN_STATE_DISABLED), 0);
  expect_half_an_item();
  hurry_the_network();
  ASSERT_EQ(set_state(TAVREN_STATE_ENABLED), 0);
  expect_the_item_in_its_place();
}

TEST_F(SessionInTheMiddleOfAnItem, EndsWithANewConfiguration) {
  begin_to_send();
  ASSERT_EQ(set_config(lab::value("LAB_PASSWORD"), -1, -1, false), 0);
  expect_half_an_item();
  hurry_the_network();
  ASSERT_EQ(set_config(), 0);
  expect_the_item_in_its_place();
}

TEST_F(SessionInTheMiddleOfAnItem, LeavesItThereWhileTheFileCannotBeReadAndGoesOnWithOthers) {
  give_up_reading_everything();
  begin_to_send(closed("messages*", "messages"));
  go_on_with_an_unreadable("messages");
  append("messages.2", "other\n");
  wait_until("another item", [] { return items("messages").size() == 2 && sleeping() == 1; });
  EXPECT_EQ(items("messages")[0], item[0]);
  lab::run("chmod 644 " + log("messages"));
  expect_archived("messages", lines + "other\n");
  EXPECT_EQ(items("messages")[0], item[0]);
  EXPECT_EQ(errors().find("ecode=61"), std::string::npos) << errors();
}

TEST_F(SessionInTheMiddleOfAnItem, LeavesItThereWhileTheRotatedLogCannotBeRead) {
  give_up_reading_everything();
  begin_to_send();
  go_on_with_an_unreadable("messages.1");
  EXPECT_EQ(items("messages"), item);
  lab::run("chmod 644 " + log("messages.1"));
  expect_archived("messages", lines);
  EXPECT_EQ(items("messages"), item);
}

TEST_F(SessionInTheMiddleOfAnItem, ReportsWhatIsLostBehindALogThatCannotBeRead) {
  give_up_reading_everything();
  begin_to_send();
  go_on_with_an_unreadable("messages.1");
  append("messages", "new\n");
  const auto looks = [this] { return count(errors(), log("messages.1") + ", ecode=13"); };
  const size_t before = looks();
  wait_until("another look", [&] { return looks() > before + 1; });
  lab::run("rm " + log("messages"));
  wait_until("an error", [this] { return errors().find(log("messages") + " (bytes 0 to 4)") != std::string::npos; });
}

TEST_F(SessionInTheMiddleOfAnItem, ReportsAnotherFileThatVanishesMeanwhile) {
  append("messages.2", "other\n");
  lab::run("touch -d 'next year' " + log("messages.2"));
  begin_to_send(closed("messages*", "messages"));
  lab::run("rm " + log("messages.2"));
  hurry_the_network();
  expect_archived("messages", lines);
  wait_until("an error",
             [this] { return errors().find(log("messages.2") + " (bytes 0 to 6), ecode=61") != std::string::npos; });
}

/* The compression of what is there takes many times as long. */
TEST_F(SessionInTheMiddleOfAnItem, EndsWithTheDaemonWithinFiveSecondsAlsoWhileItIsCompressed) {
  lab::run("truncate -s 20G " + log("a.1"));
  start(closed("a.*") + "compress = zstd\n");
  ASSERT_EQ(set_config(), 0);
  wait_until("a temporary file", [this] { return has_temporary_file(); });
  const int before = tavren_get_uptime();
  EXPECT_EQ(stop(), 0);
  EXPECT_LT(tavren_get_uptime(), before + 5);
  EXPECT_EQ(items("closed").size(), 0U);
  EXPECT_EQ(change_state("UPDATE intent SET first = first"), 0);
  for (const auto& entry : std::filesystem::directory_iterator(state)) EXPECT_EQ(entry.path().filename(), "tavrend.db");
}

namespace {

/* In a login that hangs. */
class LoginThatIsEnded : public Procedure {
 protected:
  static void wait_for_the_login() {
    wait_until("a login", [] { return std::filesystem::exists(lab::value("LAB") + "/accepted"); });
  }

  static void expect_status(int connection, int32_t since) {
    EXPECT_EQ(set_state(TAVREN_STATE_DISABLED), 0);
    EXPECT_EQ(sleeping(), 1);
    EXPECT_EQ(status().connection_status, connection);
    EXPECT_EQ(status().connection_time, since);
    EXPECT_EQ(errors(), "");
  }
};

}  // namespace

TEST_F(LoginThatIsEnded, IsNoFailure) {
  lab::serve_silence();
  append("messages", "one\n");
  start(following("messages"));
  EXPECT_EQ(sleeping(), 1);
  ASSERT_EQ(set_config(), 0);
  wait_for_the_login();
  EXPECT_EQ(sleeping(), 0);
  expect_status(TAVREN_CONNECTION_NONE, 0);
}

TEST_F(LoginThatIsEnded, LeavesTheOutcomeOfTheOneBeforeInTheStatus) {
  append("messages", "one\n");
  start("[messages]\nfollow = " + log("messages") + "\ninterval = 1d\n");
  ASSERT_EQ(set_config(), 0);
  ASSERT_EQ(run_task("LogTypeTask.messages"), 0);
  expect_archived("messages", "one\n");
  const int32_t since = status().connection_time;
  lab::serve_silence();
  append("messages", "two\n");
  ASSERT_EQ(run_task("LogTypeTask.messages"), 0);
  wait_for_the_login();
  expect_status(TAVREN_CONNECTION_OK, since);
}

/* Compressing it takes many times as long as noticing that it has begun. */
TEST_F(SessionInTheMiddleOfAnItem, MakesNoItemOfAFileThatChangesWhileItIsCompressed) {
  lab::run("truncate -s 300M " + log("a.1"));
  start(closed("a.*") + "compress = zstd\n");
  ASSERT_EQ(set_config(), 0);
  wait_until("a temporary file", [this] { return has_temporary_file(); });
  std::fstream(log("a.1"), std::ios::in | std::ios::out | std::ios::binary) << "other"; /* without truncating it */
  wait_until("the changed file", [] { return archived_since_the_start(1) > 0 && sleeping() == 1; });
  EXPECT_EQ(items("closed").size(), 1U);
  EXPECT_EQ(count(errors(), log("a.1") + ", ecode=116"), 1U) << errors();
}

namespace {

/* In a command on the archive host that does not come to its end. */
class StepThatIsEnded : public HeldItems {
 protected:
  static void let_hang(const char* command) {
    const std::string begun = (home() / "begun").string();
    ASSERT_EQ(set_remote_command(command, ("touch " + begun + "; sleep 1000;").c_str()), "");
  }

  static void wait_for_the_command() {
    wait_until("a command", [] { return std::filesystem::exists(home() / "begun"); });
    std::filesystem::remove(home() / "begun");
  }

  static void expect_no_failure() {
    EXPECT_EQ(set_state(TAVREN_STATE_DISABLED), 0);
    EXPECT_EQ(sleeping(), 1);
    EXPECT_EQ(status().connection_status, TAVREN_CONNECTION_OK);
    EXPECT_EQ(errors(), "");
  }

  std::string following_in_a_day() const { return in_a_day("messages", "follow = " + log("messages")); }
};

class StepForAnItem : public StepThatIsEnded, public testing::WithParamInterface<Named<const char*>> {};

constexpr Named<const char*> steps_for_an_item[] = {{"Login", "cd"},   {"Measurement", "du"},  {"Listing", "ls"},
                                                    {"Removal", "rm"}, {"Directory", "mkdir"}, {"Beginning", "scp"}};

}  // namespace

/* The second item has no room before the first one is removed. */
TEST_P(StepForAnItem, IsNoFailureWhenArchivingIsSwitchedOffNorWhenTheDaemonEnds) {
  const std::string lines = many_lines(600000);
  append("messages", lines);
  start(following_in_a_day());
  ASSERT_EQ(set_config(lab::value("LAB_PASSWORD"), -1, 1), 0);
  ASSERT_EQ(run_task("LogTypeTask.messages"), 0);
  expect_archived("messages", lines);
  let_hang(GetParam().value);
  append("messages", lines);
  ASSERT_EQ(run_task("LogTypeTask.messages"), 0);
  wait_for_the_command();
  expect_no_failure();
  EXPECT_GE(used(1), 0);
  ASSERT_EQ(set_state(TAVREN_STATE_ENABLED), 0);
  wait_for_the_command();
  EXPECT_EQ(stop(), 0);
  start_again();
  EXPECT_EQ(errors(), "");
}

INSTANTIATE_TEST_SUITE_P(, StepForAnItem, testing::ValuesIn(steps_for_an_item), by_name);

TEST_F(StepThatIsEnded, IsNoFailureInTheClaim) {
  append("messages", "one\n");
  start(following_in_a_day());
  let_hang("scp");
  ASSERT_EQ(set_config(), 0);
  ASSERT_EQ(run_task("LogTypeTask.messages"), 0);
  wait_for_the_command();
  expect_no_failure();
}

/* No section is due with it. */
TEST_F(StepThatIsEnded, IsNoFailureInAMeasurementAlone) {
  append("messages", "one\n");
  start(following_in_a_day());
  ASSERT_EQ(set_config(lab::value("LAB_PASSWORD"), -1, 1), 0);
  ASSERT_EQ(run_task("LogTypeTask.messages"), 0);
  expect_archived("messages", "one\n");
  let_hang("du");
  ASSERT_EQ(run_task("SpaceTask"), 0);
  wait_for_the_command();
  expect_no_failure();
}

TEST_F(StepThatIsEnded, IsNoFailureInTheLastAnswerToAnItem) {
  append("messages", "one\n");
  hold("messages", following_in_a_day(), 4);
  expect_no_failure();
}

/* Whether all of it has arrived is what it was about to find out. */
TEST_F(StepThatIsEnded, IsNoFailureInTheSizeOfAnItem) {
  append("messages", "one\n");
  hold("messages", following_in_a_day(), 4);
  let_hang("head");
  stop(SIGKILL);
  lab::run("rm " + log("messages"));
  run_again("messages");
  wait_for_the_command();
  expect_no_failure();
  EXPECT_EQ(archive_of("messages"), "one\n");
}
