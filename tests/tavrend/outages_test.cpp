#include "tavrend/daemon_fixture.h"

/*
 * The archive host or the way to it fails in the middle of something, for a while: in the end every byte is there once,
 * and the failure was stored.
 */
namespace {

class DaemonInAnOutage : public TavrendTest {
 protected:
  static std::string system_log() { return read_file(lab::value("LAB_SYSLOG")); }

  /* Has an item of many megabytes stand half in the archive, with the daemon about to send the rest. Its task is not
   * due again for a day. */
  void begin_to_send() {
    append("messages", lines);
    start("[messages]\nfollow = " + log("messages") + "\ninterval = 1d\n");
    set_tunable("ssh_command_timeout", "3");
    set_tunable("failure_retry_interval", "1");
    slow_the_network();
    ASSERT_EQ(set_config(), 0);
    ASSERT_EQ(run_task("LogTypeTask.messages"), 0);
    wait_until_half_is_sent("messages");
  }

  /* Has the first session fail, with one line of each log to be archived. */
  void fail_from_the_beginning() {
    lab::stop_sshd();
    append("messages", "one\n");
    append("copied", "one\n");
    start(following("messages") + following("copied"));
    set_tunable("failure_retry_interval", "1");
    ASSERT_EQ(set_config(), 0);
    wait_until("an error", [] { return !errors().empty(); });
  }

  const std::string lines = many_lines(20000000);
};

}  // namespace

TEST_F(DaemonInAnOutage, OfTheNetworkSendsTheItemAgainUnderItsName) {
  begin_to_send();
  const std::vector<std::string> before = items("messages");
  lab::change_machine("tc qdisc replace dev lo root bfifo limit 1"); /* which drops every packet */
  wait_until("the failure is in the system log", [] { return system_log().find("timed out") != std::string::npos; });
  lab::change_machine("tc qdisc del dev lo root");
  expect_archived("messages", lines);
  EXPECT_EQ(items("messages"), before);
  EXPECT_NE(errors().find("messages/" + before[0]), std::string::npos) << errors();
}

TEST_F(DaemonInAnOutage, OfTheServerSendsTheItemAgainUnderItsName) {
  begin_to_send();
  const std::vector<std::string> before = items("messages");
  lab::kill_sshd_and_sessions();
  wait_until("an error", [] { return !errors().empty(); });
  lab::run("rm -f $LAB/sshd.pid; \"$LAB_RESTART_SSHD\"");
  lab::change_machine("tc qdisc del dev lo root");
  expect_archived("messages", lines);
  EXPECT_EQ(items("messages"), before);
}

/* Before the first item there is nothing archived by which a rotated log would be known. */
TEST_F(DaemonInAnOutage, FromTheBeginningLosesNoRotatedLogAndNoCopiedOne) {
  fail_from_the_beginning();
  lab::run("cd " + logs + " && mv messages messages.2");
  append("messages.1", "two\n");
  append("messages", "three\n");
  lab::run("cd " + logs + " && cp copied copied.1 && : >copied");
  append("copied", "two\n");
  lab::run("\"$LAB_RESTART_SSHD\"");
  expect_archived("messages", "one\ntwo\nthree\n");
  expect_archived("copied", "one\ntwo\n");
}

namespace {

class DaemonWithAFullArchive : public DaemonInAnOutage {
 protected:
  DaemonWithAFullArchive() {
    lab::change_machine(
        "mount -t tmpfs -o size=4m,mode=777 tmpfs \"$LAB_ARCHIVE\" && "
        "head -c 3000000 /dev/zero >\"$LAB_ARCHIVE/filler\"");
  }
  static void make_room() { lab::run("rm \"$LAB_ARCHIVE/filler\""); }
};

}  // namespace

TEST_F(DaemonWithAFullArchive, KeepsNothingHalfOfALogAndSendsItLater) {
  const std::string large = many_lines(2000000);
  append("messages", large);
  start(following("messages"));
  ASSERT_EQ(set_config(), 0);
  wait_until("an error", [] { return errors().find("No space left on device") != std::string::npos; });
  wait_until("nothing of it is left", [] { return items("messages").empty(); });
  make_room();
  expect_archived("messages", large);
}

TEST_F(DaemonWithAFullArchive, ArchivesWhatHasRoomAndTheRestLater) {
  const std::string large = many_lines(2000000);
  append("a.1", large);
  lab::run("touch -d 2026-01-01 " + log("a.1"));
  append("a.2", "small\n");
  append("messages", "one\n");
  start(closed("a.*") + following("messages"));
  ASSERT_EQ(set_config(), 0);
  expect_archived("messages", "one\n");
  wait_until("two errors", [] {
    const std::string all = errors();
    return all.find("No space left") != all.rfind("No space left");
  });
  append("messages", "two\n");
  expect_archived("messages", "one\ntwo\n");
  make_room();
  expect_archived("closed", "small\n" + large);
}
