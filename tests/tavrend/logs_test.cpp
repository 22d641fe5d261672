#include <fstream>

#include "tavrend/procedures_fixture.h"

/*
 * What logs are and what becomes of them while the daemon looks away, or is about to send them.
 */
namespace {

class DaemonsLog : public Procedure {
 protected:
  /* Runs commands in the directory of the logs while the daemon does not look. */
  void behind_its_back(const std::string& commands) {
    ASSERT_EQ(set_state(TAVREN_STATE_DISABLED), 0);
    lab::run("cd " + logs + " && " + commands);
    ASSERT_EQ(set_state(TAVREN_STATE_ENABLED), 0);
  }

  /* Lets the log, of which one line is archived, be rotated and be unreadable for a while. */
  void expect_nothing_lost_by_an_unreadable_rotated_log() {
    append("messages", "two");
    behind_its_back("mv messages messages.1 && chown 4711 messages.1 && chmod 0 messages.1 && echo three >messages");
    wait_until("an error", [] { return count(errors(), "messages.1, ecode=13") > 0; });
    wait_until("both of them to be counted", [] { return waiting(1) == 2; });
    lab::run("chmod 644 " + log("messages.1"));
    expect_archived("messages", "one\ntwothree\n");
    EXPECT_EQ(count(errors(), "ecode=61"), 0U) << errors();
  }

  /* Two kilobytes that logs of one service may begin with. */
  const std::string header = many_lines(2000);
};

}  // namespace

TEST_F(DaemonsLog, OfSeveralThatAreAlikeButForTheirEndMissesNone) {
  for (const char* name : {"a.1", "a.2", "a.3"}) {
    append(name, header + name + "\n");
    lab::run("touch -d 2026-01-01 " + log(name));
  }
  start(closed("a.*"));
  ASSERT_EQ(set_config(), 0);
  expect_archived("closed", header + "a.1\n" + header + "a.2\n" + header + "a.3\n");
  append("a.4", header + "a.4\n");
  lab::run("touch -d 2026-01-01 " + log("a.4"));
  expect_archived("closed", header + "a.1\n" + header + "a.2\n" + header + "a.3\n" + header + "a.4\n");
}

TEST_F(DaemonsLog, RotatedSeveralTimesWhileTheDaemonWasDownIsFoundBeside) {
  append("messages.1", "long ago\n");
  lab::run("touch -d 2026-01-01 " + log("messages.1"));
  archive_a_first_line();
  stop();
  append("messages", "two\n");
  lab::run("cd " + logs + " && mv messages.1 messages.3 && mv messages messages.2");
  append("messages.1", "three\n");
  append("messages", "four\n");
  start_again();
  expect_archived("messages", "one\ntwo\nthree\nfour\n");
  for (const std::string& name : items("messages")) EXPECT_EQ(name.substr(23), ".messages");
  EXPECT_EQ(errors(), "");
}

TEST_F(DaemonsLog, CopiedAndTruncatedWhileTheDaemonWasDownIsFoundBeside) {
  archive_a_first_line();
  stop();
  append("messages", "two\n");
  lab::run("cd " + logs + " && cp messages messages.1 && printf 'three\\nand more\\n' >messages");
  start_again();
  expect_archived("messages", "one\ntwo\nthree\nand more\n");
  EXPECT_EQ(errors(), "");
}

TEST_F(DaemonsLog, ThatComesAndIsRotatedBetweenTwoLooksIsSentWhole) {
  append("messages.1", "long ago\n");
  append("other", "1\n");
  start(following("messages") + following("other"));
  ASSERT_EQ(set_config(), 0);
  expect_archived("other", "1\n");
  append("other", "2\n");
  expect_archived("other", "1\n2\n"); /* in the same run as a look at a log that is not there */
  behind_its_back("mv messages.1 messages.3 && echo one >messages.2 && echo two >messages.1 && echo three >messages");
  expect_archived("messages", "one\ntwo\nthree\n");
  EXPECT_EQ(errors(), "");
}

/* A service learns of a rotation some time after it. */
TEST_F(DaemonsLog, ThatIsWrittenUnderItsNewNameForAWhileIsSentWhole) {
  archive_a_first_line();
  lab::run("mv " + log("messages") + " " + log("messages.1"));
  append("messages.1", "two\n");
  expect_archived("messages", "one\ntwo\n");
  append("messages", "");
  append("messages.1", "three\n");
  expect_archived("messages", "one\ntwo\nthree\n");
  append("messages.1", "last words");
  append("messages", "four\n");
  expect_archived("messages", "one\ntwo\nthree\nlast wordsfour\n");
  EXPECT_EQ(errors(), "");
}

/* One process of a service may have the old log for a while longer than another. */
TEST_F(DaemonsLog, ThatIsWrittenUnderItsNewNameBesideTheNewOneIsSentWhole) {
  archive_a_first_line();
  lab::run("mv " + log("messages") + " " + log("messages.1"));
  append("messages", "two\n");
  expect_archived("messages", "one\ntwo\n");
  append("messages.1", "three\n");
  expect_archived("messages", "one\ntwo\nthree\n");
  append("messages", "four\n");
  expect_archived("messages", "one\ntwo\nthree\nfour\n");
  stop(SIGKILL);
  lab::run("cd " + logs + " && mv messages.1 messages.2 && mv messages messages.1");
  append("messages.2", "five\n");
  append("messages", "six\n");
  start_again();
  expect_archived("messages", "one\ntwo\nthree\nfour\nfive\nsix\n");
  EXPECT_EQ(errors(), "");
}

/*
 * Inodes are used again: the first log, which was archived when there were some bytes in it by which it is known, gives
 * its own to the third one. No file system has to do so.
 */
TEST_F(DaemonsLog, ThatBeginsLikeAnEarlierOneOnItsInodeIsSentOnce) {
  const std::string beginning = "a log of this service\n";
  append("messages", beginning);
  start(following("messages"));
  ASSERT_EQ(set_config(), 0);
  expect_archived("messages", beginning);
  behind_its_back("mv messages messages.1 && echo one >messages");
  std::string written = beginning + "one\n";
  expect_archived("messages", written);
  behind_its_back("mv messages messages.2 && mv messages.1 messages");
  written += beginning;
  expect_archived("messages", written);
  append("messages", "two\n");
  written += "two\n";
  expect_archived("messages", written);
  append("messages", "three");
  behind_its_back("mv messages messages.1 && echo four >messages");
  written += "threefour\n";
  expect_archived("messages", written);
  append("messages", "five\n");
  expect_archived("messages", written + "five\n");
  EXPECT_EQ(errors(), "");
}

TEST_F(DaemonsLog, OnlyCompressedBesideIsReportedOnceAlsoWithoutANewOne) {
  append("messages", "one\n");
  append("clock", "");
  start(following("messages") + following("clock"));
  ASSERT_EQ(set_config(), 0);
  expect_archived("messages", "one\n");
  behind_its_back("mv messages messages.2 && echo two >messages.1 && gzip messages.1");
  /* Each run archives what the second log has. */
  for (const char* line : {"1\n", "2\n", "3\n"}) {
    const std::string before = archive_of("clock");
    append("clock", line);
    expect_archived("clock", before + line);
  }
  EXPECT_EQ(count(errors(), "messages.1.gz (bytes 0 to "), 1U) << errors();
}

/* Its compressed form is written beside it for a while. */
TEST_F(DaemonsLog, ThatIsBeingCompressedIsNotLost) {
  append("messages", "one\n");
  lab::run("touch -d 2026-01-01 " + log("messages"));
  start(following("messages"));
  ASSERT_EQ(set_config(), 0);
  expect_archived("messages", "one\n");
  behind_its_back("mv messages messages.1 && gzip -c messages.1 >messages.1.gz && echo two >messages");
  expect_archived("messages", "one\ntwo\n");
  behind_its_back(
      "touch -r messages.1 messages.1.gz && rm messages.1 && mv messages messages.0 && echo three >messages");
  expect_archived("messages", "one\ntwo\nthree\n");
  EXPECT_EQ(errors(), "");
}

TEST_F(DaemonsLog, ThatCannotBeReadIsReportedAndArchivedOnceItCan) {
  give_up_reading_everything();
  append("messages", "one\n");
  lab::run("chown 4711 " + log("messages") + " && chmod 0 " + log("messages"));
  start(following("messages"));
  ASSERT_EQ(set_config(), 0);
  wait_until("an error",
             [this] { return count(errors(), "Failed to open file " + log("messages") + ", ecode=13") > 0; });
  EXPECT_EQ(waiting(1), 1);
  lab::run("chmod 644 " + log("messages"));
  expect_archived("messages", "one\n");
}

/* Nor is it sent from its beginning once it can be read again. */
TEST_F(DaemonsLog, RotatedAndUnreadableForAWhileIsNotLost) {
  give_up_reading_everything();
  archive_a_first_line();
  expect_nothing_lost_by_an_unreadable_rotated_log();
}

TEST_F(DaemonsLog, OfAnotherRootThatIsRotatedAndUnreadableForAWhileIsNotLost) {
  give_up_reading_everything();
  append("messages", "one\n");
  start("[messages]\nfollow = /messages\ninterval = 1\n");
  set_tunable("log_dir_prefix", logs.c_str());
  ASSERT_EQ(set_config(), 0);
  expect_archived("messages", "one\n");
  expect_nothing_lost_by_an_unreadable_rotated_log();
}

TEST_F(DaemonsLog, IsNoLinkDirectoryPipeOrDevice) {
  write_file(log("secret"), "secret\n");
  lab::run("cd " + logs + " && ln -s secret a.1 && mkdir a.2 && mkfifo a.3 && ln -s secret messages");
  lab::change_machine("mknod " + log("a.4") + " c 1 5");
  append("a.5", "one\n");
  start(closed("a.*") + following("messages"));
  ASSERT_EQ(set_config(), 0);
  expect_archived("closed", "one\n");
  append("a.6", "two\n");
  expect_archived("closed", "one\ntwo\n");
  EXPECT_EQ(items("messages").size(), 0U);
  EXPECT_EQ(errors(), "");
}

TEST_F(DaemonsLog, IsArchivedOnceItTakesThePlaceOfSomethingElse) {
  lab::run("mkfifo " + log("messages"));
  append("other", "one\n");
  start(following("messages") + following("other"));
  ASSERT_EQ(set_config(), 0);
  expect_archived("other", "one\n");
  lab::run("rm " + log("messages"));
  append("messages", "two\n");
  expect_archived("messages", "two\n");
  /* And what takes its place is none: the log is gone, with nothing of it beside. */
  behind_its_back("rm messages && ln -s other messages");
  wait_until("an error", [] { return count(errors(), "messages (bytes 4 to 4), ecode=61") == 1; });
  append("other", "three\n");
  expect_archived("other", "one\nthree\n");
  EXPECT_EQ(archive_of("messages"), "two\n");
}

TEST_F(DaemonsLog, ThatCannotBeReadIsReportedAndTheOthersGoOn) {
  append("a.1", "unreadable\n");
  /* A file of the kernel's that root may open, and nobody read. */
  lab::change_machine("mount --bind /sys/class/net/lo/speed " + log("a.1"));
  append("a.2", "one\n");
  start(closed("a.*"));
  ASSERT_EQ(set_config(), 0);
  expect_archived("closed", "one\n");
  EXPECT_NE(errors().find("Failed to read from file " + log("a.1") + ", ecode=22"), std::string::npos) << errors();
}

namespace {

/* In the middle of being sent. */
class LogThatIsSent : public DaemonsLog {
 protected:
  void begin_to_send(const std::string& section, const std::string& configuration) {
    slow_the_network();
    start(configuration);
    ASSERT_EQ(set_config(), 0);
    wait_until_half_is_sent(section);
  }

  /* Puts other bytes, with these behind them, over a closed log that begins like them. */
  void overwrite_a_closed_one(const std::string& end) {
    const std::string first = large.substr(0, large.size() / 2);
    append("a.1", first);
    begin_to_send("closed", closed("a.*"));
    std::string other = first;
    std::reverse(other.begin() + static_cast<std::ptrdiff_t>(header.size()), other.end());
    other += end;
    std::fstream(log("a.1"), std::ios::in | std::ios::out | std::ios::binary) << other; /* without truncating it */
    lab::change_machine("tc qdisc change dev lo root tbf rate 8gbit burst 16m latency 50ms");
    /* It may have arrived whole just before. */
    wait_until("the other log", [&] {
      return sleeping() == 1 && (archive_of("closed") == other || archive_of("closed") == first + other);
    });
  }

  const std::string large = many_lines(20000000);
};

}  // namespace

TEST_F(LogThatIsSent, AndGrowsIsArchivedWhole) {
  append("messages", large);
  begin_to_send("messages", following("messages"));
  append("messages", "more\n");
  expect_archived("messages", large + "more\n");
  EXPECT_EQ(errors(), "");
}

TEST_F(LogThatIsSent, AndIsRenamedIsArchivedOnce) {
  append("messages", large);
  begin_to_send("messages", following("messages"));
  lab::run("mv " + log("messages") + " " + log("messages.1"));
  append("messages", "new\n");
  expect_archived("messages", large + "new\n");
  EXPECT_EQ(errors(), "");
}

TEST_F(LogThatIsSent, AndIsCopiedAndTruncatedIsArchivedOnce) {
  append("messages", large);
  begin_to_send("messages", following("messages"));
  lab::run("cd " + logs + " && cp messages messages.1 && echo new >messages");
  expect_archived("messages", large + "new\n");
  EXPECT_EQ(errors(), "");
}

TEST_F(LogThatIsSent, AndIsTruncatedIsReportedWithItsBytes) {
  append("messages", large);
  begin_to_send("messages", following("messages"));
  lab::run("echo new >" + log("messages"));
  expect_archived("messages", "new\n");
  EXPECT_EQ(count(errors(), "messages (bytes 0 to " + std::to_string(large.size()) + "), ecode=61"), 1U) << errors();
}

TEST_F(LogThatIsSent, AndIsOverwrittenInItsPlaceGivesNoMixture) {
  append("messages", large);
  begin_to_send("messages", following("messages"));
  std::string other = "other " + large;
  std::reverse(other.begin(), other.end() - 1);
  std::fstream(log("messages"), std::ios::in | std::ios::out | std::ios::binary) << other; /* without truncating it */
  /* It may have arrived whole just before. */
  const auto is_ended = [&] {
    return sleeping() == 1 && (archive_of("messages") == other || archive_of("messages") == large + other);
  };
  wait_until("the other log", is_ended);
  if (archive_of("messages") != other) return;
  EXPECT_EQ(count(errors(), "messages (bytes 0 to " + std::to_string(large.size()) + "), ecode=61"), 1U) << errors();
}

TEST_F(LogThatIsSent, AsAClosedOneAndIsTruncatedLeavesNothingHalf) {
  append("a.1", large);
  lab::run("touch -d 2026-01-01 " + log("a.1"));
  append("a.2", "small\n");
  begin_to_send("closed", closed("a.*"));
  lab::run("truncate -s 100 " + log("a.1"));
  expect_archived("closed", "small\n" + large.substr(0, 100));
  EXPECT_EQ(count(errors(), "Failed to read from file " + log("a.1") + ", ecode=116"), 1U) << errors();
}

TEST_F(LogThatIsSent, AsAClosedOneAndIsOverwrittenInItsPlaceGivesNoMixture) { overwrite_a_closed_one(""); }

TEST_F(LogThatIsSent, AsAClosedOneAndIsOverwrittenByALongerOneGivesNoMixture) { overwrite_a_closed_one("longer\n"); }

TEST_F(LogThatIsSent, AsAClosedOneAndIsRemovedArrivesWhole) {
  append("a.1", large);
  begin_to_send("closed", closed("a.*"));
  lab::run("rm " + log("a.1"));
  expect_archived("closed", large);
  EXPECT_EQ(errors(), "");
}

TEST_F(LogThatIsSent, AsAClosedOneAndVanishesWhileTheDaemonIsDownIsReported) {
  append("a.1", large);
  begin_to_send("closed", closed("a.*"));
  stop(SIGKILL);
  lab::run("rm " + log("a.1"));
  append("a.2", "small\n");
  start_again();
  expect_archived("closed", "small\n");
  const std::string lost = " (bytes 0 to " + std::to_string(large.size()) + "), ecode=61";
  EXPECT_EQ(count(errors(), "Failed to read from file " + log("a.1") + lost), 1U) << errors();
}

/* In each of these two the week in which it was missing has ended. */
TEST_F(DaemonsLog, AsAClosedOneAndUnreadableForLongIsNotSentAgain) {
  give_up_reading_everything();
  for (const char* name : {"away", "there"}) std::filesystem::create_directory(log(name));
  append("away/a.1", "one\n");
  start(closed("*/a.*"));
  ASSERT_EQ(set_config(), 0);
  expect_archived("closed", "one\n");
  stop();
  EXPECT_EQ(change_state("UPDATE archived SET missing_since_ms = 1"), 1);
  lab::run("cd " + logs + " && chown 4711 away && chmod 0 away");
  append("there/a.2", "two\n");
  start_again();
  expect_archived("closed", "one\ntwo\n");
  lab::run("chmod 755 " + log("away"));
  append("there/a.3", "three\n");
  expect_archived("closed", "one\ntwo\nthree\n");
}

TEST_F(DaemonsLog, RotatedAndUnreadableForLongIsNotSentAgain) {
  give_up_reading_everything();
  archive_a_first_line();
  behind_its_back("mv messages messages.1 && echo two >messages");
  expect_archived("messages", "one\ntwo\n");
  stop();
  EXPECT_EQ(change_state("UPDATE archived SET missing_since_ms = 1"), 1);
  lab::run("cd " + logs + " && chown 4711 messages.1 && chmod 0 messages.1");
  append("messages", "three\n");
  start_again();
  expect_archived("messages", "one\ntwo\nthree\n");
  lab::run("chmod 644 " + log("messages.1"));
  behind_its_back("mv messages messages.2 && echo four >messages");
  expect_archived("messages", "one\ntwo\nthree\nfour\n");
}
