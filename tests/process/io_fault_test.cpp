#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <termios.h>
#include <unistd.h>

#include "process/children.h"
#include "process/faults.h"
#include "process/observe.h"
#include "support/run_in_child.h"
#include "support/temporary_directory.h"
#include "tavren_basic.h"

using testing::Each;
using testing::ElementsAre;

namespace {

/* What poll gets, in milliseconds, for a wait that has seconds left. */
long poll_timeout_of(TavrenProcess& child, long seconds) {
  for (;;) {
    const int now = tavren_get_uptime();
    const Faulty call("poll", ENOMEM);
    result_of_reading(read_a_byte, child, now + seconds - 1);
    if (tavren_get_uptime() == now) return call.arguments().at(0);
  }
}

/* Writes through a call that comes back with that error once, and returns what the child got. */
std::string echo_through_failing_write(int error, bool separate_stdin) {
  TavrenProcess child("/bin/head", {"-c", "5"}, separate_stdin);
  {
    const Faulty call("write", error);
    child.send("words", patience);
    EXPECT_EQ(call.calls(), 2U);
  }
  return next_bytes(child, 5);
}

/* Reads a line that is waited for, through a call that comes back with that error once. */
std::string line_through_failing(const std::string& name, int error) {
  TavrenProcess child = shell("sleep 0.3; echo words");
  const Faulty call(name, error);
  const std::string line = next_line(child);
  EXPECT_GE(call.calls(), 2U);
  return line;
}

}  // namespace

/* The terminal takes data all the while, and the wait ends all the same. */
TEST(CancelledWait, WinsOverATerminalThatIsReadyForWriting) {
  TavrenProcess child("/bin/cat", {}, false);
  child.disable();
  const Faulty call("write", EAGAIN);
  EXPECT_EQ(result_of_sending(child, "words"), cancelled);
}

TEST(CancelledWait, WinsOverATerminalThatIsReadyForReading) {
  const TemporaryDirectory directory;
  TavrenProcess child = shell("echo words; touch " + directory.path("said") + "; exec sleep 600");
  ASSERT_TRUE(wait_until([&] { return access(directory.path("said").c_str(), F_OK) == 0; }));
  child.disable();
  const Faulty call("read", EAGAIN);
  EXPECT_EQ(result_of_reading(read_a_line, child), cancelled);
}

TEST(FailedWrite, IsNamed) {
  for (const bool separate_stdin : {false, true}) {
    TavrenProcess child("/bin/cat", {}, separate_stdin);
    const Faulty call("write", EIO);
    EXPECT_EQ(result_of_sending(child, "words"), "24(write(to_child), 5)");
  }
}

TEST(FailedWrite, IsRepeatedAfterAWaitWhenNothingWasTaken) {
  for (const int error : {0, EAGAIN, EINTR}) {
    for (const bool separate_stdin : {false, true}) {
      EXPECT_EQ(echo_through_failing_write(error, separate_stdin), "words") << error;
    }
  }
}

TEST(FailedWrite, IsNotMetByZeroBytes) {
  TavrenProcess child("/bin/cat", {}, false);
  const Faulty call("write", EIO);
  EXPECT_EQ(result_of_sending(child, ""), "done");
  EXPECT_EQ(call.calls(), 0U);
}

TEST(FailedRead, IsNamed) {
  TavrenProcess child("/bin/cat", {}, false);
  const Faulty call("read", EBADF);
  EXPECT_EQ(result_of_reading_on(child), "24(read(master_fd), 9)");
}

TEST(FailedRead, ThatReturnsNothingTwiceIsTheEndOfTheOutput) {
  TavrenProcess child("/bin/cat", {}, false);
  for (const int error : {0, EIO}) {
    const Faulty call("read", error, Faulty::every);
    EXPECT_EQ(result_of_reading_on(child), "13(/bin/cat)");
    EXPECT_EQ(call.calls(), 2U);
  }
}

TEST(FailedRead, IsRepeatedWhenThereIsNothingYet) { EXPECT_EQ(line_through_failing("read", EAGAIN), "words"); }

TEST(Read, TakesAtMost1024BytesAtATime) {
  TavrenProcess child = counterpart({"flood", "5000"});
  const Faulty call("read");
  next_bytes(child, 5000);
  for (const long size : call.arguments()) EXPECT_EQ(size, 1024);
}

TEST(FailedPoll, IsNamedByReadingAndWriting) {
  TavrenProcess child("/bin/sleep", {"600"}, false);
  {
    const Faulty call("poll", ENOMEM);
    EXPECT_EQ(result_of_reading_on(child), "24(poll, 12)");
  }
  const Faulty call("poll", ENOMEM);
  EXPECT_EQ(result_of_sending(child, megabyte), "24(poll, 12)");
}

TEST(FailedPoll, IsRepeatedWhenInterrupted) { EXPECT_EQ(line_through_failing("poll", EINTR), "words"); }

TEST(Poll, WaitsOneSecondMoreThanTheDeadlineSaysOrForever) {
  TavrenProcess child("/bin/cat", {}, false);
  EXPECT_EQ(poll_timeout_of(child, 1), 1000);
  EXPECT_EQ(poll_timeout_of(child, 11), 11000);
  EXPECT_EQ(poll_timeout_of(child, 2147482), 2147482000);
  /* When its milliseconds cannot hold the time. */
  EXPECT_EQ(poll_timeout_of(child, 2147483), 2147483647);
}

/* Where nothing more can be written each lasts a second, which bounds the whole however busy the machine is. */
TEST(Poll, IsCalledOnceForEachSecondOfAWaitForWriting) {
  for (const bool separate_stdin : {false, true}) {
    TavrenProcess child("/bin/sleep", {"600"}, separate_stdin);
    ASSERT_EQ(result_of_sending(child, megabyte, 0), "TavrenTimeout");
    const Faulty recorder("poll");
    EXPECT_EQ(result_of_sending(child, megabyte, 2), "TavrenTimeout");
    EXPECT_THAT(recorder.arguments(), Each(1000));
    EXPECT_LE(recorder.calls(), 3U);
  }
}

TEST(Poll, IsNotCalledAfterTheDeadline) {
  TavrenProcess child("/bin/cat", {}, false);
  const Faulty call("poll");
  EXPECT_EQ(result_of_reading(read_a_byte, child, past_deadline()), "TavrenTimeout");
  EXPECT_EQ(call.calls(), 0U);
}

TEST(FailedDisable, IsAFailedAssertion) {
  for (const int error : {0, EBADF}) {
    expect_assertion("TavrenProcess", "rc == 1", [error] {
      TavrenProcess child("/bin/cat", {}, false);
      const Faulty fault("write", error);
      child.disable();
    });
  }
}

TEST(TerminalSettings, TakeEffectAtOnce) {
  const Faulty recorder("tcsetattr");
  TavrenProcess child = counterpart({"sum", "100", "0"});
  child.send_eof(patience);
  EXPECT_THAT(recorder.arguments(), ElementsAre(TCSANOW, TCSANOW));
}
