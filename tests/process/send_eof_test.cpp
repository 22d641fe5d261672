#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <random>
#include <tuple>
#include <vector>

#include "process/children.h"
#include "process/observe.h"
#include "process/signal_storm.h"
#include "support/busy_cores.h"
#include "support/run_in_child.h"

namespace {

/* Sends data and the end of it to a counterpart that takes so much at a time with pauses. Returns what that prints. */
std::string answer_to(const std::string& data, const std::string& piece, const std::string& pause) {
  TavrenProcess child = counterpart({"sum", piece, pause});
  child.send(data, patience);
  child.send_eof(patience);
  return next_line(child);
}

/* A stream of random size, contents and reader, with and without a newline at its end. */
void send_a_stream(unsigned int seed) {
  std::mt19937 random(seed);
  std::string data(random() % (seed % 4 == 0 ? 100000 : 6000), '\0');
  for (char& byte : data) byte = static_cast<char>(random());
  if (seed % 2 == 0) data += '\n';
  const std::string piece = std::to_string(1 + random() % 4096);
  const std::string pause = std::to_string(seed % 3 == 0 && data.size() < 6000 ? random() % 300 : 0);
  ASSERT_EQ(answer_to(data, piece, pause), sum_line(data, "canonical"))
      << "stream " << seed << ", reading by " << piece;
}

void send_streams(unsigned int first, unsigned int count) {
  for (unsigned int i = first; i < first + count; ++i) ASSERT_NO_FATAL_FAILURE(send_a_stream(i));
}

/* A child that has exited without reading what was sent to it. */
class ExitedWithUnreadInput : public testing::Test {
 protected:
  ExitedWithUnreadInput() : child(shell("echo $$; head -c 1 >/dev/null; echo last words")), pid(announced_pid(child)) {
    child.send("gone unread", patience);
  }
  std::string expected() const { return "13(/bin/sh) 12(" + std::to_string(pid) + ") 12(last words)"; }

  TavrenProcess child;
  const pid_t pid;
};

}  // namespace

TEST(SendEof, StreamsOfRandomSizeArriveWhole) { send_streams(0, 300); }

/* By ten processes at once, since most of the time they wait; made before this one has threads. */
TEST(SendEof, StreamsArriveWholeWhileTheCoresAreBusy) {
  std::vector<pid_t> senders;
  for (unsigned int i = 0; i < 10; ++i) {
    senders.push_back(fork());
    if (senders.back() != 0) continue;
    send_streams(1000 + 30 * i, 30);
    _exit(testing::Test::HasFailure() ? 1 : 0);
  }
  const BusyCores busy;
  for (const pid_t sender : senders) {
    int status = -1;
    EXPECT_EQ(waitpid(sender, &status, 0), sender);
    EXPECT_EQ(status, 0);
  }
}

/* Nothing, more than a slow reader has read by then, and characters that are the end of a file elsewhere. */
TEST(SendEof, EndsTheInputBehindEverythingThatWasSent) {
  const std::tuple<std::string, const char*, const char*> inputs[] = {
      {"", "100", "0"}, {std::string(2000, 'x'), "40", "30000"}, {"a\x04\x04\nb\x04", "100", "0"}};
  for (const auto& [data, piece, pause] : inputs) EXPECT_EQ(answer_to(data, piece, pause), sum_line(data, "canonical"));
}

TEST(SendEof, ChildThatNeverReadsEndsInATimeout) {
  TavrenProcess child("/bin/sleep", {"600"}, false);
  child.send("unread", patience);
  const auto before = std::chrono::steady_clock::now();
  EXPECT_EQ(result_of_send_eof(child, 2), "TavrenTimeout");
  EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::seconds(2));
}

TEST(SendEof, TimeoutLeavesTheTerminalAsItWas) {
  TavrenProcess child = counterpart({"take", "30", "10", "500000"});
  const std::string data(30, 'x');
  child.send(data, patience);
  EXPECT_EQ(result_of_send_eof(child, 0), "TavrenTimeout");
  EXPECT_EQ(next_line(child), sum_line(data, "raw"));
}

TEST(SendEof, ChildGoneWithUnreadInputIsReported) {
  TavrenProcess child = shell("echo last words");
  child.send("gone unread", patience);
  EXPECT_EQ(result_of_send_eof(child, patience), "13(/bin/sh) 12(last words)");
}

TEST_F(ExitedWithUnreadInput, IsReportedWithItsLastOutput) {
  EXPECT_EQ(result_of_send_eof(child, patience), expected());
}

TEST_F(ExitedWithUnreadInput, IsReportedWhenTheHostHasReapedIt) {
  ASSERT_EQ(waitpid(pid, nullptr, 0), pid);
  EXPECT_EQ(result_of_send_eof(child, patience), expected());
}

TEST_F(ExitedWithUnreadInput, IsReapedAndForgotten) {
  result_of_send_eof(child, patience);
  EXPECT_FALSE(has_children());
  EXPECT_EQ(child.send_signal(0), -1);
}

TEST(SendEof, ChildThatExitedAfterReadingEverythingIsReported) {
  TavrenProcess child = shell("echo $$; head -c 5 >/dev/null; echo last words");
  const pid_t pid = announced_pid(child);
  child.send("words", patience);
  ASSERT_TRUE(wait_until_exited(pid));
  EXPECT_EQ(result_of_send_eof(child, patience), "13(/bin/sh) 12(" + std::to_string(pid) + ") 12(last words)");
}

/* Each of the twenty naps is exact to a millisecond. */
TEST(SendEof, NapsGoOnThroughSignals) {
  const SignalStorm storm;
  TavrenProcess child("/bin/sleep", {"600"}, false);
  child.send("unread", patience);
  const auto before = std::chrono::steady_clock::now();
  EXPECT_EQ(result_of_send_eof(child, 2), "TavrenTimeout");
  EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(1980));
}

TEST(SendEof, NapsWithoutSpinning) {
  TavrenProcess child("/bin/sleep", {"600"}, false);
  child.send("unread", patience);
  const double before = cpu_seconds();
  result_of_send_eof(child, 3);
  EXPECT_LT(cpu_seconds() - before, 1.5);
}

TEST(SendEof, LooksOnceBeforeATimeoutThatHasPassed) {
  for (const int timeout : {0, -1, -2147483647 - 1}) {
    TavrenProcess child = counterpart({"sum", "100", "0"});
    EXPECT_EQ(result_of_send_eof(child, timeout), "done") << timeout;
    EXPECT_EQ(next_line(child), sum_line("", "canonical")) << timeout;
  }
}

TEST(SendEof, LeavesNoDescriptorOfTheOtherSideOpen) {
  const std::set<int> before = open_descriptors();
  TavrenProcess child("/bin/sleep", {"600"}, false);
  const std::set<int> ours = new_descriptors(before);
  child.send("unread", patience);
  EXPECT_EQ(result_of_send_eof(child, 0), "TavrenTimeout");
  EXPECT_EQ(new_descriptors(before), ours);
}

TEST(SendEof, IsAnOrdinaryByteForAChildWithAnInputPipe) {
  TavrenProcess child("/bin/head", {"-c", "3"}, true);
  child.send("a", patience);
  child.send_eof(patience);
  child.send("b", patience);
  EXPECT_EQ(all_output(child),
            "a\x04"
            "b");
}

TEST(SendEof, WithoutAChildIsAFailedAssertion) {
  expect_assertion("TavrenProcess", "child_pid != -1 && master_fd != -1", [] {
    TavrenProcess child = shell("exit");
    child.stop(0);
    child.send_eof(0);
  });
}
