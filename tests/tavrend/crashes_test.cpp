#include <errno.h>
#include <signal.h>

#include <functional>
#include <iostream>
#include <random>
#include <set>
#include <string>
#include <utility>

#include "store/database.h"
#include "tavrend/archiving_run.h"
#include "tavrend/choice.h"
#include "tavrend/traced_process.h"
#include "tavrend/watched_directory.h"

/*
 * Whatever the daemon was about when it was killed, or the power was cut: what is archived then and by the next start
 * is every byte once.
 */
namespace {

class CrashOfDaemon : public ArchivingRun {
 protected:
  /*
   * Starts the daemon, and ends it by SIGTERM when everything is archived and it has waited for more; seen may have it
   * killed before.
   */
  void trace(const std::function<bool(pid_t process, const SystemCall&)>& seen) {
    bool is_ending = false;
    TracedProcess process(command());
    process.run([&](const SystemCall& call) {
      const bool has_waited = call.result == -ETIMEDOUT;
      if (!is_ending && has_waited && is_archived()) {
        is_ending = true;
        kill(process.pid(), SIGTERM);
      }
      return seen(process.pid(), call);
    });
  }

  /* The same, but kills it behind system call number last. Returns how many there were. */
  long trace_up_to(long last) {
    long calls = 0;
    trace([&](pid_t, const SystemCall&) { return ++calls != last; });
    return calls;
  }

  /* What there is on both machines when the power of one is cut. */
  using Moment = std::pair<Contents, Contents>; /* the state, the archive */

  /* Returns each of them in one run, in three forms: of the state is left what was written, synced, or some of it. */
  std::set<Moment> moments_of_one_run(std::minstd_rand& random) {
    std::set<Moment> moments;
    WatchedDirectory kept(state);
    trace([&](pid_t process, const SystemCall& call) {
      if (!kept.see(process, call)) return true;
      const Contents archive = contents_of(lab::archived(""));
      for (const Contents& left : {kept.now(), kept.synced(), kept.mixed(random)}) moments.insert({left, archive});
      return true;
    });
    return moments;
  }

  void return_to(const Moment& moment) const {
    set_contents(state, moment.first);
    set_contents(lab::archived(""), moment.second);
    lab::run("chown -R $LAB_USER: $LAB_ARCHIVE");
  }
};

}  // namespace

TEST_F(CrashOfDaemon, BehindAnySystemCallLosesNothing) {
  prepare();
  begin_again();
  const long count = trace_up_to(-1);
  EXPECT_GT(count, 500); /* or it was not seen what the daemon does */
  const Choice choice(100);
  long kills = 0;
  for (long call = 1; call < count; ++call) {
    if (!choice.takes(call)) continue;
    SCOPED_TRACE("killed behind system call " + std::to_string(call) + " of " + std::to_string(count));
    begin_again();
    if (trace_up_to(call) == call) ++kills;
    expect_everything_after_the_next_start();
  }
  std::cout << kills << " kills behind " << count << " system calls\n";
}

TEST_F(CrashOfDaemon, ByACutOfThePowerLosesNothing) {
  const unsigned seed = std::random_device()();
  std::minstd_rand random(seed);
  prepare();
  begin_again();
  const std::set<Moment> moments = moments_of_one_run(random);
  EXPECT_GT(moments.size(), 50U); /* or it was not seen what the daemon writes */
  const Choice choice(50);
  long number = 0;
  long starts = 0;
  for (const Moment& moment : moments) {
    if (!choice.takes(number++)) continue;
    SCOPED_TRACE("cut at moment " + std::to_string(number) + ", seed " + std::to_string(seed));
    return_to(moment);
    expect_everything_after_the_next_start();
    ++starts;
  }
  std::cout << starts << " starts with what " << moments.size() << " cuts of the power leave\n";
}

/* The last small files of a section would be sent once more. */
TEST_F(CrashOfDaemon, ByACutOfThePowerBehindTheEndOfASectionLeavesNothingOnItsWay) {
  prepare();
  begin_again();
  WatchedDirectory kept(state);
  Contents left;
  trace([&](pid_t process, const SystemCall& call) {
    kept.see(process, call);
    if (left.empty() && call.result == -ETIMEDOUT && is_archived()) left = kept.synced();
    return true;
  });
  set_contents(state, left);
  Database database(state + "/tavrend.db");
  auto archived = database.query("SELECT COUNT(*) FROM archived WHERE section = CAST('closed' AS BLOB)");
  ASSERT_TRUE(archived.next());
  EXPECT_EQ(archived.number(0), 2);
  EXPECT_FALSE(database.query("SELECT 1 FROM intent").next());
}
