#include <stddef.h>

#include <map>
#include <string>

#include "tavrend/procedures_fixture.h"

/*
 * The archive host is away while logs come and go: what a look has found, and is gone before it could be archived, is
 * reported with its bytes, once, and nothing else is.
 */
namespace {

class LogInALongOutage : public Procedure {
 protected:
  void begin(const std::string& configuration) {
    start(configuration);
    ASSERT_EQ(set_tunable("failure_retry_interval", "1"), "");
    ASSERT_EQ(set_config(), 0);
  }

  static void end_the_outage() { lab::run("\"$LAB_RESTART_SSHD\""); }

  /* Waits until so many items are known to wait. The sections of these tests are in the second compartment. */
  static void wait_for_waiting(int items) {
    wait_until("a look", [items] { return waiting(1) == items; });
  }

  void in_the_logs(const std::string& commands) const { lab::run("cd " + logs + " && " + commands); }

  std::string lost(const std::string& name, size_t first, size_t end) const {
    return "Failed to read from file " + log(name) + " (bytes " + std::to_string(first) + " to " + std::to_string(end) +
           "), ecode=61";
  }

  static size_t losses() { return count(errors(), "ecode=61"); }

  /* Archives what ends the outage, and looks some times more. */
  void expect_then_archived(const std::map<std::string, std::string>& written) {
    end_the_outage();
    for (int i = 0; i < 2; ++i) {
      for (const auto& [section, content] : written) {
        expect_archived(section, content);
        ASSERT_EQ(run_task("LogTypeTask." + section), 0);
      }
    }
    for (const auto& [section, content] : written) expect_archived(section, content);
  }

  /* Waits until somebody has looked at what is there now: the session that fails next may have looked before. */
  static void wait_for_another_look() {
    const auto failures = [] { return count(errors(), "Failed to start secure shell session"); };
    const size_t before = failures();
    wait_until("another look", [&] { return failures() > before + 1; });
    wait_until("the end of that", [] { return sleeping() == 1; });
  }

  /* A log of which the first line is archived, and then the host is away. */
  void begin_behind_a_first_line() {
    append("messages", "one\n");
    begin(following("messages"));
    expect_archived("messages", "one\n");
    lab::stop_sshd();
  }
};

/* A file system of its own among the logs. */
class LogOnADisk : public LogInALongOutage {
 protected:
  void SetUp() override {
    std::filesystem::create_directory(log("disk"));
    lab::change_machine("mount -t tmpfs -o size=1m tmpfs " + log("disk"));
  }
  void TearDown() override {
    if (daemon == -1) return;
    stop();
    lab::change_machine("umount " + log("disk"));
  }

  void take_it_away() const {
    lab::change_machine("mkdir $LAB/elsewhere && mount --move " + log("disk") + " $LAB/elsewhere");
  }
  void bring_it_back() const { lab::change_machine("mount --move $LAB/elsewhere " + log("disk")); }
};

}  // namespace

/* Where its file system is not missing, that nothing is left of a section is no reason for silence. */
TEST_F(LogInALongOutage, OfClosedFilesIsReportedOnceForEachThatIsRemovedAndForNoOther) {
  give_up_reading_everything();
  lab::stop_sshd();
  for (const char* name : {"removed.1", "only.1", "renamed.1", "unreadable.1"}) append(name, "first\n");
  append("removed.2", "second one\n");
  begin(closed("removed.*", "removed") + closed("only.*", "only") + closed("renamed.*", "renamed") +
        closed("unreadable.*", "unreadable"));
  wait_for_waiting(5);
  in_the_logs("rm removed.2 only.1; mv renamed.1 renamed.2; chown 4711 unreadable.1; chmod 0 unreadable.1");
  append("renamed.1", "second\n");
  append("unreadable.2", "second\n");
  wait_until("two errors", [this] {
    return count(errors(), lost("removed.2", 0, 11)) == 1 && count(errors(), lost("only.1", 0, 6)) == 1;
  });
  wait_for_waiting(5); /* that cannot be read is one of them */
  in_the_logs("chmod 644 unreadable.1");
  expect_then_archived({{"removed", "first\n"}, {"renamed", "first\nsecond\n"}, {"unreadable", "first\nsecond\n"}});
  EXPECT_EQ(items("only").size(), 0U);
  EXPECT_EQ(losses(), 2U) << errors();
}

TEST_F(LogInALongOutage, AsAClosedFileThatIsOnlyThereCompressedIsReportedAlsoWhenTheDaemonWasKilledMeanwhile) {
  lab::stop_sshd();
  append("a.1", "first\n");
  begin(closed("a.?"));
  wait_for_waiting(1);
  stop(SIGKILL);
  in_the_logs("gzip a.1");
  append("a.2", "second\n");
  start_again();
  wait_until("an error", [this] { return count(errors(), lost("a.1", 0, 6)) == 1; });
  expect_then_archived({{"closed", "second\n"}});
  EXPECT_EQ(losses(), 1U) << errors();
}

TEST_F(LogInALongOutage, AsAClosedFileThatIsRemovedBeforeItsSectionsFirstRunIsReported) {
  append("a.1", "first\n");
  begin("[closed]\nfiles = " + log("a.*") + "\ninterval = 365d\n");
  wait_for_waiting(1);
  in_the_logs("rm a.1");
  ASSERT_EQ(run_task("LogTypeTask.closed"), 0);
  wait_until("an error", [this] { return count(errors(), lost("a.1", 0, 6)) == 1; });
}

/* There may be thousands, each of which waits for the disk. */
TEST_F(LogInALongOutage, IsReportedAtTheNextStartWhereTheDaemonEndsMeanwhile) {
  lab::stop_sshd();
  constexpr int count = 5000;
  in_the_logs("for i in $(seq " + std::to_string(count) + "); do echo first >a.$i; done");
  append("b", "other\n");
  begin("[closed]\nfiles = " + log("*") + "\ninterval = 1\n");
  wait_for_waiting(count + 1);
  stop(SIGKILL);
  in_the_logs("find . -name 'a.*' -delete");
  start_again();
  wait_until("an error", [] { return losses() > 0; });
  EXPECT_EQ(stop(), 0);
  EXPECT_GT(change_state("UPDATE seen SET size = size"), 1);
}

/* Others of the section are there. */
TEST_F(LogOnADisk, ThatIsMissingForAWhileIsNotLost) {
  lab::stop_sshd();
  std::filesystem::create_directory(log("other"));
  append("disk/a.1", "first\n");
  append("other/a.2", "second\n");
  begin(closed("*/a.*"));
  wait_for_waiting(2);
  take_it_away();
  wait_for_waiting(1);
  bring_it_back();
  expect_then_archived({{"closed", "first\nsecond\n"}});
  EXPECT_EQ(losses(), 0U) << errors();
}

TEST_F(LogOnADisk, ThatIsMissingForAWhileGoesOnWhereItWas) {
  append("disk/messages", "one\n");
  append("clock", "1\n");
  begin("[messages]\nfollow = " + log("disk/messages") + "\ninterval = 1d\n[clock]\nfollow = " + log("clock") +
        "\ninterval = 1d\n");
  const auto expect_run = [](const std::string& clock) {
    for (const char* task : {"LogTypeTask.messages", "LogTypeTask.clock"}) ASSERT_EQ(run_task(task), 0);
    expect_archived("clock", clock); /* behind the other one */
  };
  expect_run("1\n");
  take_it_away();
  append("clock", "2\n");
  expect_run("1\n2\n");
  bring_it_back();
  append("disk/messages", "two\n");
  append("clock", "3\n");
  expect_run("1\n2\n3\n");
  EXPECT_EQ(archive_of("messages"), "one\ntwo\n");
  EXPECT_EQ(errors(), "");
}

TEST_F(LogInALongOutage, AsAClosedFileThatAnotherPatternLeavesOutIsNotLost) {
  lab::stop_sshd();
  append("a.1", "first\n");
  append("b.1", "second\n");
  begin(closed("a.*"));
  wait_for_waiting(1);
  write_file(config_file, closed("b.*"));
  kill(daemon, SIGHUP);
  expect_then_archived({{"closed", "second\n"}});
  EXPECT_EQ(losses(), 0U) << errors();
}

/* Of three logs, each of which is rotated twice. */
TEST_F(LogInALongOutage, ThatComesAndGoesBesideTheOneBeforeIsReportedOnceAndACopyIsNotLost) {
  for (const char* name : {"gone", "packed", "copied"}) append(name, "one\n");
  begin(following("gone") + following("packed") + following("copied"));
  for (const char* name : {"gone", "packed", "copied"}) expect_archived(name, "one\n");
  lab::stop_sshd();
  in_the_logs("for i in gone packed copied; do mv $i $i.3 && echo second >$i; done");
  wait_for_waiting(3);
  in_the_logs(
      "mv gone gone.2 && echo third >gone; mv packed packed.2 && echo third >packed && gzip packed.2;"
      "cp copied copied.1 && echo third one >copied");
  wait_for_waiting(5);
  in_the_logs("rm gone.2");
  wait_until("two errors",
             [this] { return count(errors(), lost("gone", 0, 7)) == 1 && count(errors(), lost("packed", 0, 7)) == 1; });
  expect_then_archived({{"gone", "one\nthird\n"}, {"packed", "one\nthird\n"}, {"copied", "one\nsecond\nthird one\n"}});
  EXPECT_EQ(losses(), 2U) << errors();
}

/* What an outage has let through of it is a beginning that it shares with the next one. */
TEST_F(LogInALongOutage, ThatIsRemovedIsNotTakenForAnotherThatBeginsAlike) {
  const std::string beginning(150, '-');
  const std::string other = beginning + "\n" + many_lines(3000);
  append("messages", beginning + "\n");
  begin(following("messages"));
  expect_archived("messages", beginning + "\n");
  lab::stop_sshd();
  append("messages", std::string(1999, 'x') + "\n");
  wait_for_waiting(1);
  in_the_logs("mv messages messages.1");
  append("messages", other);
  wait_for_waiting(2);
  in_the_logs("mv messages messages.2 && rm messages.1 && echo " + beginning + " >messages");
  expect_then_archived({{"messages", beginning + "\n" + other + beginning + "\n"}});
  EXPECT_EQ(count(errors(), lost("messages", 151, 2151)), 1U) << errors();
  EXPECT_EQ(losses(), 1U) << errors();
}

/* The second log begins like the first one, whose inode it has by then, and is rotated before it is archived. */
TEST_F(LogInALongOutage, OnTheInodeOfAnEarlierOneThatBeginsAlikeIsSentFromItsBeginning) {
  begin_behind_a_first_line();
  in_the_logs("mv messages messages.1 && echo two >messages");
  expect_then_archived({{"messages", "one\ntwo\n"}});
  lab::stop_sshd();
  in_the_logs("mv messages messages.2 && mv messages.1 messages && echo three >>messages");
  wait_for_waiting(1);
  in_the_logs("mv messages messages.1 && echo four >messages");
  wait_for_waiting(2);
  expect_then_archived({{"messages", "one\ntwo\none\nthree\nfour\n"}});
  EXPECT_EQ(losses(), 0U) << errors();
}

/* A process of the service wrote there a while longer. */
TEST_F(LogInALongOutage, ThatGrowsBehindItsEndAndIsRemovedIsReportedWithThoseBytes) {
  append("messages", "one\n");
  begin(following("messages"));
  expect_archived("messages", "one\n");
  in_the_logs("mv messages messages.1 && echo second >messages");
  expect_archived("messages", "one\nsecond\n");
  lab::stop_sshd();
  append("messages.1", "late\n");
  wait_for_waiting(1);
  in_the_logs("rm messages.1");
  wait_until("an error", [this] { return count(errors(), lost("messages.1", 4, 9)) == 1; });
}

/* The log has got its inode by then, and begins like it. */
TEST_F(LogInALongOutage, ThatGrowsBehindItsEndAndGivesUpItsInodeIsReportedWithThoseBytesAlone) {
  begin_behind_a_first_line();
  in_the_logs("mv messages messages.1 && echo second >messages");
  expect_then_archived({{"messages", "one\nsecond\n"}});
  lab::stop_sshd();
  append("messages.1", "late\n");
  wait_for_waiting(1);
  in_the_logs("printf 'one\\nthird\\n' >messages.1 && mv messages messages.2 && mv messages.1 messages");
  expect_then_archived({{"messages", "one\nsecond\none\nthird\n"}});
  EXPECT_EQ(count(errors(), lost("messages.1", 4, 9)), 1U) << errors();
  EXPECT_EQ(losses(), 1U) << errors();
}

TEST_F(LogInALongOutage, IsReportedWithTheBytesThatTheLastLookHasSeen) {
  begin_behind_a_first_line();
  append("messages", "two\n");
  wait_for_waiting(1);
  append("messages", "three\n");
  wait_for_another_look();
  in_the_logs("rm messages");
  append("messages", "four\n");
  expect_then_archived({{"messages", "one\nfour\n"}});
  EXPECT_EQ(count(errors(), lost("messages", 4, 14)), 1U) << errors();
  EXPECT_EQ(losses(), 1U) << errors();
}

/* The compressed form has the time of the last line, by which it is known. */
TEST_F(LogInALongOutage, AsALogThatHasGrownAndIsOnlyThereCompressedIsReportedOnce) {
  append("messages", "one\n");
  in_the_logs("touch -d 2026-01-01 messages");
  begin(following("messages"));
  expect_archived("messages", "one\n");
  lab::stop_sshd();
  in_the_logs("echo two >>messages && touch -d 2026-01-02 messages");
  wait_for_another_look();
  in_the_logs("mv messages messages.1 && echo three >messages && gzip messages.1");
  expect_then_archived({{"messages", "one\nthree\n"}});
  EXPECT_EQ(count(errors(), lost("messages", 4, 8)), 1U) << errors();
  EXPECT_EQ(losses(), 1U) << errors();
}

TEST_F(LogInALongOutage, AsALogOfWhichNothingIsArchivedAndThatIsOnlyThereCompressedIsReportedOnce) {
  lab::stop_sshd();
  append("messages", "one\ntwo\n");
  begin(following("messages"));
  wait_for_another_look();
  in_the_logs("mv messages messages.1 && echo three >messages && gzip messages.1");
  expect_then_archived({{"messages", "three\n"}});
  EXPECT_EQ(count(errors(), lost("messages", 0, 8)), 1U) << errors();
  EXPECT_EQ(losses(), 1U) << errors();
}

TEST_F(LogInALongOutage, IsInTheNumberOfItemsOfEachSectionThatIsWaiting) {
  lab::stop_sshd();
  append("a.1", "first\n");
  append("b.1", "second\n");
  append("messages", "third\n");
  start("[a]\nfiles = " + log("a.*") + "\n[b]\nfiles = " + log("b.*") + "\n[messages]\nfollow = " + log("messages") +
        "\n");
  for (const char* task : {"LogTypeTask.a", "LogTypeTask.b", "LogTypeTask.messages"}) ASSERT_EQ(run_task(task), 0);
  ASSERT_EQ(set_config(), 0);
  wait_for_waiting(3);
  append("b.2", "fourth\n");
  ASSERT_EQ(run_task("LogTypeTask.b"), 0);
  wait_for_waiting(4);
}

/* What stands at those paths without the prefix is on another device. */
TEST_F(LogInALongOutage, OfAnotherRootIsReportedWhenItIsRemoved) {
  lab::stop_sshd();
  std::filesystem::create_directory(log("proc"));
  append("proc/a.1", "first\n");
  append("proc/messages", "one\n");
  start("[closed]\nfiles = /proc/a.*\ninterval = 1\n[messages]\nfollow = /proc/messages\ninterval = 1\n");
  ASSERT_EQ(set_tunable("log_dir_prefix", logs.c_str()), "");
  ASSERT_EQ(set_tunable("failure_retry_interval", "1"), "");
  ASSERT_EQ(set_config(), 0);
  wait_for_waiting(2);
  in_the_logs("rm proc/*");
  wait_until("an error", [] { return count(errors(), " /proc/a.1 (bytes 0 to 6), ecode=61") == 1; });
  end_the_outage();
  wait_until("another", [] { return count(errors(), " /proc/messages (bytes 0 to 4), ecode=61") == 1; });
}
