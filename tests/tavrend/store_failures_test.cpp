#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "support/files.h"
#include "support/own_machine.h"
#include "support/private_tmp.h"
#include "support/run_in_child.h"
#include "tavrend/store_fixture.h"

using testing::HasSubstr;

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
    if (unshare(CLONE_NEWNS) != 0 || !keep_mounts_private() ||
        mount("tmpfs", at.c_str(), "tmpfs", 0, options.c_str()) != 0) {
      _exit(77);
    }
  }

  /* Where a small file system of its own can be. */
  std::string small_place() const {
    need_mounts();
    const std::string at = directory.path("small");
    mkdir(at.c_str(), 0700);
    return at;
  }

  static void need_mounts() {
    const Outcome outcome = run_in_child([] {
      const TemporaryDirectory place;
      mount_small(place.path(), 64);
      umount(place.path().c_str());
    });
    if (outcome.exited_with(77)) skip("this needs a file system of its own, which nobody may make here");
  }

  /* Has each change of the state fail that comes to this statement of it. */
  void fail_at(const std::string& statement) {
    store.reset();
    run("CREATE TRIGGER failure BEFORE " + statement + " BEGIN SELECT RAISE(ABORT, 'failure'); END");
    reopen();
  }

  static void become_stranger() {
    if (setgid(65534) != 0 || setuid(65534) != 0) _exit(100);
  }

  /* A database with something of everything in it. */
  void fill() const {
    store->set_config(config(), true);
    store->set_text("tunables", std::string(3000, 't'));
    store->add_section({"audit", 0});
    for (int i = 0; i < 10; ++i) {
      store->begin_item(intent(), i);
      store->finish_item(intent());
      store->add_error(std::string(2500, 'e'));
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
    from.begun_at("audit", as_archived());
    from.sections();
    from.last_item_time("audit");
    from.open_intents("audit");
  }
};

}  // namespace

TEST_F(StoreFailure, WithoutRoomForADatabaseIsNotStarted) {
  const std::string at = small_place();
  EXPECT_EQ(reason_in_child([&at] {
              mount_small(at, 4);
              const Store full(at);
            }),
            at + "/tavrend.db.new: database or disk is full");
}

/* Its log may have room where the database itself has none any more. */
TEST_F(StoreFailure, WithRoomForAPartOfADatabaseIsNotStartedUntilThereIsMore) {
  const std::string at = small_place();
  constexpr int enough = 400;
  for (int kib = 4; kib < enough; kib += 4) {
    EXPECT_EQ(reason_in_child([&] {
                mount_small(at, kib);
                try {
                  const Store full(at);
                } catch (const StoreError&) {
                }
                const std::string options = "size=" + std::to_string(enough) + "k";
                if (mount(nullptr, at.c_str(), nullptr, MS_REMOUNT, options.c_str()) != 0) _exit(1);
                const Store again(at);
              }),
              "none")
        << kib << " KiB";
  }
}

TEST_F(StoreFailure, OnADiskThatFillsUpTakesNoChangeAndKeepsTheOthers) {
  const std::string at = small_place();
  EXPECT_EQ(reason_in_child([&at] {
              mount_small(at, 400);
              auto full = std::make_unique<Store>(at);
              full->set_text("commands", "kept");
              std::string reason;
              try {
                for (unsigned i = 0; i < 1000; ++i)
                  full->set_text("tunables", std::string(1000 * i, static_cast<char>(i)));
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

/* The log beside the database counts, too. */
TEST_F(StoreFailure, IsNoMatterOfManyItemsInASmallFileSystem) {
  const std::string at = small_place();
  EXPECT_EQ(reason_in_child([&at] {
              mount_small(at, 300);
              Store small(at);
              for (int i = 0; i < 200; ++i) {
                small.begin_item(intent(), i);
                small.finish_item_on_disk_later(intent());
              }
            }),
            "none");
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

TEST_F(StoreFailure, InTheMiddleOfANewConfigurationKeepsTheOldOne) {
  store->set_config(config(), false);
  fail_at("INSERT ON number WHEN CAST(NEW.name AS TEXT) = 'enabled'");
  ArchiveConfig other = config();
  other.settings.host = "other.example";
  EXPECT_THROW(store->set_config(other, true), StoreError);
  reopen();
  EXPECT_EQ(store->config()->settings.host, "archive.example");
  EXPECT_FALSE(store->is_enabled());
}

TEST_F(StoreFailure, AtTheBeginningOfAnItemKnowsNothingOfIt) {
  store->add_section({"audit", 0});
  fail_at("UPDATE ON section");
  EXPECT_THROW(store->begin_item(intent(), 4711), StoreError);
  reopen();
  EXPECT_TRUE(store->open_intents("audit").empty());
}

TEST_F(StoreFailure, AtTheEndOfAnItemHasItStillOnItsWay) {
  store->begin_item(intent(), 4711);
  fail_at("DELETE ON intent");
  EXPECT_THROW(store->finish_item(intent()), StoreError);
  reopen();
  EXPECT_FALSE(store->open_intents("audit").empty());
  EXPECT_TRUE(store->archived_files("audit").empty());
  EXPECT_FALSE(store->progress("audit"));
}

TEST_F(StoreFailure, InTheMiddleOfWhatALookHasShownKnowsNothingOfIt) {
  fail_at("INSERT ON archived");
  EXPECT_THROW(store->note_look("audit", Progress{{}, 0, 7, 8, false}, {file()}, Store::Known::archived), StoreError);
  reopen();
  EXPECT_FALSE(store->progress("audit"));
}

/* In what SQLite takes for sound. */
TEST_F(StoreFailure, WithAChangedValueIsNotStartedAndKept) {
  store->set_config(ArchiveConfig(), true);
  store->add_section({"audit", 0});
  store->begin_item(intent(), 1);
  store->finish_item(intent());
  store->begin_item(intent(0, 4), 2);
  store->finish_item(intent(0, 4));
  store->begin_item(intent(), 3);
  store->note_look("audit", Progress{identity_of(file()), 4, 10, 5}, {}, Store::Known::archived);
  const ClosedFile waiting{"/var/log/b", {identity_of(file()), 10, 20}};
  store->note_seen("audit", "/var/log/*", std::nullopt, {{}, {&waiting}});
  store.reset();
  const std::string content = read_file(database);
  for (const char* change :
       {"number SET value = value + 1", "text SET value = CAST('other' AS BLOB)", "section SET compartment = 1",
        "section SET last_item_ms = last_item_ms + 1", "archived SET size = size + 1", "archived SET inode = inode + 1",
        "progress SET offset = offset + 1", "intent SET first = first + 1", "intent SET path = CAST('other' AS BLOB)",
        "intent SET announced = 7", "archived SET passed_over = 1", "progress SET log = CAST('other' AS BLOB)",
        "seen SET size = size + 1", "seen SET path = CAST('other' AS BLOB)", "archived SET passed_over = x''",
        "intent SET log = 0", "begun SET offset = offset + 1", "begun SET size = size + 1"}) {
    run(std::string("UPDATE ") + change);
    const std::string changed = read_file(database);
    EXPECT_EQ(error_of_opening(), database + ": damaged: a value has changed") << change;
    EXPECT_EQ(read_file(database), changed) << change;
    write_file(database, content);
  }
  EXPECT_EQ(error_of_opening(), "none");
}

/* Not taken over, which would give changed values the sums that they lack. */
TEST_F(StoreFailure, WithAChangedVersionIsNotStarted) {
  store.reset();
  for (const char* version : {"1", "2", "-2147483645"}) {
    run(std::string("PRAGMA user_version = ") + version);
    EXPECT_EQ(error_of_opening(), database + ": damaged: its version has changed") << version;
  }
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
  std::vector<size_t> sizes = {0, 1, 15, 16, 99, 100, 101, 499};
  for (size_t size = 500; size < whole.size() - page_size; size += 509) sizes.push_back(size);
  for (const size_t size : sizes) {
    write_file(database, whole.substr(0, size));
    EXPECT_THAT(error_of_opening(), HasSubstr(database + ": ")) << size;
    EXPECT_TRUE(read_file(database) == whole.substr(0, size)) << size;
  }
}

TEST_F(StoreFailure, InWhichNoTableIsIsNotStarted) {
  store.reset();
  unlink(database.c_str());
  run("PRAGMA user_version = 0; VACUUM");
  EXPECT_EQ(error_of_opening(), database + ": damaged: nothing is in it");
}

TEST_F(StoreFailure, WithTheLogOfADatabaseThatIsMissingIsNotStartedAndKept) {
  store.reset();
  for (const char* rest : {"-wal", "-journal"}) {
    unlink(database.c_str());
    write_file(database + rest, "changes");
    EXPECT_EQ(error_of_opening(), database + rest + ": what it belongs to is missing");
    EXPECT_EQ(read_file(database + rest), "changes");
    unlink((database + rest).c_str());
  }
}

/* Nor is what it leads to made, which would be empty. */
TEST_F(StoreFailure, BehindALinkThatLeadsNowhereIsNotStarted) {
  store.reset();
  unlink(database.c_str());
  const std::string elsewhere = directory.path("elsewhere");
  ASSERT_EQ(symlink(elsewhere.c_str(), database.c_str()), 0);
  EXPECT_EQ(error_of_opening(), database + ": unable to open database file");
  EXPECT_NE(access(elsewhere.c_str(), F_OK), 0);
}

/* All that a kill can leave: an empty file, and one that has not got its name yet. */
TEST_F(StoreFailure, ThatWasKilledAtItsFirstStartIsMadeByTheNext) {
  store.reset();
  const std::string whole = read_file(database);
  for (const std::string& left : {std::string(), whole}) {
    unlink(database.c_str());
    write_file(database + ".new", left);
    EXPECT_EQ(error_of_opening(), "none");
    EXPECT_TRUE(access(database.c_str(), F_OK) == 0 && access((database + ".new").c_str(), F_OK) != 0);
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
  store->begin_item(intent(0, 4), 4711);
  store->finish_item(intent(0, 4));
  store->note_look("audit", Progress{identity_of(file()), 10, 10, file().mtime_ns, true}, {}, Store::Known::archived);
  Intent piece = intent(4, 6, true);
  piece.log = "/log";
  piece.compressed = true;
  piece.announced = 5;
  store->begin_item(piece, 4712);
  const ClosedFile waiting{"/var/log/b", {identity_of(file()), 10, 20}};
  store->note_seen("audit", "/var/log/*", std::nullopt, {{}, {&waiting}});
  store->add_error("error");
  store.reset();
  EXPECT_EQ(rows("SELECT CAST(name AS TEXT), value FROM number"),
            "claimed 0, configured 1, enabled 1, space_limit.0 1000, space_limit.1 -1");
  EXPECT_EQ(rows("SELECT quote(name), quote(value) FROM text LIMIT 1"), "X'636F6E6669672E646972' X'2F69742773'");
  EXPECT_EQ(rows("SELECT quote(serialised) FROM error"), "X'6572726F72'");
  EXPECT_EQ(rows("SELECT quote(name), compartment, last_item_ms FROM section"), "X'6175646974' 0 4712");
  const std::string identity = "-1 -9223372036854775807 4 760847531035462659";
  EXPECT_EQ(rows("SELECT quote(section), device, inode, head_length, head_checksum, size, mtime_ns, passed_over"
                 " FROM archived"),
            "X'6175646974' " + identity + " 10 123456789012345678 0");
  EXPECT_EQ(rows("SELECT quote(section), quote(log), device, inode, head_length, head_checksum, offset, seen, mtime_ns,"
                 " finished FROM progress"),
            "X'6175646974' X'' " + identity + " 10 10 123456789012345678 1");
  EXPECT_EQ(rows("SELECT quote(path), device, inode, size, mtime_ns, quote(head), follows, grows, first, length,"
                 " quote(log), compressed, announced FROM intent"),
            "X'2F7661722F6C6F672F610A62FF' -1 -9223372036854775807 10 123456789012345678 X'68656164' 1 1 4 6"
            " X'2F6C6F67' 1 5");
  EXPECT_EQ(rows("SELECT quote(section), device, inode, head_length, head_checksum, size, mtime_ns, quote(log),"
                 " quote(path) FROM seen"),
            "X'6175646974' " + identity + " 10 20 X'2F7661722F6C6F672F2A' X'2F7661722F6C6F672F62'");
  EXPECT_EQ(rows("SELECT quote(section), device, inode, head_length, head_checksum, size, mtime_ns, offset FROM begun"),
            "X'6175646974' " + identity + " 10 123456789012345678 4");
}
