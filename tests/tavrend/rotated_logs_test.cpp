#include <gtest/gtest.h>

#include <string>

#include "tavrend/procedures_fixture.h"

namespace {

class RotatedLogs : public Procedure {};

}  // namespace

TEST_F(RotatedLogs, ArePassedOverWhenTheyWereThereBeforeTheDaemon) {
  append("messages.1", "older\n");
  lab::run("touch -d 'next year' " + log("messages.1"));
  archive_a_first_line();
  ASSERT_EQ(set_state(TAVREN_STATE_DISABLED), 0);
  lab::run("cd " + logs + " && mv messages.1 messages.3 && mv messages messages.2");
  append("messages.2", "two\n");
  append("messages.1", "three\n");
  lab::run("touch -d 'last year' " + log("messages.1"));
  append("messages", "four\n");
  ASSERT_EQ(set_state(TAVREN_STATE_ENABLED), 0);
  wait_until("all", [] { return archive_of("messages") == "one\ntwo\nthree\nfour\n"; });
  EXPECT_EQ(errors(), "");
}

/* It is not due for a long time yet. */
TEST_F(RotatedLogs, BetweenTheSetUpAndTheFirstRunAreSentWhole) {
  append("messages.1", "older\n");
  append("messages", "one\n");
  start("[messages]\nfollow = " + log("messages") + "\ninterval = 365d\n");
  ASSERT_EQ(TavrendTest::set_config(), 0);
  wait_until("a first look", [] { return waiting(1) == 1; });
  lab::run("cd " + logs + " && mv messages.1 messages.2 && mv messages messages.1");
  append("messages", "two\n");
  ASSERT_EQ(run_task("LogTypeTask.messages"), 0);
  expect_archived("messages", "one\ntwo\n");
  EXPECT_EQ(errors(), "");
}

TEST_F(RotatedLogs, ThatAreThereOnlyCompressedAreLostOnce) {
  archive_a_first_line();
  ASSERT_EQ(set_state(TAVREN_STATE_DISABLED), 0);
  lab::run("cd " + logs + " && mv messages messages.2 && echo two >messages.1 && gzip messages.1");
  append("messages", "three\n");
  ASSERT_EQ(set_state(TAVREN_STATE_ENABLED), 0);
  wait_until("another line", [] { return archive_of("messages") == "one\nthree\n"; });
  const std::string lost = errors();
  EXPECT_NE(lost.find("Failed to read from file " + log("messages.1.gz") + " (bytes 0 to "), std::string::npos) << lost;
  /* The other one is compressed, too, and there is another rotation. */
  lab::run("cd " + logs + " && mv messages.2 messages.3 && gzip messages.3 && mv messages.1.gz messages.2.gz && " +
           "mv messages messages.1");
  append("messages", "four\n");
  wait_until("one more line", [] { return archive_of("messages") == "one\nthree\nfour\n"; });
  EXPECT_EQ(errors(), lost);
}
