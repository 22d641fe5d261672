#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/files.h"
#include "tavrend/store_fixture.h"

using testing::ElementsAre;

namespace {

/* What looks have found. */
class SeenInStore : public StoreTest {
 protected:
  static LogFile numbered(int number) {
    const std::string head = "file " + std::to_string(number);
    return {"/var/log/" + head, 1, static_cast<uint64_t>(number), static_cast<int64_t>(head.size()), number, head};
  }

  void see(const std::vector<int>& numbers, const std::string& pattern = "/var/log/*") {
    std::vector<ClosedFile> waiting;
    for (const int number : numbers) {
      const LogFile now = numbered(number);
      waiting.push_back({now.path, {identity_of(now), now.size, now.mtime_ns}});
    }
    SeenFiles seen(store->seen_files("audit", pattern));
    for (const int number : numbers) seen.see(numbered(number));
    store->note_seen("audit", pattern, std::nullopt, seen.changes(waiting));
  }

  std::vector<uint64_t> seen(const std::string& section = "audit", const std::string& pattern = "/var/log/*") {
    std::vector<uint64_t> inodes;
    for (const ArchivedFile& file : store->seen_files(section, pattern)) inodes.push_back(file.identity.inode);
    return inodes;
  }

  static Intent whole(int number) {
    return {"audit", "audit/" + std::to_string(number), numbered(number), false, false, 0, numbered(number).size};
  }

  /* Has a part of a closed file arrive. Returns the file. */
  ArchivedFile archive_a_part_of(int number) {
    Intent part = whole(number);
    part.length = 2;
    store->begin_item(part, 5);
    store->finish_item(part);
    return {identity_of(part.file), part.file.size, part.file.mtime_ns};
  }

  std::string all_files() const { return read_file(database) + read_file(database + "-wal"); }
};

}  // namespace

TEST_F(SeenInStore, IsKept) {
  see({1, 2});
  reopen();
  EXPECT_THAT(seen(), ElementsAre(1, 2));
  EXPECT_EQ(store->path_of_seen("audit", identity_of(numbered(2))), "/var/log/file 2");
  EXPECT_EQ(store->path_of_seen("audit", identity_of(numbered(3))), "");
}

TEST_F(SeenInStore, IsWrittenOnlyWhenSomethingIsNew) {
  see({1, 2});
  const std::string before = all_files();
  see({1, 2});
  EXPECT_TRUE(all_files() == before);
  see({1, 2, 3});
  EXPECT_FALSE(all_files() == before);
}

TEST_F(SeenInStore, IsWhatIsNotArchived) {
  see({1, 2});
  store->begin_items({whole(1), whole(2)}, 5);
  EXPECT_THAT(seen(), ElementsAre(1, 2));
  store->finish_item(whole(1));
  EXPECT_THAT(seen(), ElementsAre(2));
  store->give_up_item(whole(2));
  EXPECT_THAT(seen(), ElementsAre(2));
}

/* Of a part the rest is waiting. */
TEST_F(SeenInStore, IsAClosedFileOfWhichAPartIsArchived) {
  see({1});
  archive_a_part_of(1);
  EXPECT_THAT(seen(), ElementsAre(1));
}

TEST_F(SeenInStore, IsForgottenWithThePartOfItThatIsArchived) {
  see({1});
  const ArchivedFile file = archive_a_part_of(1);
  EXPECT_EQ(store->begun_at("audit", file), 2);
  store->forget_seen("audit", file.identity);
  EXPECT_EQ(store->begun_at("audit", file), 0);
}

/* It was rotated, and a process that has it open still writes there. */
TEST_F(SeenInStore, IsALogOfWhichALookHasFoundMoreThanHasArrived) {
  Intent rest = whole(1);
  rest.follows = true;
  rest.log = "/var/log/a";
  LogFile grown = numbered(1);
  grown.size += 1;
  const ClosedFile waiting{grown.path, {identity_of(grown), grown.size, grown.mtime_ns}};
  for (const char* piece : {"the whole", "a late end"}) {
    store->begin_item(rest, 5);
    store->note_seen("audit", "/var/log/*", std::nullopt, {{}, {&waiting}});
    store->finish_item(rest);
    EXPECT_THAT(seen(), ElementsAre(1)) << piece;
  }
}

/* What there is of that says the log's progress. */
TEST_F(SeenInStore, IsNotTheLogThatIsArchivedInPieces) {
  see({1});
  Intent piece = whole(1);
  piece.length = 2;
  piece.follows = piece.grows = true;
  piece.log = "/var/log/a";
  store->begin_item(piece, 5);
  store->finish_item(piece);
  EXPECT_THAT(seen(), ElementsAre());
  EXPECT_EQ(store->progress("audit", "/var/log/a")->offset, 2);
}

TEST_F(SeenInStore, IsOfThePresentPatternAlone) {
  see({1, 2});
  see({3}, "/srv/*");
  EXPECT_THAT(seen(), ElementsAre());
  EXPECT_THAT(seen("audit", "/srv/*"), ElementsAre(3));
}

TEST_F(SeenInStore, IsForgottenOneByOne) {
  see({1, 2});
  store->forget_seen("audit", identity_of(numbered(1)));
  reopen();
  EXPECT_THAT(seen(), ElementsAre(2));
}

TEST_F(SeenInStore, KnowsHowMuchThereIsOfALog) {
  const Progress progress{identity_of(numbered(1)), 2, 7, 8, false, "/var/log/a"};
  store->note_seen("audit", "/var/log/a", progress, {});
  reopen();
  EXPECT_TRUE(store->progress("audit", "/var/log/a") == progress);
  EXPECT_TRUE(store->has_followed("audit"));
  EXPECT_FALSE(store->progress("audit"));
}
