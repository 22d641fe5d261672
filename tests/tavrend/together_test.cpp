#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>
#include <string>

#include "tavrend/procedures_fixture.h"

namespace {

/* Small closed files, the first of which is held on its way until the test lets it go. */
class FilesTogether : public Procedure {
 protected:
  void hold(const std::string& more_lines = "", int limit = -1, const std::string& more_text = "") {
    for (int i = 1; i <= 3; ++i) append("closed." + std::to_string(i), std::to_string(i) + "\n" + more_text);
    lab::run(
        "touch $LAB_ARCHIVE/../hold && cat >$LAB_ARCHIVE/../held-scp <<'END' && chmod 755 $LAB_ARCHIVE/../held-scp\n"
        "#!/bin/sh\n"
        "case $* in *closed/*)\n"
        "  touch ../held\n"
        "  while [ -e ../hold ]; do sleep 0.02; done ;;\n"
        "esac\n"
        "exec scp -q -t \"$@\"\n"
        "END\n"
        "chown $LAB_USER $LAB_ARCHIVE/../hold");
    start("[closed]\nfiles = " + log("closed.*") + "\ninterval = 1d\n" + more_lines);
    EXPECT_EQ(set_remote_command("scp", "../held-scp"), "");
    EXPECT_EQ(set_config(lab::value("LAB_PASSWORD"), -1, limit), 0);
    EXPECT_EQ(run_task("LogTypeTask.closed"), 0);
    wait_until("an item on its way", [] { return std::filesystem::exists(home() / "held"); });
  }

  static std::filesystem::path home() { return std::filesystem::path(lab::value("LAB_ARCHIVE")).parent_path(); }
  static void let_go() { std::filesystem::remove(home() / "hold"); }

  /* Returns how many items of a daemon that was killed are on their way. */
  int intents() const { return change_state("UPDATE intent SET first = first"); }
};

}  // namespace

TEST_F(FilesTogether, AreOnTheirWayTogether) {
  hold();
  stop(SIGKILL);
  EXPECT_EQ(intents(), 3);
}

/* One item may make another one go. */
TEST_F(FilesTogether, AreOnTheirWayOneByOneWhereSpaceIsLimited) {
  hold("", 100);
  stop(SIGKILL);
  EXPECT_EQ(intents(), 1);
}

TEST_F(FilesTogether, AreOnTheirWayOneByOneWhereTheyAreCompressed) {
  hold("compress = zstd\n");
  stop(SIGKILL);
  EXPECT_EQ(intents(), 1);
}

TEST_F(FilesTogether, AreOnTheirWayOneByOneWhereTheyAreLarge) {
  hold("", -1, std::string(100000, 'x'));
  stop(SIGKILL);
  EXPECT_EQ(intents(), 1);
}

TEST_F(FilesTogether, AreEachArchivedOnceWhenTheDaemonIsKilledMeanwhile) {
  hold();
  stop(SIGKILL);
  let_go();
  start_again();
  ASSERT_EQ(run_task("LogTypeTask.closed"), 0);
  expect_archived("closed", "1\n2\n3\n");
  EXPECT_EQ(items("closed").size(), 3U);
  EXPECT_EQ(errors(), "");
  stop(SIGKILL);
  EXPECT_EQ(intents(), 0); /* which would be sent once more */
}

TEST_F(FilesTogether, AreArchivedWithoutTheOneThatVanishes) {
  hold();
  std::filesystem::remove(log("closed.2"));
  let_go();
  expect_archived("closed", "1\n3\n");
  EXPECT_EQ(items("closed").size(), 2U);
  EXPECT_NE(errors().find("closed.2"), std::string::npos);
  stop(SIGKILL);
  EXPECT_EQ(intents(), 0);
}

TEST_F(FilesTogether, AreArchivedWithWhatOneHasBecome) {
  hold();
  append("closed.2", "more\n");
  let_go();
  expect_archived("closed", "1\n3\n");
  wait_until("the end", [] { return sleeping() == 1; });
  EXPECT_EQ(waiting(1), 1);
  EXPECT_EQ(errors(), "");
  ASSERT_EQ(run_task("LogTypeTask.closed"), 0);
  expect_archived("closed", "1\n3\n2\nmore\n");
}

TEST_F(FilesTogether, AreNotOnTheirWayWithoutASession) {
  hold();
  let_go();
  expect_archived("closed", "1\n2\n3\n");
  lab::set_password("another one");
  append("closed.4", "4\n");
  EXPECT_EQ(run_task("LogTypeTask.closed"), 0);
  wait_until("a failed login", [] { return errors().find("login failed") != std::string::npos; });
  stop(SIGKILL);
  EXPECT_EQ(intents(), 0);
  lab::set_password(lab::value("LAB_PASSWORD"));
}
