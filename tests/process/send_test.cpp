#include <gtest/gtest.h>
#include <signal.h>
#include <stdio.h>
#include <sys/wait.h>

#include <memory>
#include <numeric>
#include <tuple>

#include "process/children.h"
#include "process/observe.h"
#include "process/signal_storm.h"
#include "support/random_bytes.h"
#include "support/run_in_child.h"
#include "tavren_basic.h"

namespace {

/* Without and with a pipe in place of the terminal as the child's standard input. */
class Send : public testing::TestWithParam<bool> {
 protected:
  static bool separate_stdin() { return GetParam(); }
};

std::string all_byte_values() {
  std::string bytes(256, '\0');
  std::iota(bytes.begin(), bytes.end(), '\0');
  return bytes;
}

std::string take(size_t count, const std::string& piece, const std::string& pause, const std::string& sent,
                 bool separate_stdin) {
  TavrenProcess child = counterpart({"take", std::to_string(count), piece, pause}, separate_stdin);
  child.send(sent, patience);
  return next_line(child);
}

const auto way = [](const testing::TestParamInfo<bool>& info) { return info.param ? "ByPipe" : "ByTerminal"; };

}  // namespace

INSTANTIATE_TEST_SUITE_P(Ways, Send, testing::Bool(), way);

TEST_P(Send, AllByteValuesArriveUnchanged) {
  TavrenProcess child("/bin/head", {"-c", "512"}, separate_stdin());
  const std::string bytes = all_byte_values() + all_byte_values();
  child.send(bytes, patience);
  EXPECT_EQ(all_output(child), bytes);
}

TEST_P(Send, BytesAreCountedNotEndedByANul) {
  TavrenProcess child("/bin/head", {"-c", "4"}, separate_stdin());
  child.send_bytes("a\0\0b and more", 4, patience);
  EXPECT_EQ(all_output(child), std::string("a\0\0b", 4));
}

TEST_P(Send, PiecesArriveInTheOrderSent) {
  TavrenProcess child("/bin/head", {"-c", "9"}, separate_stdin());
  for (const char* piece : {"one", "", "two", "six"}) child.send(piece, patience);
  EXPECT_EQ(all_output(child), "onetwosix");
}

TEST_P(Send, MegabytesReachAFastAndASlowReaderWhole) {
  const std::tuple<size_t, const char*, const char*> readers[] = {{8000000, "65536", "0"}, {2000000, "1777", "100"}};
  for (const auto& [size, piece, pause] : readers) {
    const std::string data = random_bytes(size, 1);
    EXPECT_EQ(take(data.size(), piece, pause, data, separate_stdin()), sum_line(data, "raw"));
  }
}

/* Also beside signals. */
TEST_P(Send, ChildThatNeverReadsEndsInATimeoutAndIsWaitedForWithoutSpinning) {
  for (const bool storms : {false, true}) {
    const auto storm = storms ? std::make_unique<SignalStorm>() : nullptr;
    TavrenProcess child("/bin/sleep", {"600"}, separate_stdin());
    const int started = tavren_get_uptime();
    const double before = cpu_seconds();
    EXPECT_EQ(result_of_sending(child, megabyte, 3), "TavrenTimeout");
    EXPECT_LT(cpu_seconds() - before, 1.5);
    EXPECT_GT(tavren_get_uptime(), started + 3);
  }
}

TEST_P(Send, DeadlineHoldsForTheWholeCallThoughBytesGoThrough) {
  TavrenProcess child = counterpart({"take", "1000000", "4096", "200000"}, separate_stdin());
  EXPECT_EQ(result_of_sending(child, megabyte, 2), "TavrenTimeout");
}

TEST_P(Send, WhatNeedsNoWaitIsSentAfterTheDeadline) {
  TavrenProcess child("/bin/head", {"-c", "5"}, separate_stdin());
  child.send("words", -10);
  EXPECT_EQ(next_bytes(child, 5), "words");
}

TEST_P(Send, OutputStaysReadableAfterATimeout) {
  TavrenProcess child = shell("echo words; exec sleep 600", separate_stdin());
  EXPECT_EQ(result_of_sending(child, megabyte, 0), "TavrenTimeout");
  EXPECT_EQ(next_line(child), "words");
}

TEST_P(Send, LargestTimeoutDoesNotOverflow) {
  TavrenProcess child = counterpart({"take", "1000000", "4096", "0"}, separate_stdin());
  child.send(megabyte, 2147483647);
  EXPECT_EQ(next_line(child), sum_line(megabyte, "raw"));
}

TEST_P(Send, ChildThatExitedIsReportedWithItsLastOutputAndLeftAsItIs) {
  for (const bool reaped_by_the_host : {false, true}) {
    for (const int timeout : {patience, -10}) {
      TavrenProcess child = shell("echo $$; read -r line; echo last words; echo and more", separate_stdin());
      const pid_t pid = announced_pid(child);
      child.send("go\n", patience);
      ASSERT_TRUE(wait_until_exited(pid));
      ASSERT_EQ(reaped_by_the_host ? waitpid(pid, nullptr, 0) : pid, pid);
      EXPECT_EQ(result_of_sending(child, megabyte, timeout),
                "13(/bin/sh) 12(" + std::to_string(pid) + ") 12(last words) 12(and more)");
      EXPECT_EQ(has_children(), !reaped_by_the_host);
    }
  }
}

TEST_P(Send, ChildThatExitsDuringTheWaitIsReportedBeforeTheDeadlineAndWithoutSpinning) {
  TavrenProcess child = shell("sleep 3; echo last words", separate_stdin());
  const int started = tavren_get_uptime();
  const double before = cpu_seconds();
  EXPECT_EQ(result_of_sending(child, megabyte, patience), "13(/bin/sh) 12(last words)");
  EXPECT_LT(cpu_seconds() - before, 1.5);
  EXPECT_LT(tavren_get_uptime(), started + patience);
}

TEST_P(Send, ZeroBytesReturnAtOnceWhereNoMoreCanBeWritten) {
  TavrenProcess child("/bin/sleep", {"600"}, separate_stdin());
  ASSERT_EQ(result_of_sending(child, megabyte, 0), "TavrenTimeout");
  child.disable();
  EXPECT_EQ(result_of([&] { child.send_bytes(nullptr, 0, 0); }), "done");
}

TEST_P(Send, WithoutAChildIsAFailedAssertionAlsoForZeroBytes) {
  for (const unsigned int length : {0U, 1U}) {
    expect_assertion("TavrenProcess", "to_child != -1 && child_pid != -1", [length] {
      TavrenProcess child = shell("exit", separate_stdin());
      child.stop(0);
      child.send_bytes("x", length, 0);
    });
  }
}

/* The host keeps the default disposition of SIGPIPE, which would end it. */
TEST(SendToAPipe, WithoutAReaderDoesNotEndTheHost) {
  const Outcome outcome = run_in_child([] {
    signal(SIGPIPE, SIG_DFL);
    TavrenProcess child = shell("echo $$; exec <&-; echo closed", true);
    wait_until_exited(announced_pid(child));
    printf("%s", result_of_sending(child, "words", patience).c_str());
  });
  EXPECT_TRUE(outcome.exited_with(0));
  EXPECT_EQ(outcome.out, "done");
}

/* Its output has ended, and a terminal without its other side says so at once, again and again. */
TEST(SendToATerminal, ThatALivingChildHasClosedIsReportedWithoutSpinning) {
  TavrenProcess child = shell("echo last words; exec sleep 600 <&- >&- 2>&-");
  const double before = cpu_seconds();
  EXPECT_EQ(result_of_sending(child, megabyte, patience), "13(/bin/sh) 12(last words)");
  EXPECT_LT(cpu_seconds() - before, 1.5);
}

TEST(SendToATerminal, TakesWhatTheChildDoesNotReadYet) {
  TavrenProcess child = shell("read -r go; read -r line; echo $line");
  child.send("go\nwords\n", patience);
  EXPECT_EQ(next_line(child), "words");
}

TEST(SendToAPipe, DoesNotReachTheTerminal) {
  TavrenProcess child = shell("cat; read -r line </dev/tty", true);
  child.send("words\n", patience);
  EXPECT_EQ(next_line(child), "words");
  EXPECT_EQ(result_of_reading(read_a_line, child, past_deadline()), "TavrenTimeout");
}
