#include <functional>

#include "tavrend/procedures_fixture.h"

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
  EXPECT_EQ(errors().find("ecode=2"), std::string::npos) << errors();
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

TEST_F(SessionInTheMiddleOfAnItem, ReportsAnotherFileThatVanishesMeanwhile) {
  append("messages.2", "other\n");
  lab::run("touch -d 'next year' " + log("messages.2"));
  begin_to_send(closed("messages*", "messages"));
  lab::run("rm " + log("messages.2"));
  hurry_the_network();
  expect_archived("messages", lines);
  wait_until("an error", [this] { return errors().find(log("messages.2") + ", ecode=2") != std::string::npos; });
}
