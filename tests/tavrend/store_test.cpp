#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "support/files.h"
#include "tavrend/store_fixture.h"

using testing::ElementsAre;
using testing::HasSubstr;

namespace {

mode_t mode_of(const std::string& path) {
  struct stat status {};
  stat(path.c_str(), &status);
  return status.st_mode & 07777;
}

}  // namespace

TEST_F(StoreTest, IsForRootAloneWhateverTheUmask) {
  const mode_t old_umask = umask(0);
  const Store other(directory.path("other"));
  umask(old_umask);
  EXPECT_EQ(mode_of(directory.path("other")), 0700U);
  EXPECT_EQ(mode_of(directory.path("other/tavrend.db")), 0600U);
}

TEST_F(StoreTest, HasNothingAtFirst) {
  EXPECT_FALSE(store->config());
  EXPECT_FALSE(store->is_enabled());
  EXPECT_FALSE(store->is_claimed());
  EXPECT_EQ(store->text("tunables"), "");
  EXPECT_TRUE(store->errors().empty());
  EXPECT_TRUE(store->sections().empty());
  EXPECT_TRUE(store->archived_files("audit").empty());
  EXPECT_FALSE(store->progress("audit"));
  EXPECT_TRUE(store->open_intents("audit").empty());
  EXPECT_EQ(store->last_item_time("audit"), 0);
}

TEST_F(StoreTest, KeepsTheConfigurationAndTheState) {
  store->set_config(config(), true);
  reopen();
  ASSERT_TRUE(store->config());
  EXPECT_EQ(store->config()->settings.host, "archive.example");
  EXPECT_EQ(store->config()->settings.dir, "/it's");
  EXPECT_EQ(store->config()->settings.user, "logger");
  EXPECT_EQ(store->config()->settings.password, "se\"cret");
  EXPECT_EQ(store->config()->settings.host_key, "ssh-ed25519 AAAA");
  EXPECT_EQ(store->config()->settings.fingerprint, "SHA256:x");
  EXPECT_EQ(store->config()->space_limit[0], 1000);
  EXPECT_EQ(store->config()->space_limit[1], -1);
  EXPECT_TRUE(store->is_enabled());
}

TEST_F(StoreTest, KeepsTheConfigurationWhenOnlyTheStateIsSet) {
  store->set_config(config(), true);
  store->set_config(std::nullopt, false);
  EXPECT_EQ(store->config()->settings.host, "archive.example");
  EXPECT_FALSE(store->is_enabled());
  store->set_config(std::nullopt, true);
  EXPECT_TRUE(store->is_enabled());
}

TEST_F(StoreTest, ClaimsAnewWithEachConfiguration) {
  store->set_config(config(), true);
  store->set_claimed();
  reopen();
  EXPECT_TRUE(store->is_claimed());
  store->set_config(std::nullopt, false);
  EXPECT_TRUE(store->is_claimed());
  store->set_config(config(), true);
  EXPECT_FALSE(store->is_claimed());
}

TEST_F(StoreTest, KeepsTexts) {
  store->set_text("tunables", "a=b\n");
  store->set_text("tunables", "c=d\n");
  store->set_text("commands", "");
  reopen();
  EXPECT_EQ(store->text("tunables"), "c=d\n");
  EXPECT_EQ(store->text("commands"), "");
}

TEST_F(StoreTest, KeepsTheLastHundredErrors) {
  for (int i = 0; i < 150; ++i) store->add_error(std::string("TavrenError\0", 12) + std::to_string(i));
  reopen();
  const auto errors = store->errors();
  ASSERT_EQ(errors.size(), 100U);
  EXPECT_EQ(errors.front(), std::string("TavrenError\0", 12) + "50");
  EXPECT_EQ(errors.back(), std::string("TavrenError\0", 12) + "149");
  store->clear_errors();
  EXPECT_TRUE(store->errors().empty());
  store->add_error("x");
  EXPECT_THAT(store->errors(), ElementsAre("x"));
}

TEST_F(StoreTest, KeepsAnIntentUntilTheItemIsDone) {
  store->add_section({"audit", 0});
  store->begin_item(intent(), 4711);
  reopen();
  const auto open = store->open_intents("audit");
  ASSERT_EQ(open.size(), 1U);
  EXPECT_EQ(open[0].remote_path, intent().remote_path);
  EXPECT_EQ(open[0].file.path, file().path);
  EXPECT_EQ(open[0].file.device, file().device);
  EXPECT_EQ(open[0].file.inode, file().inode);
  EXPECT_EQ(open[0].file.size, 10);
  EXPECT_EQ(open[0].file.mtime_ns, file().mtime_ns);
  EXPECT_EQ(open[0].file.head, "head");
  EXPECT_EQ(open[0].length, 10);
  EXPECT_EQ(store->last_item_time("audit"), 4711);
  EXPECT_TRUE(store->archived_files("audit").empty());
  store->finish_item(open[0]);
  reopen();
  EXPECT_TRUE(store->open_intents("audit").empty());
  ASSERT_EQ(store->archived_files("audit").size(), 1U);
  EXPECT_TRUE(is_archived(store->archived_files("audit")[0], file()));
}

TEST_F(StoreTest, KeepsTheIntentsOfSeveralItemsThatWereBegunTogether) {
  Intent second = intent();
  second.remote_path += ".2";
  store->add_section({"audit", 0});
  store->begin_items({intent(), second}, 4711);
  reopen();
  EXPECT_EQ(store->last_item_time("audit"), 4711);
  EXPECT_EQ(store->open_intents("audit").at(0).remote_path, intent().remote_path);
  store->finish_item(intent());
  EXPECT_EQ(store->open_intents("audit").at(0).remote_path, second.remote_path);
  store->give_up_item(second);
  EXPECT_TRUE(store->open_intents("audit").empty());
}

namespace {

/* States of older versions, made of a present one. */
class OldStore : public StoreTest {
 protected:
  OldStore() {
    store->set_config(ArchiveConfig(), true);
    store->set_text("tunables", "kept");
    store->add_section({"audit", 0});
    store->begin_item(intent(), 4711);
    store->finish_item(intent());
    store->note_look("audit", Progress{identity_of(file()), 10, 10, 5, true}, {}, Store::Known::archived);
    store->begin_item(intent(), 4712);
  }

  void become_first_version() {
    store.reset();
    run(R"(
      DROP INDEX archived_section;
      DROP TABLE seen;
      DROP TABLE begun;
      ALTER TABLE number RENAME TO new_number;
      CREATE TABLE number (name TEXT PRIMARY KEY, value INTEGER NOT NULL) WITHOUT ROWID;
      INSERT INTO number SELECT name, value FROM new_number;
      DROP TABLE new_number;
      ALTER TABLE text RENAME TO new_text;
      CREATE TABLE text (name BLOB PRIMARY KEY, value BLOB NOT NULL) WITHOUT ROWID;
      INSERT INTO text SELECT name, value FROM new_text;
      DROP TABLE new_text;
      ALTER TABLE section RENAME TO new_section;
      CREATE TABLE section (name BLOB PRIMARY KEY, compartment INTEGER NOT NULL, last_item_ms INTEGER NOT NULL)
        WITHOUT ROWID;
      INSERT INTO section SELECT name, compartment, last_item_ms FROM new_section;
      DROP TABLE new_section;
      ALTER TABLE archived RENAME TO new_archived;
      CREATE TABLE archived (id INTEGER PRIMARY KEY, section BLOB NOT NULL, device INTEGER NOT NULL,
        inode INTEGER NOT NULL, head_length INTEGER NOT NULL, head_checksum INTEGER NOT NULL, size INTEGER NOT NULL,
        mtime_ns INTEGER NOT NULL, missing_since_ms INTEGER NOT NULL DEFAULT 0);
      INSERT INTO archived SELECT id, section, device, inode, head_length, head_checksum, size, mtime_ns, 0
        FROM new_archived;
      DROP TABLE new_archived;
      CREATE INDEX archived_section ON archived (section);
      ALTER TABLE progress RENAME TO new_progress;
      CREATE TABLE progress (section BLOB PRIMARY KEY, device INTEGER NOT NULL, inode INTEGER NOT NULL,
        head_length INTEGER NOT NULL, head_checksum INTEGER NOT NULL, offset INTEGER NOT NULL, seen INTEGER NOT NULL,
        mtime_ns INTEGER NOT NULL, finished INTEGER NOT NULL) WITHOUT ROWID;
      INSERT INTO progress SELECT section, device, inode, head_length, head_checksum, offset, seen, mtime_ns, finished
        FROM new_progress;
      DROP TABLE new_progress;
      ALTER TABLE intent RENAME TO new_intent;
      CREATE TABLE intent (section BLOB PRIMARY KEY, remote_path BLOB NOT NULL, path BLOB NOT NULL,
        device INTEGER NOT NULL, inode INTEGER NOT NULL, size INTEGER NOT NULL, mtime_ns INTEGER NOT NULL,
        head BLOB NOT NULL, follows INTEGER NOT NULL, grows INTEGER NOT NULL, first INTEGER NOT NULL,
        length INTEGER NOT NULL) WITHOUT ROWID;
      INSERT INTO intent SELECT section, remote_path, path, device, inode, size, mtime_ns, head, follows, grows, first,
        length FROM new_intent;
      DROP TABLE new_intent;
      PRAGMA user_version = 1)");
  }

  /* What section follows which log stood in a text. */
  void become_second_version() {
    store.reset();
    run(R"(
      DROP INDEX archived_section;
      DROP TABLE seen;
      DROP TABLE begun;
      ALTER TABLE archived RENAME TO new_archived;
      CREATE TABLE archived (id INTEGER PRIMARY KEY, section BLOB NOT NULL, device INTEGER NOT NULL,
        inode INTEGER NOT NULL, head_length INTEGER NOT NULL, head_checksum INTEGER NOT NULL, size INTEGER NOT NULL,
        mtime_ns INTEGER NOT NULL, missing_since_ms INTEGER NOT NULL DEFAULT 0, sum INTEGER NOT NULL);
      INSERT INTO archived SELECT id, section, device, inode, head_length, head_checksum, size, mtime_ns, 0,
        row_sum(section, device, inode, head_length, head_checksum, size, mtime_ns) FROM new_archived;
      DROP TABLE new_archived;
      CREATE INDEX archived_section ON archived (section);
      INSERT INTO text SELECT CAST('follow.' || CAST(section AS TEXT) AS BLOB), log,
        row_sum(CAST('follow.' || CAST(section AS TEXT) AS BLOB), log) FROM progress WHERE log <> x'';
      ALTER TABLE progress RENAME TO new_progress;
      CREATE TABLE progress (section BLOB PRIMARY KEY, device INTEGER NOT NULL, inode INTEGER NOT NULL,
        head_length INTEGER NOT NULL, head_checksum INTEGER NOT NULL, offset INTEGER NOT NULL, seen INTEGER NOT NULL,
        mtime_ns INTEGER NOT NULL, finished INTEGER NOT NULL, sum INTEGER NOT NULL) WITHOUT ROWID;
      INSERT INTO progress SELECT section, device, inode, head_length, head_checksum, offset, seen, mtime_ns, finished,
        row_sum(section, device, inode, head_length, head_checksum, offset, seen, mtime_ns, finished)
        FROM new_progress;
      DROP TABLE new_progress;
      ALTER TABLE intent RENAME TO new_intent;
      CREATE TABLE intent (section BLOB NOT NULL, remote_path BLOB NOT NULL, path BLOB NOT NULL,
        device INTEGER NOT NULL, inode INTEGER NOT NULL, size INTEGER NOT NULL, mtime_ns INTEGER NOT NULL,
        head BLOB NOT NULL, follows INTEGER NOT NULL, grows INTEGER NOT NULL, first INTEGER NOT NULL,
        length INTEGER NOT NULL, sum INTEGER NOT NULL, PRIMARY KEY (section, remote_path)) WITHOUT ROWID;
      INSERT INTO intent SELECT section, remote_path, path, device, inode, size, mtime_ns, head, follows, grows, first,
        length, row_sum(section, remote_path, path, device, inode, size, mtime_ns, head, follows, grows, first, length)
        FROM new_intent;
      DROP TABLE new_intent;
      PRAGMA user_version = 2)");
  }

  void expect_what_there_was() {
    for (const char* when : {"taken over", "opened again"}) {
      SCOPED_TRACE(when);
      reopen();
      EXPECT_TRUE(store->is_enabled());
      EXPECT_TRUE(store->config());
      EXPECT_EQ(store->text("tunables"), "kept");
      EXPECT_EQ(store->sections().size(), 1U);
      EXPECT_EQ(store->last_item_time("audit"), 4712);
      ASSERT_EQ(store->archived_files("audit").size(), 1U);
      EXPECT_TRUE(is_archived(store->archived_files("audit")[0], file()));
      ASSERT_TRUE(store->progress("audit"));
      EXPECT_TRUE(store->progress("audit")->finished);
      ASSERT_EQ(store->open_intents("audit").size(), 1U);
      EXPECT_EQ(store->open_intents("audit")[0].remote_path, intent().remote_path);
    }
  }

  /* A piece of a log on its way, and the log's progress. */
  void begin_piece(const std::string& remote_path, const std::string& local_path) {
    Intent piece = intent(4, 6);
    piece.section = "messages";
    piece.remote_path = remote_path;
    piece.file.path = local_path;
    piece.follows = true;
    piece.log = "/prefix/var/log/messages";
    store->note_look("messages", Progress{identity_of(file()), 4, 10, 5, false, piece.log}, {}, Store::Known::archived);
    store->begin_item(piece, 4713);
  }
};

}  // namespace

TEST_F(OldStore, OfTheFirstVersionIsTakenOver) {
  become_first_version();
  expect_what_there_was();
}

TEST_F(OldStore, OfTheSecondVersionIsTakenOver) {
  become_second_version();
  expect_what_there_was();
}

TEST_F(OldStore, OfTheSecondVersionKnowsWhichLogItsProgressIsOf) {
  begin_piece("messages/x.messages", "/var/log/messages");
  become_second_version();
  reopen();
  ASSERT_TRUE(store->progress("messages", "/prefix/var/log/messages"));
  EXPECT_EQ(store->progress("messages", "/prefix/var/log/messages")->offset, 4);
  EXPECT_EQ(store->open_intents("messages").at(0).log, "/prefix/var/log/messages");
  EXPECT_EQ(store->open_intents("audit").at(0).log, "");
}

/* A section of closed files had it where one that follows a log has its progress. */
TEST_F(OldStore, OfTheSecondVersionKnowsHowFarAClosedFileCame) {
  store->note_look("audit", Progress{identity_of(file()), 4, 10, file().mtime_ns}, {}, Store::Known::archived);
  become_second_version();
  reopen();
  EXPECT_EQ(store->begun_at("audit", as_archived()), 4);
  EXPECT_EQ(store->begun_at("audit", {identity_of(file()), 11, file().mtime_ns}), 0);
  Intent of_another = intent(4, 6);
  of_another.file.inode += 1;
  store->begin_item(of_another, 4712);
  store->finish_item(of_another);
  EXPECT_EQ(store->begun_at("audit", as_archived()), 4);
  store->begin_item(intent(4, 6), 4713);
  store->finish_item(intent(4, 6));
  EXPECT_EQ(store->begun_at("audit", as_archived()), 0);
  EXPECT_FALSE(store->progress("audit"));
}

TEST_F(OldStore, OfTheSecondVersionKnowsTheFormOfAnItemByItsName) {
  begin_piece("messages/1.messages", "/var/log/messages.1");
  begin_piece("messages/2.messages.zst", "/var/log/messages.1");
  begin_piece("messages/3.messages.zst", "/var/log/messages.zst");
  begin_piece("messages/4.messages.zst.zst", "/var/log/messages.zst");
  become_second_version();
  reopen();
  std::string forms;
  for (const Intent& piece : store->open_intents("messages")) {
    forms += piece.compressed ? "c" : "-";
    EXPECT_EQ(piece.announced, -1);
  }
  EXPECT_EQ(forms, "-c-c");
}

TEST_F(OldStore, OfTheSecondVersionWithAChangedValueIsNotStarted) {
  become_second_version();
  run("UPDATE archived SET size = size + 1");
  EXPECT_EQ(error_of_opening(), database + ": damaged: a value has changed");
}

TEST_F(StoreTest, OfAPartOfAFileKnowsHowFarItCame) {
  store->begin_item(intent(0, 4), 1);
  store->finish_item(intent(0, 4));
  reopen();
  EXPECT_TRUE(store->archived_files("audit").empty());
  EXPECT_EQ(store->begun_at("audit", as_archived()), 4);
  store->begin_item(intent(4, 6), 2);
  store->finish_item(intent(4, 6));
  EXPECT_EQ(store->archived_files("audit").size(), 1U);
  EXPECT_EQ(store->begun_at("audit", as_archived()), 0);
}

TEST_F(StoreTest, OfPartsOfSeveralFilesKnowsHowFarEachCame) {
  Intent other = intent(0, 3);
  other.file.inode += 1;
  store->begin_item(intent(0, 4), 1);
  store->finish_item(intent(0, 4));
  store->begin_item(other, 2);
  store->finish_item(other);
  EXPECT_EQ(store->begun_at("audit", as_archived()), 4);
  EXPECT_EQ(store->begun_at("audit", {identity_of(other.file), other.file.size, other.file.mtime_ns}), 3);
  EXPECT_EQ(store->begun_at("messages", as_archived()), 0);
}

TEST_F(StoreTest, OfAPartOfAFileThatHasChangedSinceKnowsNothing) {
  store->begin_item(intent(0, 4), 1);
  store->finish_item(intent(0, 4));
  EXPECT_EQ(store->begun_at("audit", {identity_of(file()), file().size + 1, file().mtime_ns}), 0);
  EXPECT_EQ(store->begun_at("audit", {identity_of(file()), file().size, file().mtime_ns + 1}), 0);
}

TEST_F(StoreTest, OfAPartOfALogKnowsHowMuchThereWas) {
  store->begin_item(intent(0, 4, true), 1);
  store->finish_item(intent(0, 4, true));
  EXPECT_EQ(store->progress("audit")->seen, 10);
}

/* What was rotated away follows a log, and does not grow. */
TEST_F(StoreTest, KeepsWhatPartOfWhichKindOfFileIsOnItsWay) {
  Intent rest = intent(4, 6);
  rest.follows = true;
  store->begin_item(rest, 1);
  reopen();
  const auto open = store->open_intents("audit");
  ASSERT_EQ(open.size(), 1U);
  EXPECT_TRUE(open[0].follows);
  EXPECT_FALSE(open[0].grows);
  EXPECT_EQ(open[0].first, 4);
  EXPECT_EQ(open[0].length, 6);
}

TEST_F(StoreTest, OfAFileThatGrowsKnowsHowFarItCame) {
  store->begin_item(intent(0, 10, true), 1);
  store->finish_item(intent(0, 10, true));
  reopen();
  const auto progress = store->progress("audit");
  ASSERT_TRUE(progress);
  EXPECT_TRUE(is_same_file(progress->identity, file()));
  EXPECT_EQ(progress->offset, 10);
  EXPECT_EQ(progress->seen, 10);
  EXPECT_EQ(progress->mtime_ns, file().mtime_ns);
  EXPECT_FALSE(progress->finished);
  EXPECT_TRUE(store->known_files("audit").empty());
}

namespace {

/* A log of which a piece is on its way while it grows, and is looked at. */
class StoreOfAPieceOnItsWay : public StoreTest {
 protected:
  StoreOfAPieceOnItsWay() {
    grown.size = 50;
    grown.head = "head and more";
    piece.follows = true;
    piece.grows = true;
    piece.log = "/var/log/m";
  }

  Progress seen(int64_t offset) const {
    return {identity_of(grown), offset, grown.size, grown.mtime_ns + 1, false, piece.log};
  }
  std::optional<Progress> progress() { return store->progress("audit", piece.log); }

  LogFile grown = file();
  Intent piece = intent();
};

}  // namespace

TEST_F(StoreOfAPieceOnItsWay, KnowsAllThatALookHasSeenSince) {
  store->begin_item(piece, 1);
  store->note_seen("audit", piece.log, seen(0), {});
  store->finish_item(piece);
  ASSERT_TRUE(progress());
  EXPECT_TRUE(*progress() == seen(10));
}

TEST_F(StoreOfAPieceOnItsWay, IsNotAtTheEndOfALogInWhichALookHasSeenMoreSince) {
  piece.grows = false;
  store->begin_item(piece, 1);
  store->note_seen("audit", piece.log, seen(0), {});
  store->finish_item(piece);
  ASSERT_TRUE(progress());
  EXPECT_TRUE(*progress() == seen(10));
  EXPECT_TRUE(store->known_files("audit").empty());
}

/* They are done with, or there was nothing in them. */
TEST_F(StoreOfAPieceOnItsWay, TakesNoOtherLogForItsOwn) {
  Progress before = seen(0);
  before.finished = true;
  LogFile empty = file();
  empty.size = 0;
  empty.head.clear();
  for (const Progress& other :
       {before, seen(5), Progress{identity_of(empty), 0, 0, empty.mtime_ns, false, piece.log}}) {
    store->note_seen("audit", piece.log, other, {});
    store->finish_item(piece);
    ASSERT_TRUE(progress());
    EXPECT_TRUE(progress()->identity == identity_of(file()));
    EXPECT_EQ(progress()->offset, 10);
    EXPECT_EQ(progress()->seen, 10);
    EXPECT_FALSE(progress()->finished);
  }
}

TEST_F(StoreTest, KnowsWhatThereWasBeforeALogIsFollowed) {
  store->note_look("audit", Progress{{}, 0, 7, 8, false}, {file()}, Store::Known::passed_over);
  reopen();
  ASSERT_TRUE(store->progress("audit"));
  EXPECT_EQ(store->progress("audit")->seen, 7);
  ASSERT_EQ(store->known_files("audit").size(), 1U);
  EXPECT_TRUE(is_same_file(store->known_files("audit")[0], file()));
}

namespace {

/* A log at the inode of an archived file, which begins like that one. */
class StoreOfAReusedInode : public StoreTest {
 protected:
  StoreOfAReusedInode() {
    log.size = 30;
    log.head = "head and more";
    store->begin_item(intent(), 1);
    store->finish_item(intent());
  }

  Intent piece(int64_t first, int64_t length, bool grows) const {
    return {"audit", "audit/x", log, true, grows, first, length, "/var/log/m"};
  }

  LogFile log = file();
};

}  // namespace

TEST_F(StoreOfAReusedInode, KnowsTheEarlierFileByAllElse) {
  store->note_new_file("audit", log);
  reopen();
  const auto known = store->archived_files("audit");
  ASSERT_EQ(known.size(), 1U);
  EXPECT_TRUE(begins_like(known[0].identity, file()));
  EXPECT_EQ(known[0].size, 10);
  EXPECT_EQ(known[0].mtime_ns, file().mtime_ns);
  EXPECT_EQ(known[0].identity.device, file().device);
  EXPECT_FALSE(is_one_of(store->known_files("audit"), log));
}

TEST_F(StoreOfAReusedInode, KnowsWhichOfThemWerePassedOver) {
  LogFile other = file();
  other.mtime_ns = 5;
  store->note_look("audit", std::nullopt, {other}, Store::Known::passed_over);
  store->note_new_file("audit", log);
  EXPECT_EQ(store->archived_files("audit").size(), 1U);
  EXPECT_EQ(store->noted_files("audit").size(), 2U);
  EXPECT_FALSE(is_one_of(store->known_files("audit"), log));
}

TEST_F(StoreOfAReusedInode, KnowsTheOthersAsBefore) {
  log.head = "another";
  store->note_new_file("audit", log);
  EXPECT_TRUE(is_one_of(store->known_files("audit"), file()));
  log = file();
  store->note_new_file("other", log);
  EXPECT_TRUE(is_one_of(store->known_files("audit"), file()));
}

TEST_F(StoreOfAReusedInode, KnowsHowFarTheLogCameInItsLastPiece) {
  store->note_new_file("audit", log);
  store->finish_item(piece(0, 20, true));
  store->finish_item(piece(20, 10, false));
  ASSERT_TRUE(store->progress("audit", "/var/log/m"));
  EXPECT_EQ(store->progress("audit", "/var/log/m")->offset, 30);
  EXPECT_TRUE(store->progress("audit", "/var/log/m")->finished);
}

TEST_F(StoreTest, KnowsAFileThatWasPassedOverAsSuchBehindItsLateEnd) {
  store->note_look("audit", std::nullopt, {file()}, Store::Known::passed_over);
  Intent late = intent(10, 4);
  late.follows = true;
  late.file.size = 14;
  store->begin_item(late, 1);
  store->finish_item(late);
  EXPECT_TRUE(store->archived_files("audit").empty());
  ASSERT_EQ(store->noted_files("audit").size(), 1U);
  EXPECT_EQ(store->noted_files("audit")[0].size, 14);
}

/* It is about the earlier file, and says nothing of how far the log came. */
TEST_F(StoreOfAReusedInode, KnowsOfWhichFileALateEndIsThatWasOnItsWay) {
  LogFile grown = file();
  grown.size = 14;
  grown.head = "head late";
  Intent late = piece(10, 4, false);
  late.file = grown;
  store->begin_item(late, 2);
  store->note_new_file("audit", file());
  store->finish_item(late);
  EXPECT_FALSE(store->progress("audit", "/var/log/m"));
  store->note_new_file("audit", grown);
  EXPECT_FALSE(is_one_of(store->known_files("audit"), grown));
}

TEST_F(StoreTest, ForgetsAnItemThatIsGivenUp) {
  store->begin_item(intent(), 1);
  store->give_up_item(intent());
  EXPECT_TRUE(store->open_intents("audit").empty());
  EXPECT_TRUE(store->archived_files("audit").empty());
  EXPECT_FALSE(store->progress("audit"));
}

TEST_F(StoreTest, KnowsTheSectionsOfAllTimes) {
  store->add_section({"messages", 1});
  store->add_section({"audit", 1});
  store->begin_item(intent(), 77);
  store->add_section({"audit", 0});
  reopen();
  const auto sections = store->sections();
  ASSERT_EQ(sections.size(), 2U);
  EXPECT_EQ(sections[0].name, "audit");
  EXPECT_EQ(sections[0].compartment, 0);
  EXPECT_EQ(sections[1].name, "messages");
  EXPECT_EQ(store->last_item_time("audit"), 77);
}

/* Whoever keeps a copy of that file has everything. */
TEST_F(StoreTest, AfterItsEndIsOneFile) {
  store->set_text("tunables", "a=b\n");
  store.reset();
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(path)) names.push_back(entry.path().filename());
  EXPECT_THAT(names, ElementsAre("tavrend.db"));
}

TEST_F(StoreTest, ThatAnotherProcessUsesIsRefused) { EXPECT_THAT(error_of_opening(), HasSubstr("database is locked")); }

TEST_F(StoreTest, OfANewerVersionIsRefusedAndKept) {
  store.reset();
  run("PRAGMA user_version = 4");
  const std::string before = read_file(database);
  EXPECT_EQ(error_of_opening(), database + ": written by a newer version of this program");
  EXPECT_EQ(read_file(database), before);
}

TEST_F(StoreTest, ThatIsDamagedIsRefusedAndKept) {
  for (int i = 0; i < 100; ++i) store->add_error(std::string(1000, 'x'));
  store.reset();
  std::string damaged = read_file(database);
  for (size_t i = 4096; i < damaged.size(); ++i) damaged[i] = 'x';
  write_file(database, damaged);
  EXPECT_THAT(error_of_opening(), HasSubstr(database + ": "));
  EXPECT_EQ(read_file(database), damaged);
}

TEST_F(StoreTest, ThatIsNoDatabaseIsRefusedAndKept) {
  store.reset();
  write_file(database, "these are somebody's notes, and they are longer than nothing");
  EXPECT_EQ(error_of_opening(), database + ": file is not a database");
  EXPECT_EQ(read_file(database), "these are somebody's notes, and they are longer than nothing");
}

TEST_F(StoreTest, WithoutADirectoryIsRefused) { EXPECT_THROW(Store(directory.path("no/such/directory")), StoreError); }

TEST_F(StoreTest, SurvivesAnEndInTheMiddleOfAChange) {
  store->set_config(config(), true);
  store.reset();
  const pid_t child = fork();
  if (child == 0) {
    sqlite3* handle = nullptr;
    sqlite3_open(database.c_str(), &handle);
    sqlite3_exec(handle, "PRAGMA cache_size = 1; BEGIN; DELETE FROM number; DELETE FROM text", nullptr, nullptr,
                 nullptr);
    _exit(0);
  }
  waitpid(child, nullptr, 0);
  store = std::make_unique<Store>(path);
  EXPECT_TRUE(store->is_enabled());
  EXPECT_EQ(store->config()->settings.host, "archive.example");
}
