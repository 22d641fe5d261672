#include "archiver/desk.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <optional>
#include <string>
#include <thread>

#include "archiver/children.h"
#include "plan/schedule.h"
#include "support/temporary_directory.h"
#include "tavren_basic.h"

namespace {

class DeskTest : public testing::Test {
 protected:
  DeskTest() { EXPECT_TRUE(desk.run_task(space_task)); }
  ~DeskTest() override { set_retry_interval("default"); }

  static void set_retry_interval(const std::string& seconds) {
    std::string refusal;
    TavrenTunables::instance().set_tunable("failure_retry_interval", seconds, refusal);
    EXPECT_EQ(refusal, "");
  }

  static ArchiveConfig config(const std::string& host) { return {{host, "/archive", "logger", "", "", ""}, {-1, -1}}; }

  static pid_t make_child(const char* name = "child") {
    int named[2] = {-1, -1};
    EXPECT_EQ(pipe(named), 0);
    const pid_t child = fork();
    if (child == 0) {
      prctl(PR_SET_NAME, name);
      close(named[1]);
      for (;;) pause();
    }
    close(named[1]);
    char none = 0;
    EXPECT_EQ(read(named[0], &none, 1), 0); /* it has its name */
    close(named[0]);
    return child;
  }

  static Section section() {
    Section messages;
    messages.name = "messages";
    messages.interval = 3600;
    return messages;
  }

  /* Returns a chassis whose first run of that section's task waits so long, and that of the other task longer. */
  static std::string chassis_with_first_run(int64_t earliest_ms, int64_t latest_ms) {
    for (int i = 0;; ++i) {
      const std::string chassis = "CH-" + std::to_string(i);
      const int64_t delay = first_delay_ms(chassis, task_of(section()), 3600);
      if (delay < earliest_ms || delay > latest_ms) continue;
      if (first_delay_ms(chassis, space_task, 3600) > latest_ms) return chassis;
    }
  }

  /* Waits for work that is due: before that there is one to look at what is not. */
  static std::optional<Work> due_work(Desk& where) {
    auto work = where.wait_for_work();
    while (work && !work->measure_space && work->sections.empty()) work = where.wait_for_work();
    return work;
  }

  static std::optional<Work> any_work(Desk& where) { return where.wait_for_work(); }

  /* Returns the next work of where, or nothing when there is none for ten seconds. */
  static std::optional<Work> next_work(Desk& where, std::optional<Work> (*wait)(Desk&) = due_work) {
    std::optional<Work> work;
    std::atomic<bool> is_back{false};
    std::thread archiving([&] {
      work = wait(where);
      is_back = true;
    });
    for (int i = 0; i < 1000 && !is_back; ++i) usleep(10000);
    if (!is_back) where.stop();
    archiving.join();
    return work;
  }

  /* Has the next work fail, so that nothing is tried for some minutes. */
  void fail() {
    ASSERT_TRUE(next_work(desk));
    desk.work_has_failed(0.5);
  }

  /* The same of the work that there is when something is done while the archiving thread waits. */
  std::optional<Work> next_work_after(const std::function<void()>& action) { return next_work_after(action, desk); }
  static std::optional<Work> next_work_after(const std::function<void()>& action, Desk& where) {
    std::thread serving([&] {
      while (!where.is_sleeping()) usleep(1000);
      action();
    });
    auto work = next_work(where);
    serving.join();
    return work;
  }

  /* Returns the processor time, in milliseconds, that the archiving thread takes while it waits for a tenth of a
   * second. */
  int64_t cost_of_waiting_ms() {
    clockid_t clock{};
    timespec cost{};
    std::thread archiving([this] { EXPECT_FALSE(due_work(desk)); });
    pthread_getcpuclockid(archiving.native_handle(), &clock);
    usleep(100000);
    clock_gettime(clock, &cost);
    desk.stop();
    archiving.join();
    return static_cast<int64_t>(cost.tv_sec) * 1000 + cost.tv_nsec / 1000000;
  }

  const TemporaryDirectory directory;
  Store store{directory.path("state")};
  Desk desk{store, {}, "CH-1"};
};

}  // namespace

/* Once after each change of what is to be looked at. */
TEST_F(DeskTest, HandsOutAllSectionsBeforeTheyAreDue) {
  Desk other(store, {section()}, chassis_with_first_run(1000000, 2000000));
  other.set_config(config("host"), true);
  const auto expect_look = [&other](size_t sections) {
    const auto look = other.wait_for_work();
    ASSERT_TRUE(look);
    EXPECT_EQ(look->all.size(), sections);
    EXPECT_TRUE(look->sections.empty());
    EXPECT_FALSE(look->claim);
  };
  expect_look(1);
  std::thread serving([&other] {
    while (!other.is_sleeping()) usleep(1000);
    other.set_sections({section(), section()});
  });
  expect_look(2);
  serving.join();
}

/* The state may have had no room for what was seen. */
TEST_F(DeskTest, HasAFirstLookThatFailedRepeatedBeforeAnythingIsDue) {
  set_retry_interval("1");
  desk.set_config(config("one"), true);
  Desk other(store, {section()}, chassis_with_first_run(1000000, 2000000));
  ASSERT_TRUE(next_work(other, any_work));
  const int64_t before_ms = tavren_get_uptime_ms();
  other.work_has_failed(0);
  const auto again = next_work(other, any_work);
  ASSERT_TRUE(again);
  EXPECT_TRUE(again->looks_at_all);
  EXPECT_GE(again->begun_ms, before_ms + retry_delay_ms(1, 0));
}

TEST_F(DeskTest, HandsOutWhatIsDueBetweenFirstLooksThatFail) {
  desk.set_config(config("one"), true);
  for (int i = 0; i < 2; ++i) {
    EXPECT_TRUE(desk.run_task(space_task));
    const auto look = next_work(desk, any_work);
    ASSERT_TRUE(look);
    EXPECT_TRUE(look->looks_at_all);
    desk.work_has_failed(0.5);
    usleep(2000); /* within its millisecond a task is not due yet */
    EXPECT_TRUE(desk.run_task(space_task));
    const auto due = next_work(desk, any_work);
    ASSERT_TRUE(due);
    EXPECT_TRUE(due->measure_space);
    desk.work_is_done(*due);
  }
}

TEST_F(DeskTest, KnowsWhatTheStoreHadWhenItWasMade) {
  desk.set_config(config("one"), true);
  Desk other(store, {}, "CH-1");
  EXPECT_TRUE(other.is_enabled());
  ASSERT_TRUE(other.config());
  EXPECT_EQ(other.config()->settings.host, "one");
}

TEST_F(DeskTest, KeepsTheConfigurationWhenOnlyTheStateIsSet) {
  desk.set_config(config("one"), true);
  desk.set_config(std::nullopt, false);
  EXPECT_FALSE(desk.is_enabled());
  EXPECT_EQ(desk.config()->settings.host, "one");
}

/* Neither its children nor itself, although it begins before the other thread has seen the end of what it ends. */
TEST_F(DeskTest, DoesNotEndTheWorkThatFollowsTheOneThatItEnds) {
  desk.set_config(config("one"), true);
  pid_t child = -1;
  bool is_first_ended = false;
  bool is_second_ended = true;
  std::string second_host;
  std::thread archiving([&] {
    due_work(desk);
    std::thread serving([this] { desk.set_config(config("two"), true); });
    while (!desk.is_cancelled()) usleep(1000);
    is_first_ended = true;
    second_host = due_work(desk)->config.settings.host;
    child = make_child();
    serving.join();
    is_second_ended = desk.is_cancelled() || waitpid(child, nullptr, WNOHANG) != 0;
  });
  archiving.join();
  EXPECT_TRUE(is_first_ended);
  EXPECT_EQ(second_host, "two");
  EXPECT_FALSE(is_second_ended);
  kill(child, SIGKILL);
}

TEST_F(DeskTest, EndsTheChildrenOfTheWorkThatItEnds) {
  desk.set_config(config("one"), true);
  int status = 0;
  std::thread archiving([&] {
    due_work(desk);
    const pid_t child = make_child();
    std::thread serving([this] { desk.stop(); });
    waitpid(child, &status, 0);
    EXPECT_TRUE(desk.is_cancelled());
    EXPECT_FALSE(due_work(desk));
    serving.join();
  });
  archiving.join();
  EXPECT_TRUE(WIFSIGNALED(status));
  EXPECT_EQ(WTERMSIG(status), SIGTERM);
}

TEST_F(DeskTest, EndsChildrenThatDoNotEndWhenTheyAreAsked) {
  desk.set_config(config("one"), true);
  int status = 0;
  std::thread archiving([&] {
    due_work(desk);
    const auto asked = signal(SIGTERM, SIG_IGN);
    const pid_t child = make_child();
    signal(SIGTERM, asked);
    std::thread serving([this] { desk.stop(); });
    waitpid(child, &status, 0);
    EXPECT_FALSE(due_work(desk));
    serving.join();
  });
  archiving.join();
  EXPECT_TRUE(WIFSIGNALED(status));
  EXPECT_EQ(WTERMSIG(status), SIGKILL);
}

/* Of a thread that is none there is no list. */
TEST_F(DeskTest, EndsChildrenAlsoWhereTheKernelHasNoListOfThem) {
  const pid_t child = make_child("a) b (c");
  end_children_of(0, SIGTERM);
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_TRUE(WIFSIGNALED(status));
  EXPECT_EQ(WTERMSIG(status), SIGTERM);
}

/* The calling thread's own is asked for: one that nobody waits for may be there of any other. */
TEST_F(DeskTest, KnowsByTheEndOfTheClientWhetherTheConnectionWasLost) {
  const auto make_child_that_ends = [](int status) {
    const pid_t child = fork();
    if (child == 0) _exit(status);
    return child;
  };
  const pid_t other = make_child_that_ends(255);
  siginfo_t none{};
  waitid(P_PID, static_cast<id_t>(other), &none, WEXITED | WNOWAIT);
  const auto is_lost_with = [&](int status) {
    bool is_lost = status != 255;
    std::thread([&] {
      const pid_t client = make_child_that_ends(status);
      is_lost = has_lost_its_connection(10000);
      EXPECT_EQ(waitpid(client, nullptr, 0), client) << "it is left for who waits for it";
    }).join();
    return is_lost;
  };
  EXPECT_FALSE(is_lost_with(2));
  EXPECT_TRUE(is_lost_with(255));
  std::thread([] { EXPECT_FALSE(has_lost_its_connection(0)); }).join();
  waitpid(other, nullptr, 0);
}

TEST_F(DeskTest, HandsOutWorkThatWasAskedForWhileTheLastOneWasFailing) {
  desk.set_config(config("one"), true);
  ASSERT_TRUE(due_work(desk));
  EXPECT_TRUE(desk.run_task(space_task));
  desk.work_has_failed(0.5);
  EXPECT_TRUE(due_work(desk));
  std::thread serving([this] { desk.set_config(config("two"), true); });
  while (!desk.is_cancelled()) usleep(1000);
  desk.work_has_failed(0.5);
  EXPECT_TRUE(due_work(desk));
  serving.join();
}

TEST_F(DeskTest, HandsOutWorkWhenItWasSwitchedOnWhileTheLastOneWasFailing) {
  desk.set_config(config("one"), true);
  ASSERT_TRUE(next_work(desk));
  desk.set_config(std::nullopt, true);
  desk.work_has_failed(0.5);
  EXPECT_TRUE(next_work(desk));
}

TEST_F(DeskTest, WaitsAfterAFailureThatNobodyHasSeenComing) {
  desk.set_config(config("one"), true);
  ASSERT_TRUE(due_work(desk));
  desk.work_has_failed(0.5);
  std::optional<Work> work;
  std::thread archiving([&] { work = due_work(desk); });
  while (!desk.is_sleeping()) usleep(1000);
  desk.stop();
  archiving.join();
  EXPECT_FALSE(work);
}

TEST_F(DeskTest, WaitsWithoutPollingWhileItIsSwitchedOff) {
  desk.set_config(config("one"), false);
  EXPECT_LT(cost_of_waiting_ms(), 10);
}

TEST_F(DeskTest, WaitsWithoutPollingWhileThereIsNoConfiguration) {
  desk.set_config(std::nullopt, true);
  EXPECT_LT(cost_of_waiting_ms(), 10);
}

TEST_F(DeskTest, WaitsWithoutPollingAfterAFailure) {
  desk.set_config(config("one"), true);
  fail();
  EXPECT_LT(cost_of_waiting_ms(), 10);
}

TEST_F(DeskTest, EndsTheWaitAfterAFailureWhenATaskIsRun) {
  desk.set_config(config("one"), true);
  fail();
  EXPECT_TRUE(next_work_after([this] { desk.run_task(space_task); }));
}

TEST_F(DeskTest, EndsTheWaitAfterAFailureWithANewConfiguration) {
  desk.set_config(config("one"), true);
  fail();
  EXPECT_TRUE(next_work_after([this] { desk.set_config(config("two"), true); }));
}

TEST_F(DeskTest, EndsTheWaitAfterAFailureWhenItIsSwitchedOn) {
  desk.set_config(config("one"), true);
  fail();
  EXPECT_TRUE(next_work_after([this] { desk.set_config(std::nullopt, true); }));
}

TEST_F(DeskTest, EndsTheWaitAfterAFailureWithOtherSections) {
  desk.set_config(config("one"), true);
  fail();
  EXPECT_TRUE(next_work_after([this] { desk.set_sections({section()}); }));
}

TEST_F(DeskTest, EndsTheWorkWhenTheSectionsAreOthers) {
  desk.set_config(config("one"), true);
  ASSERT_TRUE(due_work(desk));
  std::thread serving([this] { desk.set_sections({section()}); });
  while (!desk.is_cancelled()) usleep(1000);
  desk.work_has_failed(0.5);
  EXPECT_TRUE(next_work(desk));
  serving.join();
}

/* What was done was done with what was configured before. */
TEST_F(DeskTest, KeepsTasksDueOfWorkThatWasDoneWhileItWasEnded) {
  desk.set_config(config("one"), true);
  const auto first = due_work(desk);
  ASSERT_TRUE(first);
  std::thread serving([this] { desk.set_config(config("two"), true); });
  while (!desk.is_cancelled()) usleep(1000);
  desk.work_is_done(*first);
  EXPECT_TRUE(next_work(desk));
  serving.join();
}

TEST_F(DeskTest, HasNoTaskOfASectionThatIsNoMore) {
  desk.set_sections({section()});
  EXPECT_EQ(desk.intervals().count(task_of(section())), 1U);
  desk.set_sections({});
  EXPECT_EQ(desk.intervals().count(task_of(section())), 0U);
  EXPECT_EQ(desk.intervals().count(space_task), 1U);
}

TEST_F(DeskTest, KnowsNothingOfTheSpaceInAnArchiveThatIsNew) {
  ArchiveConfig limited = config("one");
  limited.space_limit[0] = 1000;
  desk.set_config(limited, true);
  desk.set_used(0, 7);
  desk.set_config(std::nullopt, false);
  EXPECT_EQ(desk.status().compartments[0].used_mb, 7);
  desk.set_config(limited, true);
  EXPECT_EQ(desk.status().compartments[0].used_mb, -2);
}

/* Its session may measure on until it is ended. */
TEST_F(DeskTest, KnowsNothingOfTheSpaceThatIsMeasuredInTheArchiveBeforeIt) {
  ArchiveConfig limited = config("one");
  limited.space_limit[0] = 1000;
  desk.set_config(limited, true);
  std::thread archiving([&] {
    due_work(desk);
    std::thread serving([&] { desk.set_config(limited, true); });
    while (!desk.is_cancelled()) usleep(1000);
    desk.set_used(0, 7);
    due_work(desk);
    serving.join();
  });
  archiving.join();
  EXPECT_EQ(desk.status().compartments[0].used_mb, -2);
}

/* What it was asked for may have come just behind the look of the present run. */
TEST_F(DeskTest, KeepsATaskDueThatWasAskedForWhileItRan) {
  desk.set_config(config("one"), true);
  const auto first = due_work(desk);
  ASSERT_TRUE(first);
  EXPECT_TRUE(desk.run_task(space_task));
  desk.work_is_done(*first);
  const auto second = next_work(desk);
  ASSERT_TRUE(second);
  EXPECT_TRUE(second->measure_space);
}

TEST_F(DeskTest, LetsTheSpaceRestOnceItHasBeenMeasured) {
  desk.set_config(config("one"), true);
  desk.set_sections({section()});
  const auto first = next_work(desk);
  ASSERT_TRUE(first);
  EXPECT_TRUE(first->measure_space);
  desk.work_is_done(*first);
  EXPECT_TRUE(desk.run_task(task_of(section())));
  const auto second = next_work(desk);
  ASSERT_TRUE(second);
  EXPECT_EQ(second->sections.size(), 1U);
  EXPECT_FALSE(second->measure_space);
}

TEST_F(DeskTest, NotesAClaimOfTheConfigurationThatItWasMadeWith) {
  desk.set_config(config("one"), true);
  ASSERT_TRUE(due_work(desk));
  desk.note_claim();
  EXPECT_TRUE(store.is_claimed());
  std::thread serving([this] { desk.set_config(config("two"), true); });
  while (!desk.is_cancelled()) usleep(1000);
  desk.note_claim();
  EXPECT_FALSE(store.is_claimed());
  EXPECT_TRUE(due_work(desk)->claim);
  serving.join();
}

TEST_F(DeskTest, HandsOutTheFirstWorkAfterTheDelayOfItsChassis) {
  desk.set_config(config("one"), true);
  const std::string chassis = chassis_with_first_run(200, 1000);
  const int64_t before_ms = tavren_get_uptime_ms();
  Desk other(store, {section()}, chassis);
  const auto work = next_work(other);
  ASSERT_TRUE(work);
  EXPECT_GE(work->begun_ms, before_ms + first_delay_ms(chassis, task_of(section()), 3600));
  EXPECT_EQ(work->sections.size(), 1U);
}

TEST_F(DeskTest, CountsANewIntervalFromNow) {
  desk.set_config(config("one"), true);
  Desk other(store, {section()}, chassis_with_first_run(1000000, 2000000));
  const int64_t before_ms = tavren_get_uptime_ms();
  EXPECT_TRUE(other.set_interval(task_of(section()), 1));
  const auto work = next_work(other);
  ASSERT_TRUE(work);
  EXPECT_GE(work->begun_ms, before_ms + 1000);
}

TEST_F(DeskTest, KeepsATaskDueThatGetsALongerInterval) {
  desk.set_config(config("one"), true);
  EXPECT_TRUE(desk.set_interval(space_task, 7200));
  EXPECT_TRUE(next_work(desk));
}

TEST_F(DeskTest, TakesANewIntervalWhileItWaits) {
  desk.set_config(config("one"), true);
  Desk other(store, {section()}, chassis_with_first_run(1000000, 2000000));
  ASSERT_TRUE(other.wait_for_work()); /* to look, which is not to wait */
  EXPECT_TRUE(next_work_after([&] { other.set_interval(task_of(section()), 1); }, other));
}

TEST_F(DeskTest, WaitsAfterAFailureAsLongAsWasDrawn) {
  set_retry_interval("1");
  desk.set_config(config("one"), true);
  for (const double draw : {0.0, 1.0}) {
    EXPECT_TRUE(desk.run_task(space_task));
    ASSERT_TRUE(next_work(desk));
    const int64_t before_ms = tavren_get_uptime_ms();
    desk.work_has_failed(draw);
    const auto work = next_work(desk);
    ASSERT_TRUE(work);
    EXPECT_GE(work->begun_ms, before_ms + retry_delay_ms(1, draw));
  }
}

TEST_F(DeskTest, AsksForNoSecondClaimOfAConfiguration) {
  desk.set_config(config("one"), true);
  const auto first = due_work(desk);
  ASSERT_TRUE(first);
  EXPECT_TRUE(first->claim);
  desk.note_claim();
  desk.work_is_done(*first);
  EXPECT_TRUE(desk.run_task(space_task));
  const auto second = due_work(desk);
  ASSERT_TRUE(second);
  EXPECT_FALSE(second->claim);
}

TEST_F(DeskTest, DelaysTheFirstWorkByAPartOfTheIntervalThatWasSet) {
  desk.set_config(config("one"), true);
  store.set_text("interval." + task_of(section()), "1");
  Desk other(store, {section()}, chassis_with_first_run(1000000, 2000000));
  const auto work = next_work(other);
  ASSERT_TRUE(work);
  EXPECT_EQ(work->sections.size(), 1U);
}

TEST_F(DeskTest, KeepsATaskDueWhenItsSectionIsReadAgain) {
  desk.set_config(config("one"), true);
  Desk other(store, {section()}, chassis_with_first_run(1000000, 2000000));
  EXPECT_TRUE(other.run_task(task_of(section())));
  other.set_sections({section()});
  const auto work = next_work(other);
  ASSERT_TRUE(work);
  EXPECT_EQ(work->sections.size(), 1U);
}

TEST_F(DeskTest, KeepsATaskDueWhoseIntervalIsReadAsAnotherOne) {
  desk.set_config(config("one"), true);
  Desk other(store, {section()}, chassis_with_first_run(1000000, 2000000));
  EXPECT_TRUE(other.run_task(task_of(section())));
  Section seldom = section();
  seldom.interval *= 2;
  other.set_sections({seldom});
  const auto work = next_work(other);
  ASSERT_TRUE(work);
  EXPECT_EQ(work->sections.size(), 1U);
}

TEST_F(DeskTest, PlansATaskAnewWhoseIntervalIsReadAsAnotherOne) {
  desk.set_config(config("one"), true);
  Desk other(store, {section()}, chassis_with_first_run(1000000, 2000000));
  Section often = section();
  often.interval = 1;
  other.set_sections({often});
  const auto work = next_work(other);
  ASSERT_TRUE(work);
  EXPECT_EQ(work->sections.size(), 1U);
}

TEST_F(DeskTest, AddsUpTheItemsOfItsSectionsThatAreWaiting) {
  Section other = section();
  other.name = "other";
  desk.set_sections({section(), other});
  desk.set_waiting(section(), 2);
  desk.set_waiting(other, 3);
  desk.set_waiting(other, 1);
  EXPECT_EQ(desk.status().compartments[logs_compartment].waiting, 3);
  EXPECT_EQ(desk.status().compartments[audit_compartment].waiting, 0);
  desk.set_sections({other});
  EXPECT_EQ(desk.status().compartments[logs_compartment].waiting, 1);
}
