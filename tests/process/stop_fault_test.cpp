#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <list>
#include <memory>
#include <string>
#include <vector>

#include "process/children.h"
#include "process/faults.h"

using testing::ElementsAre;

namespace {

/* A child that SIGTERM does not end, waited for until it is deaf to it. */
std::unique_ptr<TavrenProcess> deaf_child() {
  const std::string script = "trap '' TERM; echo deaf; exec sleep 600";
  auto child = std::make_unique<TavrenProcess>("/bin/sh", std::list<std::string>{"-c", script}, false);
  next_line(*child);
  return child;
}

/* The looks at a child that does not end: as many as its grace time allows, and the one that waits for its end. */
std::vector<long> looks(size_t during_the_grace_time) {
  std::vector<long> options(during_the_grace_time, WNOHANG);
  options.push_back(0);
  return options;
}

}  // namespace

TEST(Stop, LooksTwentyTimesInItsTwoSecondsOfGraceAndThenWaits) {
  const auto child = deaf_child();
  const Faulty recorder("waitpid");
  child->stop(2);
  EXPECT_EQ(recorder.arguments(), looks(20));
}

/* More than the destructor gives: a longer grace time is not cut to that. */
TEST(Stop, LooksThirtyTimesInThreeSecondsOfGrace) {
  const auto child = deaf_child();
  const Faulty recorder("waitpid");
  child->stop(3);
  EXPECT_EQ(recorder.arguments(), looks(30));
}

TEST(Stop, NapsATenthOfASecondBetweenItsLooks) {
  const auto child = deaf_child();
  const Faulty recorder("nanosleep");
  child->stop(2);
  EXPECT_EQ(recorder.arguments(), std::vector<long>(20, 100));
}

TEST(Stop, WithoutGraceDoesNotNap) {
  const auto child = deaf_child();
  const Faulty recorder("nanosleep");
  child->stop(0);
  EXPECT_EQ(recorder.calls(), 0U);
}

TEST(Destruction, LooksTwentyTimesForTheEndOfADeafChildAndThenWaits) {
  auto child = deaf_child();
  const Faulty recorder("waitpid");
  child.reset();
  EXPECT_EQ(recorder.arguments(), looks(20));
}

TEST(Destruction, NapsForTwoSecondsWhileTheChildIsDeaf) {
  auto child = deaf_child();
  const Faulty recorder("nanosleep");
  child.reset();
  EXPECT_EQ(recorder.arguments(), std::vector<long>(20, 100));
}

TEST(Kill, GetsSigtermAndThenSigkillWithoutGrace) {
  const auto child = deaf_child();
  const Faulty recorder("kill");
  child->stop(0);
  EXPECT_THAT(recorder.arguments(), ElementsAre(SIGTERM, SIGKILL));
}

TEST(Kill, GetsOnlySigtermForAChildThatEnds) {
  TavrenProcess child("/bin/sleep", {"600"}, false);
  const Faulty recorder("kill");
  child.stop(patience);
  EXPECT_THAT(recorder.arguments(), ElementsAre(SIGTERM));
}

TEST(Kill, IsNotCalledWithoutALiveChild) {
  TavrenProcess child("/bin/sleep", {"600"}, false);
  child.stop(0);
  const Faulty recorder("kill");
  child.send_signal(SIGTERM);
  child.stop(1);
  EXPECT_EQ(recorder.calls(), 0U);
}

TEST(FailedWaitpid, IsRepeatedWhenInterrupted) {
  TavrenProcess child("/bin/sleep", {"600"}, false);
  const Faulty fault("waitpid", EINTR);
  child.stop(0);
  EXPECT_EQ(fault.calls(), 2U);
}
