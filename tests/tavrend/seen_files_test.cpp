#include "plan/seen_files.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "plan/rotated_away.h"

namespace {

LogFile file(uint64_t inode, const std::string& content, int64_t mtime_ns) {
  return {"a", 1, inode, static_cast<int64_t>(content.size()), mtime_ns, content.substr(0, head_size)};
}

ArchivedFile as(const LogFile& log) { return {identity_of(log), log.size, log.mtime_ns}; }

ClosedFile waiting(const LogFile& log) { return {log.path, as(log)}; }

constexpr int64_t second_ns = 1000000000;

LogFile gzip(uint64_t inode, int64_t mtime_ns, int64_t plain_size = -1) {
  LogFile form = file(inode, "\x1F\x8B" + std::to_string(inode), mtime_ns);
  form.plain_size = plain_size;
  return form;
}

}  // namespace

TEST(SeenFiles, AreNotedOnce) {
  const LogFile one = file(1, "one", 10);
  const std::vector<ClosedFile> waits = {waiting(one)};
  SeenFiles none({});
  none.see(one);
  ASSERT_EQ(none.changes(waits).fresh.size(), 1U);
  EXPECT_EQ(none.changes(waits).fresh[0], waits.data());
  SeenFiles again({as(one)});
  again.see(one);
  EXPECT_TRUE(again.changes(waits).fresh.empty());
  EXPECT_TRUE(again.changes(waits).outdated.empty());
}

TEST(SeenFiles, ThatHaveGrownAreNotedAnew) {
  const LogFile now = file(1, "one more", 20);
  SeenFiles seen({as(file(1, "one", 10))});
  seen.see(now);
  const std::vector<ClosedFile> waits = {waiting(now)};
  EXPECT_EQ(seen.changes(waits).fresh.size(), 1U);
  ASSERT_EQ(seen.changes(waits).outdated.size(), 1U);
  EXPECT_EQ(seen.changes(waits).outdated[0].head_length, 3U);
  EXPECT_TRUE(seen.missing().empty());
}

TEST(SeenFiles, ThatWaitNoMoreAreForgotten) {
  const LogFile one = file(1, "one", 10);
  SeenFiles seen({as(one)});
  seen.see(one);
  EXPECT_EQ(seen.changes({}).outdated.size(), 1U);
  EXPECT_TRUE(seen.missing().empty());
}

TEST(SeenFiles, AreMissingOldestFirst) {
  SeenFiles seen({as(file(1, "one", 20)), as(file(2, "two", 10)), as(file(3, "three", 15))});
  seen.see(file(3, "three", 15));
  ASSERT_EQ(seen.missing().size(), 2U);
  EXPECT_EQ(seen.missing()[0].identity.inode, 2U);
  EXPECT_EQ(seen.missing()[1].identity.inode, 1U);
  EXPECT_TRUE(seen.changes({}).outdated.size() == 1) << "what is missing is reported first";
}

TEST(SeenFiles, AreMissingWhereAnotherFileHasTheInode) {
  SeenFiles seen({as(file(1, "one", 10))});
  seen.see(file(1, "two", 10));
  EXPECT_EQ(seen.missing().size(), 1U);
}

/* It begins as before, so that only its length tells. */
TEST(SeenFiles, ThatGotShorterAreMissing) {
  const std::string beginning(head_size, 'x');
  SeenFiles seen({as(file(1, beginning + "rest", 10))});
  seen.see(file(1, beginning, 20));
  EXPECT_EQ(seen.missing().size(), 1U);
}

TEST(SeenFiles, OfNothingAreNotNoted) {
  const LogFile empty = file(1, "", 10);
  SeenFiles seen({});
  seen.see(empty);
  EXPECT_TRUE(seen.changes({waiting(empty)}).fresh.empty());
}

TEST(CopyOfAFile, BeginsLikeItAndHasAllThatWasSeen) {
  const ArchivedFile seen = as(file(1, "one", 10));
  EXPECT_TRUE(has_copy(seen, {file(2, "one more", 20)}, {}));
  EXPECT_FALSE(has_copy(seen, {file(2, "on", 20)}, {}));
  EXPECT_FALSE(has_copy(seen, {file(2, "two more", 20)}, {}));
  EXPECT_FALSE(has_copy(seen, {file(2, "one more", 20)}, {identity_of(file(2, "one more", 20))}));
  EXPECT_FALSE(has_copy(as(file(1, "", 10)), {file(2, "one", 20)}, {}));
  const std::string beginning(head_size, 'x');
  EXPECT_FALSE(has_copy(as(file(1, beginning + "rest", 10)), {file(2, beginning, 20)}, {}));
}

TEST(CompressedForm, HasTheTimeOrTheLengthOfTheFile) {
  const ArchivedFile seen = as(file(1, "one", 5 * second_ns + 1));
  EXPECT_TRUE(compressed_form(seen, {gzip(2, 5 * second_ns)}, {}));
  EXPECT_TRUE(compressed_form(seen, {gzip(2, 9 * second_ns, 3)}, {}));
  EXPECT_FALSE(compressed_form(seen, {gzip(2, 9 * second_ns, 4)}, {}));
  EXPECT_FALSE(compressed_form(seen, {file(2, "one", 5 * second_ns)}, {}));
  EXPECT_FALSE(compressed_form(seen, {gzip(2, 5 * second_ns)}, {identity_of(gzip(2, 0))}));
}

TEST(CompressedForm, OfALogThatWasTruncatedIsTheOldestThatIsLongEnough) {
  const LogFile log = file(1, "one\n", 5 * second_ns);
  const Progress progress{identity_of(log), 4, 4, log.mtime_ns, false};
  const std::vector<LogFile> beside = {gzip(3, 9 * second_ns, 9), gzip(2, 7 * second_ns, 8), gzip(4, 6 * second_ns, 2)};
  const LogFile emptied = file(1, "", 8 * second_ns);
  ASSERT_TRUE(compressed_form(progress, emptied, beside, {}));
  EXPECT_EQ(compressed_form(progress, emptied, beside, {})->inode, 2U);
  EXPECT_FALSE(compressed_form(progress, file(5, "", 8 * second_ns), beside, {})) << "it was renamed";
  EXPECT_FALSE(compressed_form(progress, log, beside, {})) << "it is there";
  std::vector<LogFile> with_copy = beside;
  with_copy.push_back(file(6, "one\n", 8 * second_ns));
  EXPECT_FALSE(compressed_form(progress, emptied, with_copy, {})) << "a copy is there";
}

TEST(CompressedForm, IsAllArchivedAsItSaysOrAsItsTimeDoes) {
  Progress progress{{}, 4, 4, 5, false};
  EXPECT_TRUE(is_all_archived(progress, gzip(2, 9, 4)));
  EXPECT_FALSE(is_all_archived(progress, gzip(2, 5, 5)));
  EXPECT_TRUE(is_all_archived(progress, gzip(2, 5)));
  EXPECT_FALSE(is_all_archived(progress, gzip(2, 6)));
  progress.seen = 5;
  EXPECT_FALSE(is_all_archived(progress, gzip(2, 5)));
  EXPECT_EQ(end_of_file(gzip(2, 5), 5), 5);
  EXPECT_EQ(end_of_file(gzip(2, 5, 7), 5), 7);
}

/* As it does of 4 GiB and more. */
TEST(CompressedForm, ThatSaysLessThanWasSeenIsNotBelieved) {
  const Progress progress{{}, 40, 100, 5, false};
  EXPECT_FALSE(is_all_archived(progress, gzip(2, 5, 7)));
  EXPECT_EQ(end_of_file(gzip(2, 5, 7), 100), 100);
}

TEST(CompressedForm, OfALogOfWhichNothingIsArchivedIsNoEmptyOne) {
  const LogFile log = file(1, "one\ntwo\n", 5 * second_ns);
  const Progress progress{identity_of(log), 0, 8, log.mtime_ns, false};
  const LogFile present = file(9, "", 20 * second_ns);
  EXPECT_FALSE(compressed_form(progress, present, {gzip(2, 9 * second_ns, 0)}, {}));
  EXPECT_TRUE(compressed_form(progress, present, {gzip(2, 9 * second_ns, 0), gzip(3, 9 * second_ns, 8)}, {}));
}

TEST(CompressedForm, IsLeftOutWhileItIsMade) {
  LogFile plain = file(1, "one\n", 10);
  plain.path = "m.1";
  LogFile form = gzip(2, 20);
  form.path = "m.1.gz";
  LogFile other = gzip(3, 20);
  other.path = "m.2.gz";
  LogFile without_ending = gzip(4, 20);
  without_ending.path = "m-3";
  std::vector<LogFile> beside = {plain, form, other, without_ending};
  leave_out_unfinished_forms(beside);
  ASSERT_EQ(beside.size(), 3U);
  EXPECT_EQ(beside[0].path + " " + beside[1].path + " " + beside[2].path, "m.1 m.2.gz m-3");
  form.mtime_ns = plain.mtime_ns;
  beside.push_back(form);
  leave_out_unfinished_forms(beside);
  EXPECT_EQ(beside.size(), 4U) << "it is finished";
}
