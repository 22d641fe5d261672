#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tavrend/procedures_fixture.h"

namespace {

/* What happens to a log while the daemon does not look, each log with its own section and all of them at once. */
struct Change {
  const char* log;      /* $L in the commands */
  const char* before;   /* commands, before the daemon starts; "" for none */
  const char* first;    /* bytes, which it has then */
  const char* commands; /* behind the daemon's back */
  std::string archived; /* in the end */
  std::vector<std::string> lost;
};

/* More bytes than those by which files are told from one another. */
const std::string header(2000, '0');

/* A copy's time is another than the log's. */
const Change changes[] = {
    /* Written anew in its place, which looks like a new log on a reused inode; no file system has to reuse one. */
    {"reused", "", "one\n", "printf 'two\nthree\n' >$L", "one\ntwo\nthree\n", {" (bytes 4 to 4)"}},
    {"emptied", "", "one\ntwo", ": >$L", "one\n", {" (bytes 4 to 7)"}},
    {"removed", "", "one\n", "echo two >>$L; rm $L; echo three >$L", "one\nthree\n", {" (bytes 4 to 4)"}},
    {"unread", "", "one\ntwo", "mv $L $L.1; gzip $L.1; echo three >$L", "one\nthree\n", {" (bytes 4 to 7)"}},
    {"between",
     "",
     "one\n",
     "mv $L $L.2; echo two >$L.1; gzip $L.1; echo three >$L",
     "one\nthree\n",
     {".1.gz (bytes 0 to "}},
    {"older",
     "echo older >$L.1; touch -d 'next year' $L.1",
     "one\n",
     "mv $L.1 $L.3; mv $L $L.2; echo two >>$L.2; echo three >$L.1; touch -d 'last year' $L.1; echo four >$L",
     "one\ntwo\nthree\nfour\n",
     {}},
    {"alike",
     "printf '%02000d\\n' 0 >$L",
     "",
     "cp $L $L.head; echo one >>$L; mv $L $L.1; mv $L.head $L; echo two >>$L",
     header + "\none\n" + header + "\ntwo\n",
     {}},
    {"all_gzip", "", "one\n", "cp $L $L.1; touch -d 'next year' $L.1; gzip $L.1; echo three >$L", "one\nthree\n", {}},
    {"all_zstd",
     "",
     "one\n",
     "cp $L $L.1; touch -d 'next year' $L.1; zstd -q --rm $L.1; echo three >$L",
     "one\nthree\n",
     {}},
    /* Some programs do not say how much there was. */
    {"all_xz", "", "one\n", "mv $L $L.1; xz $L.1; echo three >$L", "one\nthree\n", {}},
    {"part_gzip",
     "",
     "one\n",
     "echo two >>$L; cp $L $L.1; touch -d 'next year' $L.1; gzip $L.1; echo three >$L",
     "one\nthree\n",
     {" (bytes 4 to 8)"}},
    {"part_zstd",
     "",
     "one\n",
     "echo two >>$L; cp $L $L.1; touch -d 'next year' $L.1; zstd -q --rm $L.1; echo three >$L",
     "one\nthree\n",
     {" (bytes 4 to 8)"}},
    /* Of those the second one was never read. */
    {"two_gzip",
     "",
     "one\n",
     "mv $L $L.2; gzip $L.2; echo two >$L.1; touch -d 'next year' $L.1; gzip $L.1; echo three >$L",
     "one\nthree\n",
     {".1.gz (bytes 0 to "}},
    {"two_zstd",
     "",
     "one\n",
     "mv $L $L.2; zstd -q --rm $L.2; echo two >$L.1; touch -d 'next year' $L.1; zstd -q --rm $L.1; echo three >$L",
     "one\nthree\n",
     {".1.zst (bytes 0 to "}},
};

class RotatedLogs : public Procedure {
 protected:
  void in_the_logs(const Change& change, const std::string& commands) const {
    lab::run("set -e; cd " + logs + "; L=" + change.log + "; " + commands);
  }

  /* Archives what the logs have at first: whole lines. */
  void begin_with_all() {
    std::string sections;
    for (const Change& change : changes) {
      if (*change.before != '\0') in_the_logs(change, change.before);
      append(change.log, change.first);
      sections += following(change.log);
    }
    start(sections);
    ASSERT_EQ(set_config(), 0);
    for (const Change& change : changes) {
      const std::string content = read_file(log(change.log));
      expect_archived(change.log, content.substr(0, content.rfind('\n') + 1));
    }
  }
};

}  // namespace

/* A line that comes later is archived behind all of it, and no loss is reported again. */
TEST_F(RotatedLogs, AreArchivedWhereTheyCanBeReadAndReportedWithTheirBytesWhereNot) {
  begin_with_all();
  ASSERT_EQ(set_state(TAVREN_STATE_DISABLED), 0);
  for (const Change& change : changes) in_the_logs(change, change.commands);
  ASSERT_EQ(set_state(TAVREN_STATE_ENABLED), 0);
  for (const Change& change : changes) expect_archived(change.log, change.archived);
  for (const Change& change : changes) append(change.log, "last\n");
  for (const Change& change : changes) {
    SCOPED_TRACE(change.log);
    expect_archived(change.log, change.archived + "last\n");
    for (const std::string& lost : change.lost) EXPECT_EQ(count(errors(), log(change.log) + lost), 1U) << errors();
    EXPECT_EQ(count(errors(), log(change.log)), change.lost.size()) << errors();
  }
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
