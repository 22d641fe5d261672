#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <memory>
#include <utility>
#include <vector>

#include "process/children.h"
#include "process/faults.h"

using testing::ElementsAre;

namespace {

/* Waited for until it is deaf. */
std::unique_ptr<TavrenProcess> deaf_child() {
  std::unique_ptr<TavrenProcess> child(new TavrenProcess(shell(deaf)));
  announced_pid(*child);
  return child;
}

/* What the recorded calls of that name are while a child that does not end is stopped with so much grace. */
std::vector<long> calls_while_stopping(const char* name, int grace_time) {
  const auto child = deaf_child();
  const Faulty recorder(name);
  child->stop(grace_time);
  return recorder.arguments();
}

/* The looks at a child that does not end: as many as its grace time allows, and the one that waits for its end. */
std::vector<long> looks(size_t during_the_grace_time) {
  std::vector<long> options(during_the_grace_time, WNOHANG);
  options.push_back(0);
  return options;
}

}  // namespace

/* Three seconds are more than the destructor gives: a longer grace time is not cut to that. */
TEST(Stop, LooksTenTimesInEachSecondOfGraceAndThenWaits) {
  EXPECT_EQ(calls_while_stopping("waitpid", 2), looks(20));
  EXPECT_EQ(calls_while_stopping("waitpid", 3), looks(30));
}

TEST(Stop, NapsATenthOfASecondBetweenItsLooks) {
  EXPECT_EQ(calls_while_stopping("nanosleep", 2), std::vector<long>(20, 100));
  EXPECT_EQ(calls_while_stopping("nanosleep", 0), std::vector<long>());
}

TEST(Destruction, LooksTwentyTimesInTwoSecondsForTheEndOfADeafChildAndThenWaits) {
  for (const auto& [name, arguments] : {std::pair{"waitpid", looks(20)}, {"nanosleep", std::vector<long>(20, 100)}}) {
    auto child = deaf_child();
    const Faulty recorder(name);
    child.reset();
    EXPECT_EQ(recorder.arguments(), arguments);
  }
}

TEST(Kill, GetsSigtermAndThenSigkillWithoutGrace) {
  EXPECT_THAT(calls_while_stopping("kill", 0), ElementsAre(SIGTERM, SIGKILL));
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
