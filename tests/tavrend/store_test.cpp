#include "store/store.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <sqlite3.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <random>
#include <string>

#include "support/files.h"
#include "support/own_machine.h"
#include "support/run_in_child.h"
#include "support/temporary_directory.h"

using testing::ElementsAre;
using testing::HasSubstr;

namespace {

class StoreTest : public testing::Test {
 protected:
  StoreTest() { reopen(); }

  void reopen() {
    store.reset();
    store = std::make_unique<Store>(path);
  }

  std::string error_of_opening() const {
    try {
      const Store other(path);
    } catch (const StoreError& error) {
      return error.what();
    }
    return "none";
  }

  void run(const std::string& sql) const {
    sqlite3* handle = nullptr;
    ASSERT_EQ(sqlite3_open(database.c_str(), &handle), SQLITE_OK);
    EXPECT_EQ(sqlite3_exec(handle, sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK) << sqlite3_errmsg(handle);
    sqlite3_close(handle);
  }

  /* What a query gives: blanks between columns, commas between rows. */
  std::string rows(const std::string& sql) const {
    sqlite3* handle = nullptr;
    std::string all;
    EXPECT_EQ(sqlite3_open(database.c_str(), &handle), SQLITE_OK);
    const auto take = [](void* to, int count, char** columns, char**) {
      std::string& text = *static_cast<std::string*>(to);
      for (int i = 0; i < count; ++i) text += (i > 0 ? " " : text.empty() ? "" : ", ") + std::string(columns[i]);
      return 0;
    };
    EXPECT_EQ(sqlite3_exec(handle, sql.c_str(), take, &all, nullptr), SQLITE_OK) << sqlite3_errmsg(handle);
    sqlite3_close(handle);
    return all;
  }

  static ArchiveConfig config() {
    return {{"archive.example", "/it's", "logger", "se\"cret", "ssh-ed25519 AAAA", "SHA256:x"}, {1000, -1}};
  }

  static LogFile file(int64_t size = 10) {
    return {
        std::string("/var/log/a\nb\xFF", 13), 0xFFFFFFFFFFFFFFFF, 0x8000000000000001, size, 123456789012345678, "head"};
  }

  static Intent intent(int64_t first = 0, int64_t length = 10, bool grows = false) {
    return {"audit", "audit/2026-11-22T06:29:51.123.x", file(), grows, grows, first, length};
  }

  const TemporaryDirectory directory;
  const std::string path = directory.path("state");
  const std::string database = path + "/tavrend.db";
  std::unique_ptr<Store> store;
};

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
  EXPECT_FALSE(store->open_intent("audit"));
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
  const auto open = store->open_intent("audit");
  ASSERT_TRUE(open);
  EXPECT_EQ(open->remote_path, intent().remote_path);
  EXPECT_EQ(open->file.path, file().path);
  EXPECT_EQ(open->file.device, file().device);
  EXPECT_EQ(open->file.inode, file().inode);
  EXPECT_EQ(open->file.size, 10);
  EXPECT_EQ(open->file.mtime_ns, file().mtime_ns);
  EXPECT_EQ(open->file.head, "head");
  EXPECT_EQ(open->length, 10);
  EXPECT_EQ(store->last_item_time("audit"), 4711);
  EXPECT_TRUE(store->archived_files("audit").empty());
  store->finish_item(*open);
  reopen();
  EXPECT_FALSE(store->open_intent("audit"));
  ASSERT_EQ(store->archived_files("audit").size(), 1U);
  EXPECT_TRUE(is_archived(store->archived_files("audit")[0], file()));
}

TEST_F(StoreTest, OfAPartOfAFileKnowsHowFarItCame) {
  store->begin_item(intent(0, 4), 1);
  store->finish_item(intent(0, 4));
  EXPECT_TRUE(store->archived_files("audit").empty());
  ASSERT_TRUE(store->progress("audit"));
  EXPECT_EQ(store->progress("audit")->offset, 4);
  EXPECT_FALSE(store->progress("audit")->finished);
  store->begin_item(intent(4, 6), 2);
  store->finish_item(intent(4, 6));
  EXPECT_EQ(store->archived_files("audit").size(), 1U);
  EXPECT_TRUE(store->progress("audit")->finished);
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

TEST_F(StoreTest, ForgetsAnItemThatIsGivenUp) {
  store->begin_item(intent(), 1);
  store->give_up_item(intent());
  EXPECT_FALSE(store->open_intent("audit"));
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

namespace {

class StoreOfArchivedFiles : public StoreTest {
 protected:
  static constexpr int64_t day_ms = 24 * 3600 * 1000;
  static constexpr int64_t now_ms = int64_t{20000} * day_ms;

  static LogFile numbered(int number) {
    const std::string head = "file " + std::to_string(number);
    return {"/var/log/a", 1, static_cast<uint64_t>(number), static_cast<int64_t>(head.size()), number, head};
  }

  void archive(const std::string& section, int number) {
    const LogFile file = numbered(number);
    const Intent whole{section, section + "/x", file, false, false, 0, file.size};
    store->begin_item(whole, number);
    store->finish_item(whole);
  }

  void look(const std::vector<int>& numbers, int64_t when_ms) {
    std::vector<LogFile> found;
    for (const int number : numbers) found.push_back(numbered(number));
    store->forget_missing_files("audit", found, when_ms);
  }

  /* The inodes of the files that are known. */
  std::vector<uint64_t> known(const std::string& section = "audit") {
    std::vector<uint64_t> inodes;
    for (const Identity& identity : store->known_files(section)) inodes.push_back(identity.inode);
    return inodes;
  }

  bool is_written_by(const std::function<void()>& action) const {
    const std::string before = read_file(database);
    action();
    return read_file(database) != before;
  }
};

}  // namespace

TEST_F(StoreOfArchivedFiles, ForgetsOneThatWasMissingForAWeek) {
  archive("audit", 1);
  archive("audit", 2);
  look({2}, now_ms);
  look({2}, now_ms + 7 * day_ms - 1);
  EXPECT_THAT(known(), ElementsAre(1, 2));
  reopen();
  look({2}, now_ms + 7 * day_ms);
  EXPECT_THAT(known(), ElementsAre(2));
}

TEST_F(StoreOfArchivedFiles, DoesNotForgetOneThatWasMissingInALook) {
  archive("audit", 1);
  look({2}, now_ms);
  look({1, 2}, now_ms + 6 * day_ms);
  look({2}, now_ms + 12 * day_ms);
  look({1, 2}, now_ms + 30 * day_ms);
  EXPECT_THAT(known(), ElementsAre(1));
}

TEST_F(StoreOfArchivedFiles, DoesNotForgetAtTheFirstLookHoweverLateItIs) {
  archive("audit", 1);
  look({1}, now_ms);
  look({2}, now_ms + 1000 * day_ms);
  EXPECT_THAT(known(), ElementsAre(1));
}

TEST_F(StoreOfArchivedFiles, KnowsOneAgainUnderAnotherNameAndAfterItHasGrown) {
  archive("audit", 1);
  LogFile renamed = numbered(1);
  renamed.path = "/var/log/b";
  renamed.size += 5;
  renamed.head += " more";
  store->forget_missing_files("audit", {numbered(2)}, now_ms);
  store->forget_missing_files("audit", {renamed}, now_ms + 7 * day_ms);
  EXPECT_THAT(known(), ElementsAre(1));
}

TEST_F(StoreOfArchivedFiles, ForgetsTheOneWhoseInodeHasAnotherFile) {
  archive("audit", 1);
  LogFile other = numbered(1);
  other.head = "other";
  store->forget_missing_files("audit", {other}, now_ms);
  store->forget_missing_files("audit", {other}, now_ms + 7 * day_ms);
  EXPECT_THAT(known(), ElementsAre());
}

TEST_F(StoreOfArchivedFiles, ForgetsNothingWhereALookFindsNothing) {
  archive("audit", 1);
  look({2}, now_ms);
  look({}, now_ms + 30 * day_ms);
  EXPECT_THAT(known(), ElementsAre(1));
}

TEST_F(StoreOfArchivedFiles, BeginsTheWeekAnewWhenTheClockWasSetBack) {
  archive("audit", 1);
  look({2}, now_ms);
  look({2}, now_ms - 20 * day_ms);
  look({2}, now_ms - 14 * day_ms);
  EXPECT_THAT(known(), ElementsAre(1));
  look({2}, now_ms - 13 * day_ms);
  EXPECT_THAT(known(), ElementsAre());
}

TEST_F(StoreOfArchivedFiles, ForgetsNothingOfAnotherSection) {
  archive("audit", 1);
  archive("other", 1);
  look({2}, now_ms);
  look({2}, now_ms + 7 * day_ms);
  EXPECT_THAT(known(), ElementsAre());
  EXPECT_THAT(known("other"), ElementsAre(1));
}

TEST_F(StoreOfArchivedFiles, IsWrittenOnlyWhenSomethingIsNew) {
  archive("audit", 1);
  look({2}, now_ms);
  EXPECT_FALSE(is_written_by([this] { look({2}, now_ms + day_ms); }));
  EXPECT_TRUE(is_written_by([this] { look({1, 2}, now_ms + day_ms); }));
  EXPECT_FALSE(is_written_by([this] { look({1, 2}, now_ms + 2 * day_ms); }));
}

TEST_F(StoreOfArchivedFiles, DoesNotGrowOverTheYears) {
  for (int day = 1; day <= 15; ++day) {
    archive("audit", day);
    look({day - 3, day - 2, day - 1, day}, now_ms + day * day_ms);
  }
  EXPECT_EQ(known().size(), 11U);
  EXPECT_EQ(known().front(), 5U);
}

namespace {

Progress progress_of(const LogFile& file, int64_t offset) {
  return {identity_of(file), offset, file.size, file.mtime_ns, false};
}

}  // namespace

TEST_F(StoreOfArchivedFiles, KeepsWhatALookHasShown) {
  store->note_look("messages", progress_of(numbered(1), 3), {numbered(2), numbered(3)});
  reopen();
  ASSERT_TRUE(store->progress("messages"));
  EXPECT_TRUE(*store->progress("messages") == progress_of(numbered(1), 3));
  EXPECT_THAT(known("messages"), ElementsAre(2, 3));
  store->note_look("messages", std::nullopt, {numbered(3), numbered(4)});
  EXPECT_TRUE(*store->progress("messages") == progress_of(numbered(1), 3));
  EXPECT_THAT(known("messages"), ElementsAre(2, 3, 4));
}

TEST_F(StoreOfArchivedFiles, IsNotWrittenWhenALookHasShownNothingNew) {
  store->note_look("messages", progress_of(numbered(1), 3), {numbered(2)});
  EXPECT_FALSE(is_written_by([this] {
    store->note_look("messages", progress_of(numbered(1), 3), {numbered(2)});
    store->note_look("messages", std::nullopt, {});
  }));
  EXPECT_TRUE(is_written_by([this] { store->note_look("messages", progress_of(numbered(1), 4), {}); }));
  EXPECT_EQ(store->progress("messages")->offset, 4);
}

TEST_F(StoreTest, ThatAnotherProcessUsesIsRefused) { EXPECT_THAT(error_of_opening(), HasSubstr("database is locked")); }

TEST_F(StoreTest, OfANewerVersionIsRefusedAndKept) {
  store.reset();
  run("PRAGMA user_version = 2");
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

namespace {

class StoreFailure : public StoreTest {
 protected:
  static constexpr size_t page_size = 4096;

  /* What a child says that ends with the reason of a StoreError. */
  static std::string reason_in_child(const std::function<void()>& action) {
    const Outcome outcome = run_in_child([&action] {
      try {
        action();
        fputs("none", stdout);
      } catch (const StoreError& error) {
        fputs(error.what(), stdout);
      }
    });
    return outcome.exited_with(0) ? outcome.out : "wait status " + std::to_string(outcome.wait_status);
  }

  /* Lets files grow to so many bytes and no further. */
  static void limit_files(rlim_t bytes) {
    signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{bytes, bytes};
    setrlimit(RLIMIT_FSIZE, &limit);
  }

  /* Puts a file system of its own, with so many KiB, at the directory, for this process and its children alone. */
  static void mount_small(const std::string& at, int kib) {
    const std::string options = "size=" + std::to_string(kib) + "k";
    if (unshare(CLONE_NEWNS) != 0 || mount("", "/", nullptr, MS_PRIVATE | MS_REC, nullptr) != 0 ||
        mount("tmpfs", at.c_str(), "tmpfs", 0, options.c_str()) != 0) {
      _exit(77);
    }
  }

  static void need_mounts() {
    const Outcome outcome = run_in_child([] {
      const TemporaryDirectory place;
      mount_small(place.path(), 64);
      umount(place.path().c_str());
    });
    if (outcome.exited_with(77)) skip("this needs a file system of its own, which nobody may make here");
  }

  static void become_stranger() {
    if (setgid(65534) != 0 || setuid(65534) != 0) _exit(100);
  }

  /* A database with something of everything in it. */
  void fill() const {
    store->set_config(config(), true);
    store->set_text("tunables", std::string(3000, 't'));
    store->add_section({"audit", 0});
    for (int i = 0; i < 50; ++i) {
      store->begin_item(intent(), i);
      store->finish_item(intent());
      store->add_error(std::string(500, 'e'));
    }
    store->begin_item(intent(), 4711);
  }

  static void read_everything(Store& from) {
    from.config();
    from.is_enabled();
    from.is_claimed();
    from.text("tunables");
    from.errors();
    from.archived_files("audit");
    from.progress("audit");
    from.sections();
    from.last_item_time("audit");
    from.open_intent("audit");
  }
};

}  // namespace

TEST_F(StoreFailure, WithoutRoomForADatabaseIsNotStarted) {
  need_mounts();
  const std::string at = directory.path("small");
  mkdir(at.c_str(), 0700);
  EXPECT_EQ(reason_in_child([&at] {
              mount_small(at, 4);
              const Store full(at);
            }),
            at + "/tavrend.db: database or disk is full");
}

TEST_F(StoreFailure, OnADiskThatFillsUpTakesNoChangeAndKeepsTheOthers) {
  need_mounts();
  const std::string at = directory.path("small");
  mkdir(at.c_str(), 0700);
  EXPECT_EQ(reason_in_child([&at] {
              mount_small(at, 400);
              auto full = std::make_unique<Store>(at);
              full->set_text("commands", "kept");
              std::string reason;
              try {
                for (int i = 0; i < 1000; ++i) full->set_text("tunables", std::string(1000 * i, static_cast<char>(i)));
              } catch (const StoreError& error) {
                reason = error.what();
              }
              const std::string last = full->text("tunables");
              full.reset();
              Store again(at);
              const bool is_good =
                  again.text("commands") == "kept" && again.text("tunables") == last && last.size() > 9000;
              again.set_text("tunables", "");
              again.set_text("commands", "goes on");
              if (!is_good || again.text("commands") != "goes on") _exit(1);
              throw StoreError(reason);
            }),
            at + "/tavrend.db: database or disk is full");
}

TEST_F(StoreFailure, WhoseFileMayNotGrowTakesNoChangeAndKeepsTheOthers) {
  store->set_text("commands", "kept");
  store.reset();
  EXPECT_EQ(reason_in_child([this] {
              limit_files(100000);
              Store limited(path);
              limited.set_text("tunables", std::string(200000, 't'));
            }),
            database + ": disk I/O error");
  reopen();
  EXPECT_EQ(store->text("commands"), "kept");
  EXPECT_EQ(store->text("tunables"), "");
}

TEST_F(StoreFailure, InAReadOnlyFileSystemIsNotStarted) {
  need_mounts();
  EXPECT_EQ(reason_in_child([this] {
              mount_small(path, 400);
              Store(path).set_text("commands", "kept");
              mount("tmpfs", path.c_str(), "tmpfs", MS_REMOUNT | MS_RDONLY, nullptr);
              const std::string before = read_file(database);
              try {
                const Store other(path);
              } catch (const StoreError&) {
                if (read_file(database) != before) _exit(1);
                throw;
              }
            }),
            database + ": attempt to write a readonly database");
}

TEST_F(StoreFailure, InADirectoryThatIsNotOursIsNotStarted) {
  store.reset();
  EXPECT_EQ(reason_in_child([this] {
              chmod(directory.path().c_str(), 0755);
              become_stranger();
              const Store other(path);
            }),
            database + ": unable to open database file");
}

TEST_F(StoreFailure, WhoseFileMayNotBeWrittenIsNotStarted) {
  store.reset();
  const std::string before = read_file(database);
  EXPECT_EQ(reason_in_child([this] {
              chmod(directory.path().c_str(), 0755);
              chmod(path.c_str(), 0755);
              chmod(database.c_str(), 0444);
              become_stranger();
              const Store other(path);
            }),
            database + ": attempt to write a readonly database");
  EXPECT_EQ(read_file(database), before);
}

TEST_F(StoreFailure, InAPlaceThatIsNoDirectoryIsNotStarted) {
  write_file(directory.path("file"), "notes");
  EXPECT_EQ(reason_in_child([this] { const Store other(directory.path("file")); }),
            directory.path("file") + "/tavrend.db: unable to open database file");
  EXPECT_EQ(read_file(directory.path("file")), "notes");
}

TEST_F(StoreFailure, ThatAnotherProcessUsesIsNotStartedUntilThatEnds) {
  store.reset();
  int in[2];
  int out[2];
  ASSERT_EQ(pipe(in), 0);
  ASSERT_EQ(pipe(out), 0);
  const pid_t other = fork();
  if (other == 0) {
    close(in[1]);
    const Store theirs(path);
    char end = 0;
    if (write(out[1], "x", 1) != 1 || read(in[0], &end, 1) != 0) _exit(1);
    _exit(0);
  }
  close(in[0]);
  char ready = 0;
  ASSERT_EQ(read(out[0], &ready, 1), 1);
  const std::string before = read_file(database);
  EXPECT_EQ(error_of_opening(), database + ": database is locked");
  EXPECT_EQ(read_file(database), before);
  close(in[1]);
  close(out[0]);
  close(out[1]);
  waitpid(other, nullptr, 0);
  EXPECT_EQ(error_of_opening(), "none");
}

TEST_F(StoreFailure, ThatIsCutShortIsNotStartedAndKept) {
  fill();
  store.reset();
  const std::string whole = read_file(database);
  for (size_t size = 500; size < whole.size() - page_size; size += 509) {
    write_file(database, whole.substr(0, size));
    EXPECT_THAT(error_of_opening(), HasSubstr(database + ": ")) << size;
    EXPECT_TRUE(read_file(database) == whole.substr(0, size)) << size;
  }
}

TEST_F(StoreFailure, WithBitsOverwrittenIsRefusedOrReadAndKept) {
  fill();
  store.reset();
  const std::string whole = read_file(database);
  std::minstd_rand random(4711);
  int refused = 0;
  for (int i = 0; i < 300; ++i) {
    std::string damaged = whole;
    const size_t place = i < 100 ? static_cast<size_t>(i) : random() % whole.size();
    damaged[place] = static_cast<char>(damaged[place] ^ (1 << (random() % 8)));
    write_file(database, damaged);
    try {
      Store opened(path);
      read_everything(opened);
    } catch (const StoreError& error) {
      ++refused;
      EXPECT_THAT(error.what(), HasSubstr(database + ": ")) << place;
    }
    EXPECT_TRUE(read_file(database) == damaged) << place;
  }
  EXPECT_GT(refused, 30);
}

/* What was archived would be archived again. */
TEST_F(StoreFailure, WhoseIndexHasNotWhatItsTableHasIsNotStarted) {
  fill();
  store.reset();
  std::string damaged = read_file(database);
  const size_t page =
      4096 * (std::stoul(rows("SELECT rootpage FROM sqlite_master WHERE name = 'archived_section'")) - 1);
  const size_t key = damaged.find("audit", page);
  ASSERT_LT(key, page + page_size);
  damaged[key] = 'b';
  write_file(database, damaged);
  EXPECT_THAT(error_of_opening(), HasSubstr(database + ": damaged: "));
  EXPECT_TRUE(read_file(database) == damaged);
}

/* Of a database that another machine has made, nothing depends on its word size or byte order. */
TEST_F(StoreFailure, IsTheSameOnEveryMachine) {
  store->set_config(config(), true);
  store->add_section({"audit", 0});
  store->begin_item(intent(), 4711);
  store->finish_item(intent());
  store->begin_item(intent(4, 6, true), 4712);
  store->add_error("error");
  store.reset();
  EXPECT_EQ(rows("SELECT CAST(name AS TEXT), value FROM number"),
            "claimed 0, configured 1, enabled 1, space_limit.0 1000, space_limit.1 -1");
  EXPECT_EQ(rows("SELECT quote(name), quote(value) FROM text LIMIT 1"), "X'636F6E6669672E646972' X'2F69742773'");
  EXPECT_EQ(rows("SELECT quote(serialised) FROM error"), "X'6572726F72'");
  EXPECT_EQ(rows("SELECT quote(name), compartment, last_item_ms FROM section"), "X'6175646974' 0 4712");
  const std::string identity = "-1 -9223372036854775807 4 760847531035462659";
  EXPECT_EQ(rows("SELECT quote(section), device, inode, head_length, head_checksum, size, mtime_ns FROM archived"),
            "X'6175646974' " + identity + " 10 123456789012345678");
  EXPECT_EQ(rows("SELECT quote(section), device, inode, head_length, head_checksum, offset, seen, mtime_ns, finished"
                 " FROM progress"),
            "X'6175646974' " + identity + " 10 10 123456789012345678 1");
  EXPECT_EQ(rows("SELECT quote(path), device, inode, size, mtime_ns, quote(head), follows, grows, first, length"
                 " FROM intent"),
            "X'2F7661722F6C6F672F610A62FF' -1 -9223372036854775807 10 123456789012345678 X'68656164' 1 1 4 6");
}
