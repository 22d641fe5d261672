#include <gtest/gtest.h>

#include "process/children.h"
#include "process/observe.h"
#include "process/signal_storm.h"
#include "tavren_basic.h"

namespace {

constexpr int limit = 102400; /* bytes that one read operation may take in */

/* Prints head, then count bytes of x, then tail, all in the notation of printf(1). */
TavrenProcess printing(const std::string& head, int count, const std::string& tail) {
  return shell("printf '" + head + "'; head -c " + std::to_string(count) + " /dev/zero | tr '\\0' x; printf '" + tail +
               "'; read -r go");
}

const std::string one_too_many = "25(/bin/sh, 102401)";

/* How reading ends with a child that prints count bytes of x and then tail. */
std::string result_with(Reading read, int count, const std::string& tail) {
  TavrenProcess child = printing("", count, tail);
  return result_of_reading(read, child);
}

/* A child that prints lines of 100 bytes, bytes of them in all, and then tail. */
TavrenProcess printing_lines(int bytes, const std::string& tail) {
  return shell("head -c " + std::to_string(bytes - bytes / 100) + " /dev/zero | tr '\\0' x | fold -w 99; printf '\\n" +
               tail + "'; read -r go");
}

}  // namespace

TEST(Limit, OfOneReadLineIsAccepted) {
  TavrenProcess child = printing("", limit - 1, "\\n");
  EXPECT_EQ(next_line(child), std::string(limit - 1, 'x'));
}

TEST(Limit, HoldsForAllThatOneOperationTakes) {
  EXPECT_EQ(result_with(read_a_line, limit, "\\n"), one_too_many);
  EXPECT_EQ(result_with(expect_the_end, limit - 5, "\\nend\\n"), "done");
  EXPECT_EQ(result_with(expect_the_end, limit - 4, "\\nend\\n"), one_too_many);
  EXPECT_EQ(result_with(skip_to_the_end, limit - 4, "\\nend"), "done");
  EXPECT_EQ(result_with(skip_to_the_end, limit - 3, "\\nend"), one_too_many);
}

TEST(Limit, IsNotBegunAnewByReadByte) {
  for (const int count : {limit, limit + 1}) {
    TavrenProcess child = printing("", count, "");
    EXPECT_EQ(result_of([&] { next_bytes(child, static_cast<size_t>(count)); }),
              count == limit ? "done" : one_too_many);
  }
}

TEST(Limit, PassedByMoreThanOneByteTellsHowManyWereTakenIn) {
  TavrenProcess child = printing("", limit - 1, "'; read -r go; printf 'four");
  next_bytes(child, limit - 1);
  child.send("go\n", patience);
  EXPECT_EQ(result_of([&] { next_bytes(child, 1); }), "25(/bin/sh, 102403)");
}

TEST(Limit, CountsWhatWasPendingBefore) {
  TavrenProcess child = printing("first\\n", limit, "\\n");
  ASSERT_EQ(next_line(child), "first");
  EXPECT_EQ(result_of_reading(read_a_line, child), one_too_many);
}

/* What came together with the line before is waiting when the next operation begins. */
TEST(Limit, CountsWhatIsAlreadyWaiting) {
  for (const Reading read : {read_a_line, expect_the_end, skip_to_the_end}) {
    TavrenProcess child = shell("printf 'first\\nwaiting'; read -r go; head -c " + std::to_string(limit - 6) +
                                " /dev/zero | tr '\\0' x; read -r go");
    ASSERT_EQ(next_line(child), "first");
    child.send("go\n", patience);
    EXPECT_EQ(result_of_reading(read, child), one_too_many);
    child.stop(0);
  }
}

TEST(Limit, BeginsAnewWithEachExpectAndEachSkipping) {
  for (const Reading read : {expect_the_end, skip_to_the_end}) {
    TavrenProcess child = printing("", 60000, "\\nend\\n'; head -c 60000 /dev/zero | tr '\\0' x; printf '\\nend\\n");
    EXPECT_EQ(result_of_reading(read, child), "done");
    ASSERT_EQ(read == skip_to_the_end ? next_line(child) : "end", "end");
    EXPECT_EQ(result_of_reading(read, child), "done");
  }
}

TEST(Limit, DoesNotCountWhatWasTakenBefore) {
  TavrenProcess child = printing("first\\n", limit - 1, "\\n");
  ASSERT_EQ(next_line(child), "first");
  EXPECT_EQ(next_line(child), std::string(limit - 1, 'x'));
}

TEST(Limit, BeginsAnewWithEachReadLine) {
  TavrenProcess child = printing_lines(3 * limit, "end\\n");
  int lines = 0;
  while (next_line(child) != "end") ++lines;
  EXPECT_GE(lines, 3 * limit / 100);
}

TEST(Limit, LetsATransferReadBytesForeverBetweenLines) {
  TavrenProcess child = shell("while :; do echo line; head -c 1000 /dev/zero; done");
  for (int i = 0; i < 200; ++i) {
    ASSERT_EQ(next_line(child), "line");
    ASSERT_EQ(next_bytes(child, 1000), std::string(1000, '\0'));
  }
}

TEST(Limit, PassedKeepsTheBytesBeforeItAndDropsThoseThatPassedIt) {
  TavrenProcess child = printing("", limit, "\\n");
  ASSERT_EQ(result_of_reading(read_a_line, child), one_too_many);
  EXPECT_EQ(result_of_reading(read_a_line, child, past_deadline()), "TavrenTimeout");
  EXPECT_EQ(next_bytes(child, 90000), std::string(90000, 'x'));
}

TEST(Limit, PassedNamesTheStrippedProgram) {
  TavrenProcess child("/bin/cat ", {"/dev/zero"}, false);
  EXPECT_EQ(result_of_reading(read_a_line, child).substr(0, 12), "25(/bin/cat,");
}

TEST(Deadline, PassedASecondAgoIsATimeout) {
  TavrenProcess child("/bin/cat", {}, false);
  for (const Reading read : readings) EXPECT_EQ(result_of_reading(read, child, past_deadline()), "TavrenTimeout");
}

TEST(Deadline, IsNeverShortened) {
  TavrenProcess child("/bin/cat", {}, false);
  for (const int seconds : {0, 1, 2}) {
    const long deadline = tavren_get_uptime() + seconds;
    EXPECT_EQ(result_of_reading(read_a_line, child, deadline), "TavrenTimeout");
    EXPECT_GT(tavren_get_uptime(), deadline);
  }
}

TEST(Deadline, HoldsForTheWholeLineThoughBytesCome) {
  TavrenProcess child = shell("while :; do printf x; sleep 0.01; done");
  EXPECT_EQ(result_of_reading(read_a_line, child, tavren_get_uptime() + 1), "TavrenTimeout");
}

TEST(Deadline, HoldsForAllLinesOfOneExpect) {
  TavrenProcess child = shell("while :; do echo line; sleep 0.01; done");
  std::list<std::string> lines;
  EXPECT_EQ(result_of([&] { child.expect("text", lines, tavren_get_uptime() + 1); }), "TavrenTimeout");
  EXPECT_FALSE(lines.empty());
}

TEST(Deadline, ThatIsNoneWaitsForTheLine) {
  TavrenProcess child = shell("sleep 1.5; echo line");
  std::string line;
  child.read_line(line, 2147483647, "");
  EXPECT_EQ(line, "line");
}

TEST(Deadline, DoesNotMatterToALineThatIsThere) {
  TavrenProcess child = shell("echo first; echo second; read -r go");
  ASSERT_EQ(next_line(child), "first");
  ASSERT_TRUE(wait_until([&] {
    std::string line;
    return result_of([&] { child.read_line(line, past_deadline(), "second"); }) == "done";
  }));
  std::string line;
  EXPECT_FALSE(child.read_line(line, past_deadline(), ""));
  EXPECT_EQ(line, "second");
}

TEST(Deadline, PassedLeavesWhatCameForTheNextRead) {
  TavrenProcess child = shell("echo ready; printf 'begin '; read -r go; echo end");
  ASSERT_EQ(next_line(child), "ready");
  ASSERT_EQ(result_of_reading(read_a_line, child, tavren_get_uptime()), "TavrenTimeout");
  child.send("\n", patience);
  EXPECT_EQ(next_line(child), "begin end");
}

TEST(Deadline, GoesOnThroughSignals) {
  const SignalStorm storm;
  TavrenProcess child("/bin/cat", {}, false);
  const long deadline = tavren_get_uptime() + 1;
  EXPECT_EQ(result_of_reading(read_a_byte, child, deadline), "TavrenTimeout");
  EXPECT_GT(tavren_get_uptime(), deadline);
}

TEST(Deadline, IsWaitedForWithoutSpinning) {
  TavrenProcess child("/bin/cat", {}, false);
  const double before = cpu_seconds();
  result_of_reading(read_a_byte, child, tavren_get_uptime() + 3);
  EXPECT_LT(cpu_seconds() - before, 1.5);
}
