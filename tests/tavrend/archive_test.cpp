#include "tavrend/daemon_fixture.h"

namespace {

/* What there is on the archive host, whatever becomes of it. */
class Archive : public TavrendTest {
 protected:
  static bool has_error(const std::string& text) { return errors().find(text) != std::string::npos; }

  /* Begins a session that has three files to archive, each of that size, and 1 MB for them, which that program
   * measures. */
  void archive_three_files(size_t size, const char* du) {
    for (const char* name : {"a.1", "a.2", "a.3"}) {
      append(name, std::string(size, name[2]));
      lab::run("touch -d 2026-01-0" + std::string(1, name[2]) + " " + log(name));
    }
    start("[closed]\nfiles = " + log("a.*") + "\ninterval = 1d\n");
    ASSERT_EQ(refusal_of([du](auto* h, char** m) { return tavren_api_set_remote_command(h, "du", du, m); }), "");
    ASSERT_EQ(set_config(lab::value("LAB_PASSWORD"), -1, 1), 0);
    ASSERT_EQ(run_task("LogTypeTask.closed"), 0);
  }
};

}  // namespace

/* Without its directory the far shell is in the account's own, where nothing belongs. */
TEST_F(Archive, WhoseDirectoryIsGoneGetsNothingElsewhere) {
  const std::string archive = lab::value("LAB_ARCHIVE");
  const std::filesystem::path home = std::filesystem::path(archive).parent_path();
  append("one", "first\n");
  append("two", "first\n");
  start(following("one") + following("two"));
  set_tunable("failure_retry_interval", "1");
  ASSERT_EQ(set_config(), 0);
  wait_until("the first lines", [] { return archive_of("one") == "first\n" && archive_of("two") == "first\n"; });
  /* Both are due in the next session. */
  ASSERT_EQ(set_state(TAVREN_STATE_DISABLED), 0);
  lab::run("mv " + archive + " " + archive + ".away");
  append("one", "second\n");
  append("two", "second\n");
  sleep(2);
  ASSERT_EQ(set_state(TAVREN_STATE_ENABLED), 0);
  wait_until("an error", [] { return has_error("  - Remote command \"cd "); });
  lab::run("mv " + archive + ".away " + archive);
  wait_until("the other lines",
             [] { return archive_of("one") == "first\nsecond\n" && archive_of("two") == "first\nsecond\n"; });
  EXPECT_FALSE(std::filesystem::exists(home / "one"));
  EXPECT_FALSE(std::filesystem::exists(home / "two"));
}

/* The directories need room, too: whatever is removed, this item would not fit. */
TEST_F(Archive, LosesNothingToAnItemThatAllButFillsItsLimit) {
  append("a.1", "small\n");
  start("[audit]\nfiles = " + log("a.*") + "\ncompartment = audit\ninterval = 1\n");
  ASSERT_EQ(set_config(lab::value("LAB_PASSWORD"), 1, -1), 0);
  wait_until("the small one", [] { return archive_of("audit") == "small\n"; });
  append("a.2", std::string(1023 * 1024, 'x'));
  wait_until("an error", [] { return has_error("  - System call \"limit\" failed with error code 27\n"); });
  EXPECT_EQ(archive_of("audit"), "small\n");
}

TEST_F(Archive, OfASectionThatWasConfiguredOnceIsCountedAndRemovedFirst) {
  append("a.1", std::string(400000, '1'));
  start(closed("a.*", "once"));
  ASSERT_EQ(set_config(lab::value("LAB_PASSWORD"), -1, 1), 0);
  wait_until("the first item", [] { return archive_of("once").size() == 400000; });
  append("a.2", std::string(400000, '2'));
  wait_until("the second item", [] { return archive_of("once").size() == 800000; });
  stop();
  append("b.1", std::string(400000, '3'));
  start(closed("b.*", "now"));
  wait_until("the third item", [] { return archive_of("now").size() == 400000; });
  EXPECT_EQ(archive_of("once"), std::string(400000, '2'));
  EXPECT_EQ(errors(), "");
}

/* Also of a section whose name begins like an option. */
TEST_F(Archive, LosesAsManyItemsAsTheNextOneNeeds) {
  start(closed("a.*", "-x"));
  ASSERT_EQ(set_config(lab::value("LAB_PASSWORD"), -1, 1), 0);
  std::string written;
  for (const char* name : {"a.1", "a.2", "a.3", "a.4"}) {
    append(name, std::string(200000, name[2]));
    written += std::string(200000, name[2]);
    expect_archived("-x", written);
  }
  append("a.5", std::string(600000, '5'));
  expect_archived("-x", std::string(200000, '3') + std::string(200000, '4') + std::string(600000, '5'));
  EXPECT_EQ(errors(), "");
}

TEST_F(Archive, HasAnItemThatIsTakenUpAgainInTheFormOfItsName) {
  lab::run("head -c 60000000 /dev/urandom >" + log("a.1"));
  const std::string section = closed("a.*", "audit");
  start(section);
  ASSERT_EQ(set_config(), 0);
  wait_until("the beginning of an item", [] { return items("audit").size() == 1; });
  stop(SIGKILL);
  start(section + "compress = zstd\n");
  expect_archived("audit", read_file(log("a.1")));
  ASSERT_EQ(items("audit").size(), 1U);
  EXPECT_EQ(items("audit")[0].substr(23), ".a.1");
}

TEST_F(Archive, LosesTheOldestItemOfAllTheSectionsOfACompartment) {
  start(closed("a.*", "a") + closed("b.*", "b"));
  ASSERT_EQ(set_config(lab::value("LAB_PASSWORD"), -1, 1), 0);
  append("b.1", std::string(400000, '1'));
  expect_archived("b", std::string(400000, '1'));
  append("a.1", std::string(400000, '2'));
  expect_archived("a", std::string(400000, '2'));
  append("a.2", std::string(400000, '3'));
  expect_archived("a", std::string(400000, '2') + std::string(400000, '3'));
  EXPECT_EQ(archive_of("b"), "");
}

/* A program in the place of the usual one notes each of its runs. What is sent in between is added up. */
TEST_F(Archive, IsMeasuredOnceInASessionAndOnceMoreAfterARemoval) {
  archive_three_files(400000, "echo >>.measured; /usr/bin/du -sk");
  expect_archived("closed", std::string(400000, '2') + std::string(400000, '3'));
  EXPECT_EQ(read_file(lab::archived(".measured")), "\n\n");
}

/* The program says that there is room for two more KiB. */
TEST_F(Archive, HasAKibibyteForEachItemOfASessionHoweverSmall) {
  archive_three_files(1, "printf '1022\\t./closed\\n' #");
  expect_archived("closed", "23");
  EXPECT_EQ(errors(), "");
}

/* Others of the archive host are to read it. */
TEST_F(Archive, HasTheSameModesWhateverItsAccountsMaskIs) {
  append("a.1", "first\n");
  start(closed("a.*"));
  EXPECT_EQ(
      refusal_of([](auto* h, char** m) { return tavren_api_set_remote_command(h, "sh", "umask 077; /bin/sh", m); }),
      "");
  ASSERT_EQ(set_config(), 0);
  expect_archived("closed", "first\n");
  const auto mode_of = [](const std::string& name) {
    return static_cast<unsigned int>(std::filesystem::status(lab::archived(name)).permissions());
  };
  EXPECT_EQ(mode_of(".chassis.CH-1"), 0644U);
  EXPECT_EQ(mode_of("closed"), 0755U);
  EXPECT_EQ(mode_of("closed/" + items("closed")[0]), 0644U);
}
