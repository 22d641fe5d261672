#include <gtest/gtest.h>

#include <numeric>

#include "process/children.h"
#include "process/observe.h"
#include "support/busy_cores.h"
#include "tavren_basic.h"

namespace {

/* What is expected of a child whose last lines are numbers. */
std::string exited_after(int first, int last) {
  std::string text = "13(/bin/sh)";
  for (int i = first; i <= last; ++i) text += " 12(" + std::to_string(i) + ")";
  return text;
}
/* Hears a shell out that runs script. Returns how it ended. */
std::string end_of(const std::string& script) {
  TavrenProcess child = shell(script);
  return result_of_reading_on(child);
}

/* Children that print 64 kB and exit, each heard to the end. */
void hear_many_out(int count) {
  std::string expected(65536, '\0');
  std::iota(expected.begin(), expected.end(), '\0');
  for (int i = 0; i < count; ++i) {
    TavrenProcess child = counterpart({"flood", std::to_string(expected.size())});
    const std::string output = all_lines(child);
    ASSERT_TRUE(output == expected) << "child " << i << ": " << output.size() << " bytes";
    child.stop(0);
  }
}

}  // namespace

TEST(EndOfOutput, CarriesUpToTwentyFinishedLinesOldestFirst) {
  const int before = tavren_get_uptime();
  EXPECT_EQ(end_of("seq 1 3"), exited_after(1, 3));
  EXPECT_EQ(end_of("seq 1 100"), exited_after(81, 100));
  EXPECT_EQ(end_of("printf '1\\n2\\nunfinished'"), exited_after(1, 2));
  EXPECT_EQ(end_of("exit"), "13(/bin/sh)");
  EXPECT_LT(tavren_get_uptime(), before + patience);
}

TEST(EndOfOutput, CarriesAlsoTheLinesTakenBefore) {
  TavrenProcess child = shell("seq 1 3");
  ASSERT_EQ(next_line(child), "1");
  ASSERT_EQ(next_line(child), "2");
  EXPECT_EQ(result_of_reading_on(child), exited_after(1, 3));
}

TEST(EndOfOutput, LeavesTheUnfinishedLineToReadByte) {
  TavrenProcess child = shell("printf '1\\nrest'");
  ASSERT_EQ(result_of_reading_on(child), exited_after(1, 1));
  EXPECT_EQ(next_bytes(child, 4), "rest");
}

TEST(EndOfOutput, IsReportedByEachWayOfReading) {
  TavrenProcess child = shell("echo 1");
  ASSERT_EQ(next_line(child), "1");
  for (const Reading read : readings) EXPECT_EQ(result_of_reading(read, child), exited_after(1, 1));
}

TEST(EndOfOutput, ComesWhenALivingChildClosesTheTerminal) {
  TavrenProcess child = shell("echo 1; exec sleep 600 <&- >&- 2>&-");
  EXPECT_EQ(result_of_reading_on(child), exited_after(1, 1));
  EXPECT_EQ(child.send_signal(0), 0);
}

/* Who reads waits for the end of the output, not for that of the child. */
TEST(EndOfOutput, ComesOnlyWhenADescendantOfTheChildHasEndedToo) {
  TavrenProcess child = shell("trap '' HUP; exec 3<&0; (read -r go <&3; echo last words) & echo $$");
  const pid_t pid = announced_pid(child);
  ASSERT_TRUE(wait_until_exited(pid));
  EXPECT_EQ(result_of_reading(read_a_line, child, tavren_get_uptime()), "TavrenTimeout");
  child.send("go\n", patience);
  EXPECT_EQ(next_line(child), "last words");
  EXPECT_EQ(result_of_reading_on(child), "13(/bin/sh) 12(" + std::to_string(pid) + ") 12(last words)");
}

/* A descendant that holds the terminal keeps the end of the output from coming: the deadline stands in for it. */
TEST(EndOfOutput, ThatNeverComesDoesNotHideTheEndOfTheChild) {
  TavrenProcess child = shell("trap '' HUP; (while [ -t 1 ]; do sleep 0.05; done) & echo 1");
  ASSERT_EQ(next_line(child), "1");
  EXPECT_EQ(result_of_sending(child, megabyte, 1), exited_after(1, 1));
  EXPECT_EQ(result_of_send_eof(child, 1), exited_after(1, 1));
}

/* Nor does a descendant that prints more than one read operation may take in. */
TEST(EndOfOutput, ThatADescendantFloodsDoesNotHideTheEndOfTheChild) {
  std::string expected = "13(/bin/sh)";
  for (int i = 0; i < 20; ++i) expected += " 12(flood)";
  for (const bool ends : {false, true}) {
    TavrenProcess child = shell("trap '' HUP; echo $$; yes flood &");
    ASSERT_TRUE(wait_until_exited(announced_pid(child)));
    const int before = tavren_get_uptime();
    EXPECT_EQ(ends ? result_of_send_eof(child, patience) : result_of_sending(child, megabyte), expected);
    EXPECT_LT(tavren_get_uptime(), before + patience);
  }
}

TEST(EndOfOutput, LeavesTheChildToBeReaped) {
  TavrenProcess child("/bin/true", {}, false);
  result_of_reading_on(child);
  EXPECT_TRUE(has_children());
}

TEST(EndOfOutput, LosesNothingOfWhatWasPrintedBefore) { hear_many_out(200); }

TEST(EndOfOutput, LosesNothingWhileTheCoresAreBusy) {
  const BusyCores busy;
  hear_many_out(1000);
}
