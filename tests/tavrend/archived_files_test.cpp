#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "support/files.h"
#include "tavrend/store_fixture.h"

using testing::ElementsAre;

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
    look_at(found, when_ms);
  }

  void look_at(const std::vector<LogFile>& found, int64_t when_ms) {
    ClosedFiles look(store->archived_files("audit"));
    for (const LogFile& file : found) look.see(file);
    store->forget_missing_files("audit", look, when_ms);
  }

  /* The inodes of the files that are known. */
  std::vector<uint64_t> known(const std::string& section = "audit") {
    std::vector<uint64_t> inodes;
    for (const Identity& identity : store->known_files(section)) inodes.push_back(identity.inode);
    return inodes;
  }

  /* A change stands in the log beside the database until that is full. */
  std::string all_files() const { return read_file(database) + read_file(database + "-wal"); }

  bool is_written_by(const std::function<void()>& action) const {
    const std::string before = all_files();
    action();
    return all_files() != before;
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

/* Or there would be a row more for each time that it changes, as long as it is there. */
TEST_F(StoreOfArchivedFiles, ForgetsInAWeekWhatOneWasThatHasChanged) {
  LogFile file = numbered(1);
  for (int64_t state = 1; state <= 3; ++state) {
    file.mtime_ns = state;
    const Intent whole{"audit", "audit/x", file, false, false, 0, file.size};
    store->begin_item(whole, state);
    store->finish_item(whole);
  }
  look_at({file}, now_ms);
  look_at({file}, now_ms + 7 * day_ms - 1);
  EXPECT_THAT(known(), ElementsAre(1, 1, 1));
  look_at({file}, now_ms + 7 * day_ms);
  EXPECT_THAT(known(), ElementsAre(1));
  ClosedFiles again(store->archived_files("audit"));
  again.see(file);
  EXPECT_TRUE(again.take_waiting().empty());
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
  look({2}, now_ms);
  look_at({renamed}, now_ms + 7 * day_ms);
  EXPECT_THAT(known(), ElementsAre(1));
}

TEST_F(StoreOfArchivedFiles, ForgetsTheOneWhoseInodeHasAnotherFile) {
  archive("audit", 1);
  LogFile other = numbered(1);
  other.head = "other";
  look_at({other}, now_ms);
  look_at({other}, now_ms + 7 * day_ms);
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
  store->note_look("messages", progress_of(numbered(1), 3), {numbered(2), numbered(3)}, Store::Known::passed_over);
  reopen();
  ASSERT_TRUE(store->progress("messages"));
  EXPECT_TRUE(*store->progress("messages") == progress_of(numbered(1), 3));
  EXPECT_THAT(known("messages"), ElementsAre(2, 3));
  store->note_look("messages", std::nullopt, {numbered(3), numbered(4)}, Store::Known::passed_over);
  EXPECT_TRUE(*store->progress("messages") == progress_of(numbered(1), 3));
  EXPECT_THAT(known("messages"), ElementsAre(2, 3, 4));
}

TEST_F(StoreOfArchivedFiles, IsNotWrittenWhenALookHasShownNothingNew) {
  store->note_look("messages", progress_of(numbered(1), 3), {numbered(2)}, Store::Known::passed_over);
  EXPECT_FALSE(is_written_by([this] {
    store->note_look("messages", progress_of(numbered(1), 3), {numbered(2)}, Store::Known::passed_over);
    store->note_look("messages", std::nullopt, {}, Store::Known::passed_over);
  }));
  EXPECT_TRUE(is_written_by(
      [this] { store->note_look("messages", progress_of(numbered(1), 4), {}, Store::Known::passed_over); }));
  EXPECT_EQ(store->progress("messages")->offset, 4);
}
