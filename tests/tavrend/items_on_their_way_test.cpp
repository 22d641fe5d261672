#include <signal.h>

#include <algorithm>
#include <filesystem>
#include <string>

#include "tavrend/held_items_fixture.h"

/*
 * The daemon ends while an item is on its way, and when it comes back something is another: the file is gone, the
 * section follows another log, or is configured no more.
 */
namespace {

class ItemThatHasArrived : public HeldItems {
 protected:
  /* Returns whether the item that there is now is the one that has arrived before. */
  void expect_it_stays(const std::string& section, const std::string& written,
                       const std::function<std::string(const std::string&)>& content = archive_of) {
    const auto before = items(section);
    run_again(section);
    wait_until("the end", [] { return archived_since_the_start(1) == 1 && sleeping() == 1; });
    EXPECT_TRUE(content(section) == written);
    EXPECT_EQ(items(section), before);
    errors_before_the_end = errors();
    stop();
    EXPECT_EQ(intents(), 0);
  }

  /* Has messages.1, behind a log that is archived and was renamed, arrive without the last answer. */
  void hold_a_rotated_log() { hold_behind_a_first_line("mv messages messages.2 && echo two >messages.1"); }

  /* Has what those words in the directory of the logs make arrive without the last answer, when one is archived. */
  void hold_behind_a_first_line(const std::string& words) {
    const std::string section = in_a_day("messages", "follow = " + log("messages"));
    append("messages", "one\n");
    start(section);
    ASSERT_EQ(set_config(), 0);
    ASSERT_EQ(run_task("LogTypeTask.messages"), 0);
    expect_archived("messages", "one\n");
    stop();
    lab::run("rm $LAB_ARCHIVE/messages/* && cd " + logs + " && " + words);
    hold("messages", section, 4);
    stop(SIGKILL);
  }

  std::string errors_before_the_end;
};

class ItemOfALargeFile : public HeldItems {};

class ItemInTheMiddle : public HeldItems {
 protected:
  /* Has the item of section stand half in the archive, and kills the daemon. */
  void begin(const std::string& section, const std::string& configuration) {
    start(configuration);
    slow_the_network();
    ASSERT_EQ(set_config(), 0);
    ASSERT_EQ(run_task("LogTypeTask." + section), 0);
    wait_until_half_is_sent(section);
    stop(SIGKILL);
    item = items(section);
    lab::change_machine("tc qdisc del dev lo root");
  }

  /* Goes on with other words in the configuration file. */
  void go_on_with(const std::string& section, const std::string& configuration) {
    write_file(config_file, configuration);
    start_again();
    ASSERT_EQ(run_task("LogTypeTask." + section), 0);
  }

  std::string following_as(const std::string& section, const std::string& name) const {
    return in_a_day(section, "follow = " + log(name));
  }

  std::vector<std::string> item;
  const std::string large = many_lines(20000000);
};

}  // namespace

TEST_F(ItemThatHasArrived, StaysWhenItsFileIsGone) {
  append("a.1", "first\n");
  hold("closed", in_a_day("closed", "files = " + log("a.*")), 6);
  stop(SIGKILL);
  lab::run("rm " + log("a.1"));
  expect_it_stays("closed", "first\n");
  EXPECT_EQ(errors_before_the_end, "");
}

TEST_F(ItemThatHasArrived, StaysAlsoWhenItIsCompressed) {
  const std::string text = many_lines(100000);
  append("a.1", text);
  const std::string section = in_a_day("closed", "files = " + log("a.*") + "\ncompress = zstd");
  hold("closed", section, 1);
  wait_until("all of it", [&] { return plain_archive_of("closed") == text; });
  stop(SIGKILL);
  lab::run("rm " + log("a.1"));
  expect_it_stays("closed", text, plain_archive_of);
  EXPECT_EQ(errors_before_the_end, "");
}

TEST_F(ItemThatHasArrived, OfALogThatIsGoneStays) {
  append("messages", "one\n");
  hold("messages", in_a_day("messages", "follow = " + log("messages")), 4);
  stop(SIGKILL);
  lab::run("rm " + log("messages"));
  expect_it_stays("messages", "one\n");
}

TEST_F(ItemThatHasArrived, OfARotatedLogThatIsGoneIsNotLost) {
  hold_a_rotated_log();
  lab::run("rm " + log("messages.1"));
  expect_it_stays("messages", "two\n");
  EXPECT_EQ(count(errors_before_the_end, "(bytes 0 to "), 0U) << errors_before_the_end;
}

TEST_F(ItemThatHasArrived, OfALogThatIsRotatedAndOnlyThereCompressedIsNotLost) {
  hold_behind_a_first_line("echo two >>messages");
  lab::run("cd " + logs + " && mv messages messages.1 && gzip messages.1");
  expect_it_stays("messages", "two\n");
  EXPECT_EQ(errors_before_the_end, "");
}

/* A look without a session has nothing to say of what that item has of it. */
TEST_F(ItemThatHasArrived, OfALogThatIsCopiedAndTruncatedAndOnlyThereCompressedIsNotLost) {
  hold_behind_a_first_line("echo two >>messages");
  lab::run("cd " + logs + " && gzip -n <messages >messages.1.gz && : >messages");
  start_again();
  wait_until("the first look", [] { return sleeping() == 1; });
  stop();
  expect_it_stays("messages", "two\n");
  EXPECT_EQ(errors_before_the_end, "");
}

/* A process that has it open still has written there, and a look has seen it. */
TEST_F(ItemThatHasArrived, OfARotatedLogThatHasGrownSinceAndIsGoneIsNotLostAndItsRestIs) {
  hold_a_rotated_log();
  append("messages.1", "more\n");
  start_again();
  wait_until("a look", [] { return waiting(1) > 0; });
  stop();
  lab::run("rm " + log("messages.1"));
  expect_it_stays("messages", "two\n");
  EXPECT_EQ(count(errors_before_the_end, "(bytes 0 to "), 0U) << errors_before_the_end;
  EXPECT_EQ(count(errors_before_the_end, "/messages (bytes 4 to 9), ecode=61"), 1U) << errors_before_the_end;
}

TEST_F(ItemThatHasArrived, OfASectionThatIsConfiguredNoMoreStays) {
  append("a.1", "first\n");
  hold("closed", in_a_day("closed", "files = " + log("a.*")), 6);
  stop(SIGKILL);
  write_file(config_file, in_a_day("other", "files = " + log("b.*")));
  const auto before = items("closed");
  run_again("other");
  wait_until("the end", [] { return archived_since_the_start(1) == 1 && sleeping() == 1; });
  EXPECT_EQ(items("closed"), before);
  EXPECT_EQ(archive_of("closed"), "first\n");
  stop();
  EXPECT_EQ(intents(), 0);
}

/* It is overwritten from its beginning, and its size says nothing then. */
TEST_F(ItemThatHasArrived, IsNotKnownByItsSizeOnceItIsSentAgain) {
  append("a.1", "first\n");
  hold("closed", in_a_day("closed", "files = " + log("a.*")), 6);
  stop(SIGKILL);
  EXPECT_EQ(intents("announced = 6"), 1);
  std::filesystem::remove(home() / "held");
  start_again();
  ASSERT_EQ(run_task("LogTypeTask.closed"), 0);
  wait_until("the item again", [] { return std::filesystem::exists(home() / "held"); });
  stop(SIGKILL);
  EXPECT_EQ(intents("announced = -1"), 1);
}

/* Its last byte is not sent before it is known that all of them are the file's. */
TEST_F(ItemThatHasArrived, IsNoneWhoseFileWasOverwrittenMeanwhile) {
  const std::string text(32769, 'x'); /* as many bytes as are read at once, and one */
  append("a.1", text);
  hold("closed", in_a_day("closed", "files = " + log("a.*")), 0, 1);
  ASSERT_EQ(set_remote_command("rm", "/no/such/program"), "");
  lab::run("touch -d 2026-01-02 " + log("a.1"));
  let_go();
  wait_until("an error", [] { return errors().find("/no/such/program") != std::string::npos; });
  ASSERT_EQ(items("closed").size(), 1U);
  EXPECT_LT(archive_of("closed").size(), text.size());
}

/* The rest is another one. Nothing of it is sent here. */
TEST_F(ItemOfALargeFile, HasAsManyBytesAsCanBeAnnounced) {
  lab::run("truncate -s 5G " + log("a.1"));
  hold("closed", in_a_day("closed", "files = " + log("a.*")), 0, 1);
  stop(SIGKILL);
  EXPECT_EQ(intents("first = 0 AND length = 4294967295 AND announced = 4294967295"), 1);
}

TEST_F(ItemInTheMiddle, OfALogGoesOnWhenAnotherIsFollowed) {
  append("a", large);
  append("b", "two\n");
  begin("messages", following_as("messages", "a"));
  go_on_with("messages", following_as("messages", "b"));
  expect_archived("messages", large + "two\n");
  EXPECT_EQ(items("messages")[0], item[0]);
  EXPECT_EQ(errors(), "");
}

TEST_F(ItemInTheMiddle, OfALogThatWasRenamedGoesOnWhenAnotherIsFollowed) {
  append("a", large);
  append("b", "two\n");
  begin("messages", following_as("messages", "a"));
  lab::run("mv " + log("a") + " " + log("a.1"));
  go_on_with("messages", following_as("messages", "b"));
  expect_archived("messages", large + "two\n");
  EXPECT_EQ(errors(), "");
}

TEST_F(ItemInTheMiddle, OfALogThatIsGoneIsReportedWithItsBytesWhenAnotherIsFollowed) {
  append("a", large);
  append("b", "two\n");
  begin("messages", following_as("messages", "a"));
  lab::run("rm " + log("a"));
  go_on_with("messages", following_as("messages", "b"));
  expect_archived("messages", "two\n");
  const std::string lost = log("a") + " (bytes 0 to " + std::to_string(large.size()) + "), ecode=61";
  EXPECT_NE(errors().find(lost), std::string::npos) << errors();
}

/* And so does the log, where it was: nothing of it comes twice. */
TEST_F(ItemInTheMiddle, OfALogGoesOnWhenAnotherWasFollowedForAWhile) {
  append("a", large);
  append("b", "two\n");
  begin("messages", following_as("messages", "a"));
  go_on_with("messages", following_as("messages", "b"));
  expect_archived("messages", large + "two\n");
  stop();
  append("a", "three\n");
  go_on_with("messages", following_as("messages", "a"));
  expect_archived("messages", large + "two\nthree\n");
  EXPECT_EQ(errors(), "");
}

TEST_F(ItemInTheMiddle, HasTheFormOfItsNameWhenAnotherLogAndFormAreConfigured) {
  append("a", large);
  append("b", "");
  begin("messages", following_as("messages", "a"));
  go_on_with("messages", following_as("messages", "b") + "compress = zstd\n");
  expect_archived("messages", large);
}

TEST_F(ItemInTheMiddle, OfALogGoesOnWhenTheSectionHasClosedFilesNow) {
  append("a", large);
  append("b.1", "two\n");
  begin("messages", following_as("messages", "a"));
  go_on_with("messages", in_a_day("messages", "files = " + log("b.*")));
  expect_archived("messages", large + "two\n");
  EXPECT_EQ(errors(), "");
}

TEST_F(ItemInTheMiddle, OfAClosedFileGoesOnWhenTheSectionFollowsALogNow) {
  append("a.1", large);
  append("b", "two\n");
  begin("messages", in_a_day("messages", "files = " + log("a.*")));
  go_on_with("messages", following_as("messages", "b"));
  expect_archived("messages", large + "two\n");
  append("b", "three\n");
  ASSERT_EQ(run_task("LogTypeTask.messages"), 0);
  expect_archived("messages", large + "two\nthree\n");
  EXPECT_EQ(errors(), "");
}

/* It is tried again by the next run. */
TEST_F(ItemInTheMiddle, OfAClosedFileThatIsRefusedThenKeepsNoOtherWaiting) {
  append("a.1", large);
  begin("closed", in_a_day("closed", "files = " + log("a.*")));
  append("a.2", "small\n");
  start_again();
  ASSERT_EQ(set_config(lab::value("LAB_PASSWORD"), -1, 1), 0);
  ASSERT_EQ(run_task("LogTypeTask.closed"), 0);
  expect_archived("closed", "small\n");
  wait_until("the end", [] { return sleeping() == 1; });
  EXPECT_EQ(count(errors(), ".a.1 on remote host"), 1U) << errors();
  EXPECT_EQ(waiting(1), 1);
  ASSERT_EQ(set_config(), 0);
  ASSERT_EQ(run_task("LogTypeTask.closed"), 0);
  expect_archived("closed", "small\n" + large);
}

TEST_F(ItemInTheMiddle, OfALogThatIsRefusedThenIsTriedAgainByTheNextRun) {
  append("messages", large);
  begin("messages", following_as("messages", "messages"));
  start_again();
  ASSERT_EQ(set_config(lab::value("LAB_PASSWORD"), -1, 1), 0);
  ASSERT_EQ(run_task("LogTypeTask.messages"), 0);
  wait_until("an error", [] { return errors() != "" && sleeping() == 1; });
  EXPECT_EQ(count(errors(), ".messages on remote host"), 1U) << errors();
  ASSERT_EQ(set_config(), 0);
  ASSERT_EQ(run_task("LogTypeTask.messages"), 0);
  expect_archived("messages", large);
}

TEST_F(ItemInTheMiddle, OfASectionThatIsConfiguredNoMoreGoesFromTheArchive) {
  append("a.1", large);
  append("b.1", "two\n");
  begin("closed", in_a_day("closed", "files = " + log("a.*")));
  go_on_with("other", in_a_day("other", "files = " + log("b.*")));
  expect_archived("other", "two\n");
  EXPECT_EQ(items("closed").size(), 0U);
  EXPECT_EQ(errors(), "");
  stop();
  EXPECT_EQ(intents(), 0);
}

TEST_F(ItemInTheMiddle, OfASectionThatComesBackIsArchivedOnce) {
  append("a", large);
  append("b.1", "two\n");
  begin("messages", following_as("messages", "a"));
  const std::string other = in_a_day("other", "files = " + log("b.*"));
  go_on_with("other", other);
  expect_archived("other", "two\n");
  stop();
  go_on_with("messages", other + following_as("messages", "a"));
  expect_archived("messages", large);
  EXPECT_EQ(errors(), "");
}

TEST_F(ItemInTheMiddle, OfAFileWhoseFileSystemIsMissingForAWhileIsArchivedThen) {
  std::filesystem::create_directory(log("disk"));
  lab::change_machine("mkdir $LAB/elsewhere && mount -t tmpfs -o size=32m tmpfs " + log("disk"));
  append("disk/a.1", large);
  const std::string section = in_a_day("closed", "files = " + log("disk/a.*"));
  begin("closed", section);
  lab::change_machine("mount --move " + log("disk") + " $LAB/elsewhere");
  go_on_with("closed", section);
  wait_until("the end", [] { return items("closed").empty() && sleeping() == 1; });
  lab::change_machine("mount --move $LAB/elsewhere " + log("disk"));
  ASSERT_EQ(run_task("LogTypeTask.closed"), 0);
  expect_archived("closed", large);
  EXPECT_EQ(errors(), "");
  stop();
  lab::change_machine("umount " + log("disk"));
}

/* What stands half on the host before is out of reach. */
TEST_F(ItemInTheMiddle, IsSentWholeToTheDirectoryThatIsConfiguredThen) {
  append("a.1", large);
  begin("closed", in_a_day("closed", "files = " + log("a.*")));
  lab::run("install -d -o $LAB_USER /home/$LAB_USER/other");
  start_again();
  Settings settings = lab::settings();
  settings.dir = "/home/" + lab::value("LAB_USER") + "/other";
  const tavren_config_t elsewhere = {settings.record(), {-1, -1}};
  ASSERT_EQ(call([&](auto* handle) { return tavren_api_set_config(handle, &elsewhere, 1); }), 0);
  ASSERT_EQ(run_task("LogTypeTask.closed"), 0);
  wait_until("the item", [] { return archived_since_the_start(1) == 1 && sleeping() == 1; });
  EXPECT_TRUE(content_of(std::ifstream(settings.dir + "/closed/" + item[0], std::ios::binary)) == large);
  lab::run("[ $(ls /home/$LAB_USER/other/closed | wc -l) = 1 ]");
  EXPECT_EQ(errors(), "");
}

/* Also where the path without the prefix is on that disk, which is there. */
TEST_F(HeldItems, WhoseFileIsOnADiskOfAnotherRootThatIsMissingIsNotLost) {
  const std::string disk = logs + log("disk");
  std::filesystem::create_directory(log("disk"));
  std::filesystem::create_directories(disk);
  lab::change_machine("mount -t tmpfs tmpfs " + log("disk") + " && mount --bind " + log("disk") + " " + disk);
  append("disk/a.1", "first\n");
  const std::string section = in_a_day("closed", "files = " + log("disk/a.*"));
  start(section);
  ASSERT_EQ(set_tunable("log_dir_prefix", logs.c_str()), "");
  stop();
  hold("closed", section, 0, 1);
  stop(SIGKILL);
  lab::change_machine("umount " + disk);
  run_again("closed");
  wait_until("the end", [] { return items("closed").empty() && sleeping() == 1; });
  EXPECT_EQ(errors(), "");
  stop();
  lab::change_machine("umount " + log("disk"));
}

/* Its size is asked for by a shell. */
TEST_F(ItemThatHasArrived, StaysWhateverItsName) {
  const std::string name = "a b'c\"$d;\n\xE4\xFF.1";
  append(name, "first\n");
  hold("closed", in_a_day("closed", "files = " + log("a*")), 6);
  EXPECT_EQ(items("closed")[0].substr(23), ".a b'c\"$d;_\xE4\xFF.1");
  stop(SIGKILL);
  std::filesystem::remove(log(name));
  expect_it_stays("closed", "first\n");
}
