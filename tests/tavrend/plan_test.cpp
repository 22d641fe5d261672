#include <gtest/gtest.h>

#include <random>
#include <set>
#include <string>
#include <vector>

#include "plan/closed_files.h"
#include "plan/growing_file.h"
#include "plan/names.h"
#include "plan/rotated_away.h"
#include "plan/schedule.h"
#include "plan/space.h"

namespace {

LogFile file(const std::string& path, uint64_t inode, const std::string& content, int64_t mtime_ns) {
  return {path, 1, inode, static_cast<int64_t>(content.size()), mtime_ns, content.substr(0, head_size)};
}

Progress progress_in(const LogFile& log, int64_t offset) {
  return {identity_of(log), offset, log.size, log.mtime_ns, false};
}

/* What is planned, one word for each stretch: name:first-end, "+" behind one that grows, "!" behind one that is lost.
 */
std::string words_of(const std::vector<Stretch>& plan) {
  std::string words;
  for (const Stretch& s : plan) {
    words += (words.empty() ? "" : " ") + s.file.path + ":" + std::to_string(s.first) + "-" + std::to_string(s.end) +
             (s.grows ? "+" : "") + (s.lost ? "!" : "");
  }
  return words;
}

std::vector<std::string> paths_of(const std::vector<LogFile>& files) {
  std::vector<std::string> paths;
  for (const LogFile& f : files) paths.push_back(f.path);
  return paths;
}

using Paths = std::vector<std::string>;

}  // namespace

TEST(ItemName, SortsByTheTimeOfArchiving) {
  EXPECT_EQ(time_stamp(1763792991123), "2025-11-22T06:29:51.123");
  EXPECT_EQ(time_stamp(0), "1970-01-01T00:00:00.000");
  EXPECT_EQ(item_path("audit", 1763792991007, "audit.log.1", false), "audit/2025-11-22T06:29:51.007.audit.log.1");
  EXPECT_EQ(item_path("audit", 0, "log", true), "audit/1970-01-01T00:00:00.000.log.zst");
}

TEST(ItemName, TellsTheFormOfTheItem) {
  EXPECT_TRUE(is_item_of(item_path("audit", 1, "log", true), "log", true));
  EXPECT_FALSE(is_item_of(item_path("audit", 1, "log", true), "log", false));
  EXPECT_TRUE(is_item_of(item_path("audit", 1, "log.zst", false), "log.zst", false));
  EXPECT_FALSE(is_item_of(item_path("audit", 1, "log.zst", false), "log.zst", true));
  EXPECT_FALSE(is_item_of(item_path("audit", 1, "log", false), "other", false));
  EXPECT_FALSE(is_item_of("audit/log", "log", false));
}

TEST(ItemName, HasNoControlCharacters) {
  EXPECT_EQ(item_path("s", 0,
                      "a\nb\tc\x7F"
                      "d\x1F",
                      false),
            "s/1970-01-01T00:00:00.000.a_b_c_d_");
}

TEST(ItemName, HasTheBytesBeyondAsciiOfTheLocalOne) {
  EXPECT_EQ(item_path("s", 0, "\xC3\xA4\x80\xFF", false), "s/1970-01-01T00:00:00.000.\xC3\xA4\x80\xFF");
}

TEST(ItemName, HasTwoHundredBytesOfTheLocalOne) {
  EXPECT_EQ(item_path("s", 0, std::string(200, 'x'), false).size(), 26 + 200U);
  EXPECT_EQ(item_path("s", 0, std::string(201, 'x') + ".1", false).size(), 26 + 200U);
}

TEST(ItemTime, IsLaterThanTheLastOneAlsoByAClockThatWasSetBack) {
  EXPECT_EQ(next_item_time(1000, 0), 1000);
  EXPECT_EQ(next_item_time(1000, 999), 1000);
  EXPECT_EQ(next_item_time(1000, 1000), 1001);
  EXPECT_EQ(next_item_time(1000, 5000), 5001);
}

TEST(RoomFor, IsTheLimitInMegabytesOf1024Kibibytes) {
  EXPECT_EQ(room_for(1024 * 1024, 0, 1), Room::fits);
  EXPECT_EQ(room_for(1024 * 1024 + 1, 0, 1), Room::never);
  EXPECT_EQ(room_for(1024, 1023, 1), Room::fits);
  EXPECT_EQ(room_for(1025, 1023, 1), Room::after_removing_the_oldest);
  EXPECT_EQ(room_for(0, 1024, 1), Room::fits);
  EXPECT_EQ(room_for(0, 1025, 1), Room::after_removing_the_oldest);
  EXPECT_EQ(room_for(1, 0, 0), Room::never);
}

TEST(RoomFor, IsThereWithoutALimit) {
  EXPECT_EQ(room_for(int64_t{1} << 50, int64_t{1} << 50, no_space_limit), Room::fits);
}

TEST(Interval, IsReadWithItsUnit) {
  EXPECT_EQ(parse_interval("1"), 1);
  EXPECT_EQ(parse_interval("90s"), 90);
  EXPECT_EQ(parse_interval("10min"), 600);
  EXPECT_EQ(parse_interval("1h"), 3600);
  EXPECT_EQ(parse_interval("365d"), 31536000);
  EXPECT_EQ(parse_interval("31536000"), 31536000);
}

TEST(Interval, ThatIsNoneIsZero) {
  for (const char* text : {"", "0", "-1", "s", "1 h", "1H", "1m", "1.5h", " 1", "1 ", "366d", "31536001", "0x10", "+1",
                           "99999999999999999999", "1hh"}) {
    EXPECT_EQ(parse_interval(text), 0) << text;
  }
}

TEST(FirstRun, IsSomewhereInTheInterval) {
  int early = 0;
  for (int i = 0; i < 1000; ++i) {
    const int64_t delay = first_delay_ms("CH-" + std::to_string(i), "LogTypeTask.audit", 3600);
    EXPECT_GE(delay, 0);
    EXPECT_LT(delay, 3600000);
    if (delay < 1800000) ++early;
  }
  EXPECT_GT(early, 400);
  EXPECT_LT(early, 600);
}

TEST(FirstRun, OfAChassisAndATaskIsAlwaysTheSame) {
  EXPECT_EQ(first_delay_ms("CH-1", "a", 3600), first_delay_ms("CH-1", "a", 3600));
  EXPECT_NE(first_delay_ms("CH-1", "a", 3600), first_delay_ms("CH-1", "b", 3600));
}

TEST(Retry, IsWaitedForATenthMoreOrLess) {
  EXPECT_EQ(retry_delay_ms(300, 0.0), 270000);
  EXPECT_EQ(retry_delay_ms(300, 0.5), 300000);
  EXPECT_EQ(retry_delay_ms(300, 1.0), 330000);
}

TEST(Retry, IsNeverAtOnce) {
  EXPECT_EQ(retry_delay_ms(0, 0.5), 1000);
  EXPECT_EQ(retry_delay_ms(-5, 0.5), 1000);
}

TEST(Retry, IsDrawnOtherwiseByEachChassisAlsoWhenTheirClocksBeginAlike) {
  std::set<double> draws;
  for (int i = 0; i < 1000; ++i) {
    std::minstd_rand random(first_of_draws("CH-" + std::to_string(i), 23412));
    draws.insert(std::uniform_real_distribution<>(0, 1)(random));
  }
  EXPECT_EQ(draws.size(), 1000U);
  EXPECT_LT(*draws.begin(), 0.02);
  EXPECT_GT(*draws.rbegin(), 0.98);
}

TEST(Retry, IsDrawnOtherwiseWithEachStart) { EXPECT_NE(first_of_draws("CH-1", 23412), first_of_draws("CH-1", 23413)); }

TEST(NextRun, KeepsItsPlace) {
  EXPECT_EQ(next_due_ms(1000, 1000, 10), 11000);
  EXPECT_EQ(next_due_ms(1000, 1500, 10), 11000);
  EXPECT_EQ(next_due_ms(1000, 10999, 10), 11000);
  EXPECT_EQ(next_due_ms(1000, 11000, 10), 21000);
  EXPECT_EQ(next_due_ms(1000, 999999, 10), 1001000);
}

namespace {

ArchivedFile archived(const LogFile& file) { return {identity_of(file), file.size, file.mtime_ns}; }

Paths paths_to_archive(const std::vector<LogFile>& found, const std::vector<ArchivedFile>& archived) {
  ClosedFiles look(archived);
  for (const LogFile& file : found) look.see(file);
  Paths paths;
  for (const ClosedFile& file : look.take_waiting()) paths.push_back(file.path);
  return paths;
}

}  // namespace

TEST(LogFile, IsCompressedIfItBeginsLikeThat) {
  using namespace std::string_literals;
  for (const std::string& beginning :
       {"\x1F\x8B"s, "\x1F\x9D"s, "BZh"s, "\xFD\x37zXZ\0"s, "\x28\xB5\x2F\xFD"s, "\x04\x22\x4D\x18"s}) {
    EXPECT_TRUE(is_compressed(file("m", 1, beginning + " and more", 1))) << beginning;
    EXPECT_FALSE(is_compressed(file("m", 1, "x" + beginning, 1))) << beginning;
    EXPECT_FALSE(is_compressed(file("m", 1, beginning.substr(1), 1))) << beginning;
  }
}

TEST(ClosedFiles, ComeOldestFirst) {
  const std::vector<LogFile> found = {file("a.1", 11, "one", 300), file("a.3", 13, "three", 100),
                                      file("a.2", 12, "two", 200)};
  EXPECT_EQ(paths_to_archive(found, {}), (Paths{"a.3", "a.2", "a.1"}));
}

TEST(ClosedFiles, ThatWereArchivedUnderAnotherNameAreDone) {
  const LogFile before = file("a.1", 11, "one", 300);
  const ArchivedFile archived{identity_of(before), before.size, before.mtime_ns};
  EXPECT_EQ(paths_to_archive({file("a.2", 11, "one", 300)}, {archived}), Paths{});
}

TEST(ClosedFiles, ThatHaveChangedAreNew) {
  const LogFile before = file("a.1", 11, "one", 300);
  const ArchivedFile archived{identity_of(before), before.size, before.mtime_ns};
  EXPECT_EQ(paths_to_archive({file("a.1", 11, "one more", 300)}, {archived}), Paths{"a.1"});
  EXPECT_EQ(paths_to_archive({file("a.1", 11, "one", 301)}, {archived}), Paths{"a.1"});
}

TEST(ClosedFiles, OnAReusedInodeAreNew) {
  const LogFile before = file("a.1", 11, "one", 300);
  const ArchivedFile archived{identity_of(before), before.size, before.mtime_ns};
  EXPECT_EQ(paths_to_archive({file("a.1", 11, "two", 300)}, {archived}), Paths{"a.1"});
}

TEST(ClosedFiles, ThatBeginAlikeAreNotOne) {
  const LogFile before = file("a.1", 11, "one", 300);
  const ArchivedFile archived{identity_of(before), before.size, before.mtime_ns};
  EXPECT_EQ(paths_to_archive({file("a.2", 12, "one", 300)}, {archived}), Paths{"a.2"});
}

TEST(ClosedFiles, OfTwoNamesComeOnce) {
  EXPECT_EQ(paths_to_archive({file("a", 11, "one", 1), file("b", 11, "one", 1)}, {}), Paths{"a"});
  EXPECT_EQ(paths_to_archive({file("b", 11, "one", 1), file("a", 11, "one", 1)}, {}), Paths{"a"});
}

TEST(ClosedFiles, ThatChangeWhileTheyAreLookedForComeAsTheyWereSeenLast) {
  ClosedFiles look({});
  look.see(file("a", 11, "one", 1));
  look.see(file("b", 11, "two", 2));
  const std::vector<ClosedFile> waiting = look.take_waiting();
  ASSERT_EQ(waiting.size(), 1U);
  EXPECT_EQ(waiting[0].path, "b");
  EXPECT_TRUE(waiting[0].as == archived(file("b", 11, "two", 2)));
}

TEST(ClosedFiles, ThatWereArchivedAreMissingUnlessTheyWereSeen) {
  const LogFile known = file("a", 11, "one", 1);
  const LogFile other = file("a", 11, "two", 1);
  ClosedFiles look({archived(known), archived(other)});
  EXPECT_FALSE(look.is_missing(archived(known))) << "nothing was seen at all";
  LogFile elsewhere = other;
  elsewhere.device = 2;
  look.see(elsewhere);
  EXPECT_FALSE(look.is_missing(archived(known))) << "nothing was seen of its device";
  look.see(other);
  EXPECT_TRUE(look.is_missing(archived(known)));
  EXPECT_FALSE(look.is_missing(archived(other)));
  EXPECT_FALSE(look.is_missing(archived(file("b", 12, "three", 1)))) << "archived since the look began";
}

TEST(ClosedFiles, ThatWereArchivedAreMissingOnceTheyAreArchivedAsAnotherOne) {
  const LogFile before = file("a", 11, "one", 1);
  const LogFile now = file("a", 11, "one, two", 2);
  ClosedFiles changed({archived(before)});
  changed.see(now);
  EXPECT_FALSE(changed.is_missing(archived(before))) << "it may fail";
  ClosedFiles look({archived(before), archived(now)});
  look.see(now);
  EXPECT_TRUE(look.is_missing(archived(before)));
  EXPECT_FALSE(look.is_missing(archived(now)));
}

TEST(PartOfAFile, IsWhatTheCopyProtocolCanAnnounce) {
  EXPECT_EQ(length_of_part(0, false), 0);
  EXPECT_EQ(length_of_part(4294967295, false), 4294967295);
  EXPECT_EQ(length_of_part(4294967296, false), 4294967295);
}

/* What cannot be compressed gets longer. */
TEST(PartOfAFile, IsShorterWhereItIsCompressed) {
  EXPECT_EQ(length_of_part(4227858431, true), 4227858431);
  EXPECT_EQ(length_of_part(4227858432, true), 4227858431);
}

TEST(GrowingFile, IsTakenFromItsBeginningAtFirst) {
  EXPECT_EQ(words_of(plan_growing_file("m", {}, file("m", 1, "text\n", 10), {file("m.1", 2, "old\n", 5)}, {})),
            "m:0-5+");
}

TEST(GrowingFile, ThatIsNotThereYetIsNothing) { EXPECT_EQ(words_of(plan_growing_file("m", {}, {}, {}, {})), ""); }

TEST(GrowingFile, GoesOnWhereItWasLeft) {
  const Progress before = progress_in(file("m", 1, "one\n", 10), 4);
  EXPECT_EQ(words_of(plan_growing_file("m", before, file("m", 1, "one\ntwo\n", 20), {}, {})), "m:4-8+");
}

TEST(GrowingFile, RotatedByRenameIsFinishedFirst) {
  const Progress before = progress_in(file("m", 1, "one\n", 10), 4);
  EXPECT_EQ(words_of(plan_growing_file("m", before, file("m", 2, "three\n", 30), {file("m.1", 1, "one\ntwo", 20)}, {})),
            "m.1:4-7 m:0-6+");
}

TEST(GrowingFile, IsAlsoWhatWasWrittenToKnownFilesBesideIt) {
  const std::vector<ArchivedFile> known = {archived(file("m.1", 1, "one\n", 10)), archived(file("m.2", 2, "two\n", 5)),
                                           archived(file("m.3", 3, "\x1F\x8B one", 4))};
  EXPECT_EQ(words_of(plan_late_ends({file("m.1", 1, "one\nlate\n", 20), file("m.2", 2, "two\n", 5)}, known)),
            "m.1:4-9");
  EXPECT_EQ(words_of(plan_late_ends({file("m.1", 4, "one\nlate\n", 20), file("m.2", 2, "two", 5)}, known)), "");
  EXPECT_EQ(words_of(plan_late_ends({file("m.3", 3, "\x1F\x8B one and more", 20)}, known)), "");
}

/* As a closed file that has changed is. */
TEST(GrowingFile, IsWhatWasWrittenToAFileBesideItSinceItWasArchivedLast) {
  const std::vector<ArchivedFile> known = {archived(file("m.1", 1, "one\n", 10)),
                                           archived(file("m.1", 1, "one\ntwo\n", 20))};
  EXPECT_EQ(words_of(plan_late_ends({file("m.1", 1, "one\ntwo\n", 20)}, known)), "");
  EXPECT_EQ(words_of(plan_late_ends({file("m.1", 1, "one\ntwo\nlate\n", 30)}, known)), "m.1:8-13");
}

/* Inodes are used again, while a file that was archived is known for a week after it has gone. */
TEST(GrowingFile, ThatIsGoneIsArchivedAsFarAsItWasItselfAndNoOtherWithItsInode) {
  const auto with = [](const std::string& content) { return archived(file("m.1", 1, content, 10)); };
  const std::string log(head_size, 'a');
  const std::string other(head_size, 'b');
  EXPECT_EQ(archived_bytes({with(log)}, with(log + "late")), log.size());
  EXPECT_EQ(archived_bytes({with("one")}, with(log)), 3);
  EXPECT_EQ(archived_bytes({with(other)}, with(log + "late")), 0);
}

TEST(GrowingFile, RotatedByCopyAndTruncationIsFinishedFirst) {
  const Progress before = progress_in(file("m", 1, "one\n", 10), 4);
  EXPECT_EQ(words_of(plan_growing_file("m", before, file("m", 1, "thr", 30), {file("m.1", 7, "one\ntwo\n", 20)}, {})),
            "m.1:4-8 m:0-3+");
}

TEST(GrowingFile, TruncatedWithoutACopyHasLostWhatWasNotRead) {
  const Progress before = progress_in(file("m", 1, "one\ntwo\n", 10), 4);
  EXPECT_EQ(words_of(plan_growing_file("m", before, file("m", 1, "three\n", 30), {}, {})), "m:4-8! m:0-6+");
}

TEST(GrowingFile, ThatGotShorterIsAnotherOneHoweverItBegins) {
  const std::string banner(head_size, '-');
  const Progress before = progress_in(file("m", 1, banner + "one\n", 10), 1028);
  EXPECT_EQ(words_of(plan_growing_file("m", before, file("m", 1, banner + "x\n", 30), {}, {})),
            "m:1028-1028! m:0-1026+");
}

TEST(GrowingFile, ThatALookHasSeenShorterIsAnotherOneHoweverLongItIsThen) {
  const std::string banner(head_size, '-');
  const Progress before = progress_in(file("m", 1, banner + "one\n", 10), 1028);
  const LogFile then = file("m", 1, banner + "longer\n", 30);
  const LogFile copy = file("m.1", 7, banner + "one\ntwo\n", 10);
  for (const std::string& shorter : {std::string(), banner}) {
    const LogFile now = file("m", 1, shorter, 20);
    EXPECT_EQ(words_of(plan_growing_file("m", progress_as_seen("m", before, now, {}, {}), then, {}, {})),
              "m:1028-1028! m:0-1031+");
    EXPECT_EQ(words_of(plan_growing_file("m", progress_as_seen("m", before, now, {copy}, {}), then, {copy}, {})),
              "m.1:1028-1032 m:0-1031+");
  }
}

TEST(GrowingFile, OnAReusedInodeIsAnotherOne) {
  const Progress before = progress_in(file("m", 1, "one\n", 10), 4);
  EXPECT_EQ(words_of(plan_growing_file("m", before, file("m", 1, "two\nthree\n", 30), {}, {})), "m:4-4! m:0-10+");
}

TEST(GrowingFile, OnTheSameInodeOfAnotherDeviceIsAnotherOne) {
  const Progress before = progress_in(file("m", 1, "one\n", 10), 4);
  LogFile moved = file("m", 1, "one\ntwo\n", 30);
  moved.device = 2;
  EXPECT_EQ(words_of(plan_growing_file("m", before, moved, {}, {})), "m:4-4! m:0-8+");
}

/* What is planned when a shorter file that begins like the log, on that inode, is beside it. */
static std::string plan_beside_a_shorter_file(ino_t inode) {
  const std::string banner(head_size, '-');
  const Progress before = progress_in(file("m", 1, banner + "one\n", 10), 1028);
  return words_of(
      plan_growing_file("m", before, file("m", 2, "two\n", 30), {file("m.1", inode, banner + "x\n", 20)}, {}));
}

TEST(GrowingFile, IsNotFinishedInAFileThatGotShorterBeforeItWasRotated) {
  EXPECT_EQ(plan_beside_a_shorter_file(1), "m:1028-1028! m.1:0-1026 m:0-4+");
}

TEST(GrowingFile, IsNotFinishedInAFileThatBeginsAlikeAndIsShorter) {
  EXPECT_EQ(plan_beside_a_shorter_file(7), "m:1028-1028! m.1:0-1026 m:0-4+");
}

namespace {

/* Of a log with a banner, in which a look has seen much more than was archived. */
class SeenLog : public testing::Test {
 protected:
  const std::string banner = std::string(39, '-') + "\n";
  const LogFile seen = file("m", 1, banner + std::string(9000, 'x'), 10);
  const Progress before{identity_of(file("m", 1, banner, 10)), 40, seen.size, 10, false};
  const std::string fewer = banner + std::string(2000, 'y');
};

}  // namespace

TEST_F(SeenLog, WithLessInItIsAnotherOneHoweverItBegins) {
  const LogFile emptied = file("m", 1, fewer, 30);
  EXPECT_EQ(words_of(plan_growing_file("m", before, emptied, {}, {})), "m:40-9040! m:0-2040+");
  EXPECT_EQ(progress_as_seen("m", before, emptied, {}, {}).seen, 9040);
}

TEST_F(SeenLog, IsNotFinishedInAFileWithLessInIt) {
  const LogFile present = file("m", 2, "two\n", 30);
  EXPECT_EQ(words_of(plan_growing_file("m", before, present, {file("m.1", 1, fewer, 20)}, {})),
            "m:40-9040! m.1:0-2040 m:0-4+");
}

TEST_F(SeenLog, IsNotFinishedInACopyWithLessInIt) {
  const LogFile present = file("m", 2, "two\n", 30);
  EXPECT_EQ(words_of(plan_growing_file("m", before, present, {file("m.1", 7, fewer, 20)}, {})),
            "m:40-9040! m.1:0-2040 m:0-4+");
}

/* Another log of the service has the same banner, and more in it; the next one has got the inode. */
TEST_F(SeenLog, ThatIsRemovedIsToldFromAnotherByAllThatALookHasSeen) {
  const LogFile other = file("m.1", 7, banner + std::string(9500, 'z'), 20);
  const LogFile present = file("m", 1, banner, 30);
  EXPECT_EQ(words_of(plan_growing_file("m", progress_as_seen("m", before, seen, {}, {}), present, {other}, {})),
            "m:40-9040! m.1:0-9540 m:0-40+");
  LogFile renamed = seen;
  renamed.path = "m.1";
  const LogFile next = file("m", 2, banner, 20);
  EXPECT_EQ(words_of(plan_growing_file("m", progress_as_seen("m", before, next, {renamed}, {}), present, {other}, {})),
            "m:40-9040! m.1:0-9540 m:0-40+");
}

TEST_F(SeenLog, ThatIsCopiedAndTruncatedIsFoundAlsoByAllThatALookHasSeen) {
  const LogFile copy = file("m.1", 7, banner + std::string(9100, 'x'), 20);
  const LogFile emptied = file("m", 1, "", 30);
  const Progress now = progress_as_seen("m", before, seen, {}, {});
  EXPECT_EQ(words_of(plan_growing_file("m", now, emptied, {copy}, {})), "m.1:40-9140+");
  EXPECT_TRUE(progress_as_seen("m", now, emptied, {copy}, {}).identity == identity_of(copy));
  EXPECT_EQ(words_of(plan_growing_file("m", now, file("m", 2, "", 30), {copy}, {})), "m.1:40-9140+");
}

TEST_F(SeenLog, IsNotKnownByBytesThatWereNoMoreInItsPlace) {
  LogFile while_it_is_emptied = seen;
  while_it_is_emptied.head = banner + "new\n";
  EXPECT_TRUE(progress_as_seen("m", before, while_it_is_emptied, {}, {}) == before);
}

namespace {

/* A log of fewer bytes than those by which files are told from one another, and files that begin like it. */
class ShortLog : public testing::Test {
 protected:
  const Progress before = progress_in(file("m", 1, "one\n", 10), 4);
  const LogFile alike = file("m.1", 8, "one\nlater\n", 30);
  const LogFile copy = file("m.2", 7, "one\ntwo\n", 20);
};

}  // namespace

TEST_F(ShortLog, ThatIsRemovedIsNotFinishedInAnotherThatBeginsAlike) {
  EXPECT_EQ(words_of(plan_growing_file("m", before, file("m", 2, "one\n", 40), {alike}, {})), "m:4-4! m.1:0-10 m:0-4+");
  EXPECT_TRUE(progress_as_seen("m", before, file("m", 2, "one\n", 40), {alike}, {}) == before);
}

TEST_F(ShortLog, ThatWasEmptiedInItsPlaceIsFoundInItsCopyWhateverHasBecomeOfItSince) {
  EXPECT_EQ(words_of(plan_growing_file("m", before, file("m", 1, "x\n", 40), {copy}, {})), "m.2:4-8 m:0-2+");
  EXPECT_EQ(words_of(plan_growing_file("m", before, file("m", 2, "y\n", 50), {file("m.1", 1, "x\n", 40), copy}, {})),
            "m.2:4-8 m.1:0-2 m:0-2+");
  const Progress emptied = progress_as_seen("m", before, file("m", 1, "", 40), {}, {});
  EXPECT_EQ(words_of(plan_growing_file("m", emptied, file("m", 1, "one\nx\n", 50), {copy}, {})), "m.2:4-8 m:0-6+");
  EXPECT_EQ(words_of(plan_growing_file("m", emptied, file("m", 2, "one\nx\n", 50), {copy}, {})), "m.2:4-8 m:0-6+");
}

TEST_F(ShortLog, IsSeenInTheOldestOfItsCopiesWhateverTheirOrderInTheDirectory) {
  const LogFile emptied = file("m", 1, "", 40);
  EXPECT_EQ(progress_as_seen("m", before, emptied, {alike, copy}, {}).identity.inode, 7U);
  EXPECT_EQ(progress_as_seen("m", before, emptied, {copy, alike}, {}).identity.inode, 7U);
}

TEST_F(ShortLog, ThatIsOnlyCompressedBesideIsNotTakenForAnotherThatBeginsAlike) {
  const LogFile compressed = file("m.2.gz", 3, "\x1F\x8B...", 10);
  const LogFile present = file("m", 2, "x\n", 40);
  const auto form = compressed_form(before, present, {compressed, alike}, {});
  ASSERT_TRUE(form);
  EXPECT_EQ(form->path, "m.2.gz");
  EXPECT_FALSE(compressed_form(before, file("m", 1, "x", 40), {compressed, copy}, {}));
  EXPECT_FALSE(compressed_form(before, present, {compressed, file("m.1", 1, "one\n", 10)}, {}));
}

TEST(GrowingFile, ThatIsOnlyCompressedBesideIsNotInAFileWithLessInItThanIsArchived) {
  const std::string banner(head_size, '-');
  const Progress before = progress_in(file("m", 1, banner + "one\n", 10), 1028);
  const LogFile compressed = file("m.2.gz", 3, "\x1F\x8B...", 10);
  const LogFile present = file("m", 2, "x\n", 40);
  EXPECT_TRUE(compressed_form(before, present, {compressed, file("m.1", 8, banner + "x\n", 30)}, {}));
  EXPECT_FALSE(compressed_form(before, present, {compressed, file("m.1", 8, banner + "one\n", 30)}, {}));
}

TEST(GrowingFile, ThatWasEmptyIsSeenAsEmptyUntilItIsArchived) {
  const Progress before = progress_in(file("m", 1, "", 10), 0);
  EXPECT_TRUE(progress_as_seen("m", before, file("m", 1, "one\n", 20), {}, {}) == before);
}

TEST(GrowingFile, RotatedTwiceBetweenTwoLooksLosesNothing) {
  const Progress before = progress_in(file("m", 1, "one\n", 10), 4);
  const LogFile older = file("m.3", 9, "older\n", 5);
  EXPECT_EQ(words_of(plan_growing_file("m", before, file("m", 4, "four\n", 40),
                                       {file("m.1", 3, "three\n", 30), file("m.2", 1, "one\ntwo\n", 20), older},
                                       {identity_of(older)})),
            "m.2:4-8 m.1:0-6 m:0-5+");
}

TEST(GrowingFile, RotatedSeveralTimesInOneTickOfTheClockKeepsTheOrderOfItsNumbers) {
  const Progress before = progress_in(file("m", 1, "one\n", 10), 4);
  EXPECT_EQ(words_of(plan_growing_file("m", before, file("m", 5, "5\n", 20),
                                       {file("m.9", 4, "4\n", 20), file("m.10", 3, "3\n", 20),
                                        file("m.11", 2, "2\n", 20), file("m.12", 1, "one\n", 10)},
                                       {})),
            "m.12:4-4 m.11:0-2 m.10:0-2 m.9:0-2 m:0-2+");
  EXPECT_EQ(words_of(plan_growing_file("m", before, file("m", 5, "5\n", 20),
                                       {file("m-20261123", 3, "3\n", 20), file("m-20261122", 2, "2\n", 20),
                                        file("m-20261121", 1, "one\n", 10)},
                                       {})),
            "m-20261121:4-4 m-20261122:0-2 m-20261123:0-2 m:0-2+");
  EXPECT_EQ(words_of(plan_growing_file("m", before, file("m", 5, "5\n", 20),
                                       {file("m.20261123", 3, "3\n", 20), file("m.20261122", 2, "2\n", 20),
                                        file("m.20261121", 1, "one\n", 10)},
                                       {})),
            "m.20261121:4-4 m.20261122:0-2 m.20261123:0-2 m:0-2+");
}

TEST(GrowingFile, RotatedWhileTheClockWasSetBackLosesNothing) {
  const Progress before = progress_in(file("m", 1, "one\n", 100), 4);
  EXPECT_EQ(words_of(plan_growing_file("m", before, file("m", 4, "four\n", 40),
                                       {file("m.1", 3, "three\n", 30), file("m.2", 1, "one\ntwo\n", 20)}, {})),
            "m.2:4-8 m.1:0-6 m:0-5+");
  EXPECT_EQ(words_of(plan_growing_file("m", before, file("m", 1, "thr", 30), {file("m.1", 7, "one\ntwo\n", 20)}, {})),
            "m.1:4-8 m:0-3+");
}

TEST(GrowingFile, SeveralTimesRotatedComesByItsNumbersWhateverTheClockSays) {
  const Progress before = progress_in(file("m", 1, "one\n", 10), 4);
  std::vector<LogFile> beside = {file("m.9", 3, "two\n", 500), file("m.10", 1, "one\n", 10),
                                 file("m.2.old", 5, "three\n", 700), file("m.1", 6, "four\n", 600)};
  EXPECT_EQ(words_of(plan_growing_file("m", before, file("m", 7, "five\n", 40), beside, {})),
            "m.10:4-4 m.9:0-4 m.2.old:0-6 m.1:0-5 m:0-5+");
  beside.push_back(file("m-20261122", 8, "x\n", 550));
  EXPECT_EQ(words_of(plan_growing_file("m", before, file("m", 7, "five\n", 40), beside, {})),
            "m.10:4-4 m.9:0-4 m-20261122:0-2 m.1:0-5 m.2.old:0-6 m:0-5+");
}

TEST(GrowingFile, DoesNotTakeADateForANumberOfRotations) {
  const Progress before = progress_in(file("m", 1, "one\n", 10), 4);
  EXPECT_EQ(words_of(plan_growing_file("m", before, file("m", 7, "five\n", 40),
                                       {file("m.2026", 5, "two\n", 20), file("m.2027", 6, "three\n", 30)}, {})),
            "m:4-4! m.2026:0-4 m.2027:0-6 m:0-5+");
}

TEST(GrowingFile, AtTheFirstLookPassesOverWhatWasRotatedBefore) {
  const LogFile present = file("m", 1, "one\n", 30);
  const std::vector<LogFile> beside = {file("m.1", 2, "older\n", 20), file("m.2", 3, "", 10),
                                       file("m.copy", 4, "one\n", 10)};
  EXPECT_EQ(paths_of(files_to_pass_over({}, present, beside, {})), Paths{"m.1"});
  EXPECT_EQ(paths_of(files_to_pass_over({}, {}, beside, {})), (Paths{"m.1", "m.copy"}));
  EXPECT_EQ(paths_of(files_to_pass_over({}, present, beside, {archived(beside[0])})), Paths{});
  EXPECT_EQ(paths_of(files_to_pass_over(progress_at_first(present), present, beside, {})), Paths{});
}

TEST(GrowingFile, PassesOverTheCompressedFormOfAKnownFile) {
  constexpr int64_t second = 1000000000;
  const LogFile plain = file("m.1", 2, "older\n", 20 * second + 1);
  const std::vector<LogFile> beside = {file("m.2.gz", 3, "\x1F\x8B...", 20 * second),
                                       file("m.3.gz", 4, "\x1F\x8B...", 21 * second),
                                       file("m.4", 5, "plain\n", 20 * second)};
  EXPECT_EQ(paths_of(files_to_pass_over(Progress{}, {}, beside, {archived(plain)})), Paths{"m.2.gz"});
}

TEST(GrowingFile, PassesOverAKnownFileThatIsUnpackedAgain) {
  constexpr int64_t second = 1000000000;
  const std::vector<ArchivedFile> known = {archived(file("m.1", 2, "older\n", 20 * second + 1))};
  const std::vector<LogFile> beside = {
      file("m.2", 3, "older\n", 20 * second), file("m.3", 4, "older\n", 20 * second + 1),
      file("m.4", 5, "other\n", 20 * second), file("m.5", 6, "older\n", 20 * second + 2),
      file("m.6", 7, "older\nlonger\n", 20 * second)};
  EXPECT_EQ(paths_of(files_to_pass_over(Progress{}, {}, beside, known)), (Paths{"m.2", "m.3"}));
}

TEST(GrowingFile, IsFollowedFromItsBeginningAtTheFirstLook) {
  const LogFile present = file("m", 1, "one\n", 30);
  EXPECT_EQ(words_of(plan_growing_file("m", progress_at_first(present), present, {}, {})), "m:0-4+");
  EXPECT_EQ(words_of(plan_growing_file("m", progress_at_first(present), file("m", 2, "x\n", 50),
                                       {file("m.1", 1, "one\ntwo\n", 40)}, {})),
            "m.1:0-8 m:0-2+");
  EXPECT_EQ(words_of(plan_growing_file("m", progress_at_first({}), file("m", 2, "x\n", 50),
                                       {file("m.1", 1, "one\n", 40)}, {})),
            "m.1:0-4 m:0-2+");
}

TEST(GrowingFile, DoesNotTakeAKnownFileAgain) {
  const LogFile known = file("m.2", 9, "known\n", 15);
  const Progress before = progress_in(file("m", 1, "one\n", 10), 4);
  EXPECT_EQ(words_of(plan_growing_file("m", before, file("m", 4, "four\n", 40), {file("m.1", 1, "one\n", 11), known},
                                       {identity_of(known)})),
            "m.1:4-4 m:0-5+");
}

TEST(GrowingFile, IsNotLookedForInAKnownFileThatBeginsAlike) {
  const LogFile known = file("m.2", 9, "one\ntwo\nolder\n", 15);
  const Progress before = progress_in(file("m", 1, "one\ntwo\n", 10), 4);
  EXPECT_EQ(words_of(plan_growing_file("m", before, file("m", 1, "x\n", 30), {known}, {identity_of(known)})),
            "m:4-8! m:0-2+");
}

TEST(GrowingFile, OnlyCompressedBesideIsLost) {
  const Progress before = progress_in(file("m", 1, "one\ntwo", 10), 4);
  EXPECT_EQ(
      words_of(plan_growing_file("m", before, file("m", 2, "x\n", 30), {file("m.1.gz", 3, "\x1F\x8B...", 20)}, {})),
      "m:4-7! m.1.gz:0-5! m:0-2+");
}

/* Compressing a file leaves it its time of modification. */
TEST(GrowingFile, ThatIsArchivedAndOnlyCompressedBesideIsNotLost) {
  const LogFile compressed = file("m.1.gz", 3, "\x1F\x8B...", 10);
  const Progress before = progress_in(file("m", 1, "one\n", 10), 4);
  const LogFile present = file("m", 2, "x\n", 30);
  EXPECT_EQ(paths_of(files_to_pass_over(before, present, {compressed}, {})), Paths{"m.1.gz"});
  EXPECT_EQ(words_of(plan_growing_file("m", before, present, {compressed}, {identity_of(compressed)})), "m:0-2+");
}

TEST(GrowingFile, OnlyCompressedBesideIsLostWithItsOwnBytesWhereItsFormSaysThem) {
  LogFile compressed = file("m.1.gz", 3, "\x1F\x8B...", 20);
  compressed.plain_size = 50000;
  const Progress before = progress_in(file("m", 1, "one\n", 10), 4);
  EXPECT_EQ(words_of(plan_growing_file("m", before, file("m", 2, "x\n", 30), {compressed}, {})),
            "m:4-4! m.1.gz:0-50000! m:0-2+");
}

TEST(GrowingFile, WithNothingInItAndOnlyCompressedBesideIsNotLost) {
  LogFile compressed = file("m.1.gz", 3, "\x1F\x8B...", 20);
  compressed.plain_size = 0;
  Progress before = progress_in(file("m", 1, "one\n", 10), 4);
  before.finished = true;
  EXPECT_EQ(words_of(plan_growing_file("m", before, file("m", 2, "x\n", 30), {compressed}, {})), "m:0-2+");
  compressed.size = 5000; /* its last part is empty */
  EXPECT_EQ(words_of(plan_growing_file("m", before, file("m", 2, "x\n", 30), {compressed}, {})),
            "m.1.gz:0-5000! m:0-2+");
}

TEST(GrowingFile, ThatMayHaveGrownBeforeItWasCompressedIsLost) {
  const LogFile present = file("m", 2, "x\n", 30);
  const Progress before = progress_in(file("m", 1, "one\n", 10), 4);
  EXPECT_EQ(words_of(plan_growing_file("m", before, present, {file("m.1.gz", 3, "\x1F\x8B...", 11)}, {})),
            "m:4-4! m.1.gz:0-5! m:0-2+");
  const Progress begun = progress_in(file("m", 1, "one\ntwo", 10), 4);
  EXPECT_EQ(words_of(plan_growing_file("m", begun, present, {file("m.1.gz", 3, "\x1F\x8B...", 10)}, {})),
            "m:4-7! m.1.gz:0-5! m:0-2+");
}

TEST(GrowingFile, ThatWasFinishedIsNotLostAgain) {
  Progress before = progress_in(file("m", 1, "one\n", 10), 4);
  before.finished = true;
  EXPECT_EQ(words_of(plan_growing_file("m", before, {}, {}, {})), "");
  EXPECT_EQ(words_of(plan_growing_file("m", before, file("m", 3, "three\n", 30), {file("m.1", 2, "two\n", 20)}, {})),
            "m.1:0-4 m:0-6+");
}

TEST(GrowingFile, ThatWasGivenUpAsLostStaysSoWhenItIsThereAgain) {
  Progress gone = progress_in(file("m", 1, "one\ntwo\n", 10), 4);
  gone.finished = true;
  EXPECT_EQ(words_of(plan_growing_file("m", gone, file("m", 2, "three\n", 30), {file("m.1", 1, "one\ntwo\n", 10)}, {})),
            "m:0-6+");
}

TEST(GrowingFile, ThatWasEmptyIsNotFoundInAnyFileBeside) {
  const Progress before = progress_in(file("m", 1, "", 10), 0);
  const LogFile other = file("m.1", 5, "other\n", 5);
  EXPECT_EQ(words_of(plan_growing_file("m", before, file("m", 2, "x\n", 30), {other}, {identity_of(other)})), "m:0-2+");
}

TEST(GrowingFile, ThatWasEmptyAndWasRotatedSeveralTimesSinceLosesNothing) {
  const Progress before = progress_in(file("m", 1, "", 10), 0);
  EXPECT_EQ(words_of(plan_growing_file("m", before, file("m", 1, "three\n", 40),
                                       {file("m.1", 6, "two\n", 30), file("m.2", 5, "one\n", 20)}, {})),
            "m.2:0-4 m.1:0-4 m:0-6+");
  EXPECT_EQ(words_of(plan_growing_file("m", before, file("m", 2, "two\n", 40), {file("m.1", 1, "one\n", 30)}, {})),
            "m.1:0-4 m:0-4+");
}

TEST(GrowingFile, DoesNotTakeACopyOfItselfThatIsBeingMade) {
  Progress before = progress_in(file("m", 1, "one\n", 10), 4);
  before.finished = true;
  const LogFile present = file("m", 2, "two\nthree\n", 30);
  for (const char* copied : {"", "two", "two\nthree\n"}) {
    EXPECT_EQ(words_of(plan_growing_file("m", before, present, {file("m.1", 3, copied, 31)}, {})), "m:0-10+") << copied;
  }
  EXPECT_EQ(
      words_of(plan_growing_file("m", before, file("m", 2, "four\n", 40), {file("m.1", 3, "two\nthree\n", 31)}, {})),
      "m.1:0-10 m:0-5+");
}

TEST(GrowingFile, TakesACopyAsSoonAsItHasBeenTruncated) {
  Progress before = progress_in(file("m", 1, "one\n", 10), 4);
  before.finished = true;
  EXPECT_EQ(words_of(plan_growing_file("m", before, file("m", 2, "", 31), {file("m.1", 3, "two\n", 31)}, {})),
            "m.1:0-4+");
}

TEST(GrowingFile, StillGrowsUnderItsNewNameWhileTheNewOneIsEmptyOrNotThere) {
  const Progress before = progress_in(file("m", 1, "one\n", 10), 4);
  const std::vector<LogFile> rotated = {file("m.1", 1, "one\ntwo\n", 20)};
  EXPECT_EQ(words_of(plan_growing_file("m", before, {}, rotated, {})), "m.1:4-8+");
  EXPECT_EQ(words_of(plan_growing_file("m", before, file("m", 2, "", 20), rotated, {})), "m.1:4-8+");
  EXPECT_EQ(words_of(plan_growing_file("m", before, file("m", 3, "", 30),
                                       {file("m.1", 2, "three\n", 30), file("m.2", 1, "one\ntwo\n", 20)}, {})),
            "m.2:4-8 m.1:0-6+");
}

TEST(GrowingFile, IsFollowedByAClockThatWasSetBack) {
  const Progress before = progress_in(file("m", 1, "one\n", 1000), 4);
  const LogFile old = file("m.2", 1, "one\n", 1000);
  const LogFile known = file("m.9", 9, "known\n", 20);
  const std::vector<Identity> all_known = {identity_of(known)};
  EXPECT_EQ(words_of(plan_growing_file("m", before, file("m", 3, "three\n", 40),
                                       {known, file("m.1", 2, "two\n", 30), old}, all_known)),
            "m.2:4-4 m.1:0-4 m:0-6+");
  EXPECT_EQ(
      words_of(plan_growing_file("m", before, file("m", 1, "three\n", 40),
                                 {known, file("m.1", 2, "two\n", 30), file("m.2", 8, "one\nmore\n", 25)}, all_known)),
      "m.2:4-9 m.1:0-4 m:0-6+");
}

TEST(GrowingFile, WrittenOnAfterTheClockWasSetBackIsFollowedByWhatIsNewerThanIt) {
  const Progress before = progress_in(file("m", 1, "one\n", 1000), 4);
  EXPECT_EQ(words_of(plan_growing_file("m", before, file("m", 3, "three\n", 40),
                                       {file("m.1", 2, "two\n", 30), file("m.2", 1, "one\nmore\n", 20)}, {})),
            "m.2:4-9 m.1:0-4 m:0-6+");
}

TEST(GrowingFile, OrdersWhatWasWrittenBeforeTheClockWasSetBackFirst) {
  const Progress before = progress_in(file("m", 1, "one\n", 1000), 4);
  EXPECT_EQ(words_of(plan_growing_file(
                "m", before, file("m", 4, "four\n", 40),
                {file("m.1", 3, "three\n", 30), file("m.2", 2, "two\n", 1100), file("m.3", 1, "one\n", 1000)}, {})),
            "m.3:4-4 m.2:0-4 m.1:0-6 m:0-5+");
}

TEST(GrowingFile, DoesNotTakeACopyOfItselfThatWasMadeWhileTheClockWasSetBack) {
  Progress before = progress_in(file("m", 1, "one\n", 10), 4);
  before.finished = true;
  const LogFile present = file("m", 2, "two\nthree\n", 30);
  EXPECT_EQ(words_of(plan_growing_file("m", before, present, {file("m.1", 3, "two\nthree\n", 20)}, {})), "m:0-10+");
  EXPECT_EQ(words_of(plan_growing_file("m", before, present, {file("m.1", 3, "two\n", 20)}, {})), "m.1:0-4 m:0-10+");
}

namespace {

/* The end of the piece of text that begins at first. */
int64_t piece_of(const std::string& text, int64_t first, bool grows) {
  Stretch stretch;
  stretch.end = static_cast<int64_t>(text.size());
  stretch.grows = grows;
  return end_of_piece(stretch, first, [&text](int64_t from, int64_t end) {
    const size_t newline = text.substr(0, static_cast<size_t>(end)).rfind('\n');
    return newline == std::string::npos || static_cast<int64_t>(newline) < from ? -1 : static_cast<int64_t>(newline);
  });
}

}  // namespace

TEST(PieceOfALog, EndsBehindItsLastNewline) {
  EXPECT_EQ(piece_of("one\ntwo\nthr", 0, true), 8);
  EXPECT_EQ(piece_of("one\ntwo\nthr", 4, true), 8);
  EXPECT_EQ(piece_of("one\n", 0, true), 4);
}

TEST(PieceOfALog, WithoutANewlineWaitsForIt) {
  EXPECT_EQ(piece_of("one\ntwo\nthr", 8, true), 8);
  EXPECT_EQ(piece_of("", 0, true), 0);
}

TEST(PieceOfALog, ThatIsRotatedTakesTheRest) {
  EXPECT_EQ(piece_of("one\ntwo\nthr", 8, false), 11);
  EXPECT_EQ(piece_of("one\ntwo\nthr", 0, false), 11);
}

TEST(PieceOfALog, HasALongestOne) {
  const auto none = [](int64_t, int64_t) { return int64_t{-1}; };
  const auto behind_five = [](int64_t first, int64_t) { return first + 4; };
  Stretch stretch;
  stretch.end = longest_piece + 1;
  stretch.grows = true;
  EXPECT_EQ(end_of_piece(stretch, 0, none), longest_piece);
  EXPECT_EQ(end_of_piece(stretch, 0, behind_five), 5);
  EXPECT_EQ(end_of_piece(stretch, longest_piece, none), longest_piece);
  stretch.grows = false;
  EXPECT_EQ(end_of_piece(stretch, 0, behind_five), 5);
  EXPECT_EQ(end_of_piece(stretch, longest_piece, none), longest_piece + 1);
}

TEST(PieceOfALog, HasAtMost64Mebibytes) { EXPECT_EQ(longest_piece, 67108864); }

TEST(PieceOfALog, IsCountedByTheLengthOfItsStretch) {
  Stretch stretch;
  EXPECT_EQ(pieces_of(stretch), 0);
  stretch.end = longest_piece + 5;
  EXPECT_EQ(pieces_of(stretch), 2);
  stretch.first = 5;
  EXPECT_EQ(pieces_of(stretch), 1);
  stretch.first = stretch.end - 1;
  EXPECT_EQ(pieces_of(stretch), 1);
  stretch.lost = true;
  EXPECT_EQ(pieces_of(stretch), 0);
}

TEST(RotatedName, GoesOnWithAPointOrAHyphen) {
  for (const char* name : {"m.1", "m-20261122", "m.1.gz", "m.old"}) EXPECT_TRUE(is_rotated_name("m", name)) << name;
  for (const char* name : {"m", "m.", "m-", "m1", "mm.1", "x.m.1", ""})
    EXPECT_FALSE(is_rotated_name("m", name)) << name;
}
