#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <string>

#include "archiver/desk.h"
#include "support/real_function.h"
#include "tavrend/store_fixture.h"

namespace {

int syncs = 0;
std::function<void(const std::string& path)> after_sync;

}  // namespace

/* All that SQLite makes files permanent with. */
STANDS_BEFORE_THE_REAL_ONE int fdatasync(int fd) {
  const int result = real<int(int)>("fdatasync")(fd);
  ++syncs;
  const std::string file = "/proc/self/fd/" + std::to_string(fd);
  if (after_sync) after_sync(std::filesystem::read_symlink(file));
  return result;
}

namespace {

/* Of each of the store's files only what was there when that was synced survives. */
class PowerCut : public StoreTest {
 protected:
  PowerCut() {
    store.reset();
    std::filesystem::copy(path, disk);
    after_sync = [this](const std::string& file) { keep(file); };
    reopen();
    store->add_section({"audit", 0});
  }
  ~PowerCut() override { after_sync = nullptr; }

  void keep(const std::string& file) const {
    const std::filesystem::path of = file;
    if (of.parent_path() != path) return;
    std::filesystem::copy_file(of, disk / of.filename(), std::filesystem::copy_options::overwrite_existing);
  }

  /* What is there after a power cut now. */
  std::unique_ptr<Store> survivor() const {
    std::filesystem::remove_all(machine);
    std::filesystem::copy(disk, machine);
    return std::make_unique<Store>(machine);
  }

  /* Returns how often change waits for the disk. */
  static int syncs_of(const std::function<void()>& change) {
    const int before = syncs;
    change();
    return syncs - before;
  }

  const std::filesystem::path disk = directory.path("disk");
  const std::string machine = directory.path("machine");
};

}  // namespace

TEST_F(PowerCut, TakesNoConfiguration) {
  store->set_config(config(), true);
  EXPECT_TRUE(survivor()->config());
}

TEST_F(PowerCut, TakesNoIntent) {
  store->begin_item(intent(), 4711);
  EXPECT_FALSE(survivor()->open_intents("audit").empty());
  EXPECT_EQ(survivor()->last_item_time("audit"), 4711);
}

TEST_F(PowerCut, TakesNoItemThatIsDone) {
  store->begin_item(intent(), 1);
  store->finish_item(intent());
  EXPECT_TRUE(survivor()->open_intents("audit").empty());
  EXPECT_EQ(survivor()->archived_files("audit").size(), 1U);
}

TEST_F(PowerCut, TakesNoMoreThanTheLastItem) {
  store->begin_item(intent(), 1);
  store->finish_item_on_disk_later(intent());
  store->begin_item(intent(0, 4), 2);
  store->finish_item_on_disk_later(intent(0, 4));
  EXPECT_EQ(survivor()->archived_files("audit").size(), 1U);
  ASSERT_FALSE(survivor()->open_intents("audit").empty());
  EXPECT_EQ(survivor()->open_intents("audit").at(0).length, 4);
}

TEST_F(PowerCut, TakesNothingBehindASync) {
  store->begin_item(intent(), 1);
  store->finish_item_on_disk_later(intent());
  store->sync();
  EXPECT_EQ(survivor()->archived_files("audit").size(), 1U);
}

TEST_F(PowerCut, TakesNoFileThatSomebodyWasToldOf) {
  Desk desk(*store, {}, "chassis");
  store->begin_item(intent(), 1);
  store->finish_item_on_disk_later(intent());
  EXPECT_EQ(desk.archived_files("audit").size(), 1U);
  EXPECT_EQ(survivor()->archived_files("audit").size(), 1U);
}

/* As after any change: the one that may wait says it for itself alone. */
TEST_F(PowerCut, TakesNoChangeBehindOneThatMayWait) {
  store->begin_item(intent(), 1);
  store->finish_item_on_disk_later(intent());
  store->add_error("error");
  EXPECT_EQ(survivor()->errors().size(), 1U);
}

TEST_F(PowerCut, TakesNoChangeBehindAFailedOneThatMightHaveWaited) {
  store.reset();
  run("CREATE TRIGGER failure BEFORE INSERT ON archived BEGIN SELECT RAISE(ABORT, 'failure'); END");
  reopen();
  EXPECT_THROW(store->finish_item_on_disk_later(intent()), StoreError);
  store->add_error("error");
  EXPECT_EQ(survivor()->errors().size(), 1U);
}

TEST_F(PowerCut, IsProvidedForByOneWriteAnItem) {
  store->begin_item(intent(), 1);
  EXPECT_EQ(syncs_of([this] {
              store->finish_item_on_disk_later(intent());
              store->begin_item(intent(), 2);
            }),
            1);
}

TEST_F(PowerCut, IsNoMatterWhileNothingChanges) {
  store->sync();
  EXPECT_EQ(syncs_of([this] { store->sync(); }), 0);
}

/* A log without its database is refused at the next start. */
TEST_F(PowerCut, AtTheFirstStartLeavesNoLogWithoutTheDatabase) {
  const std::string other = directory.path("other");
  const auto is_there = [&other](const char* name) { return std::filesystem::exists(other + "/" + name); };
  bool is_kept = false;
  after_sync = [&](const std::string& file) {
    const bool has_no_log = !is_there("tavrend.db-journal") && !is_there("tavrend.db-wal");
    is_kept = is_kept || (file == other && is_there("tavrend.db") && has_no_log);
  };
  const Store first(other);
  EXPECT_TRUE(is_kept);
}
