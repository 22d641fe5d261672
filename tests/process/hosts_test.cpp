#include <gtest/gtest.h>
#include <stdio.h>

#include <functional>

#include "process/children.h"
#include "process/hosts.h"
#include "process/observe.h"
#include "support/run_in_child.h"

namespace {

using Action = std::function<void(TavrenProcess&)>;

void send_a_megabyte(TavrenProcess& child) { child.send(megabyte, patience); }

template <int timeout>
void send_and_end(TavrenProcess& child) {
  child.send("unread", patience);
  child.send_eof(timeout);
}

/* In a process of its own, as such a host does not fit the test runner. */
class HostThatReaps : public testing::TestWithParam<Named<Host>> {
 protected:
  static std::string output_of(const std::function<void()>& action) {
    const Outcome outcome = run_in_child([&action] {
      GetParam().value.begin();
      const std::string result = result_of(action);
      if (result != "done") printf("%s", result.c_str());
    });
    EXPECT_TRUE(outcome.exited_with(0)) << outcome.err;
    return outcome.out;
  }

  /* How action ends with a child that runs script. */
  static std::string result_with(const std::string& script, bool separate_stdin, const Action& action) {
    return output_of([&] {
      TavrenProcess child = shell(script, separate_stdin);
      printf("%s", result_of([&] { action(child); }).c_str());
    });
  }

  /* How action ends with a child that has left unread what was sent to it, said its last words and gone. */
  static std::string result_with_a_gone_child(bool separate_stdin, const Action& action) {
    return result_with("head -c 1 >/dev/null; echo last words", separate_stdin, [&action](TavrenProcess& child) {
      child.send("unread", patience);
      if (!wait_until([&child] { return child.send_signal(0) == -1; })) printf("still there ");
      action(child);
    });
  }
};

const std::string gone = "13(/bin/sh) 12(last words)";

}  // namespace

INSTANTIATE_TEST_SUITE_P(Hosts, HostThatReaps, testing::ValuesIn(hosts_that_reap), by_name);

TEST_P(HostThatReaps, ReachesItsChildByTerminalAndByPipe) {
  for (const bool separate_stdin : {false, true}) {
    const std::string line = output_of([separate_stdin] {
      TavrenProcess child = counterpart({"take", "1000000", "4096", "0"}, separate_stdin);
      child.send(megabyte, patience);
      printf("%s", next_line(child).c_str());
    });
    EXPECT_EQ(line, sum_line(megabyte, "raw"));
  }
}

TEST_P(HostThatReaps, LearnsThatItsChildIsGone) {
  for (const bool separate_stdin : {false, true}) {
    EXPECT_EQ(result_with_a_gone_child(separate_stdin, send_a_megabyte), gone);
  }
  EXPECT_EQ(result_with_a_gone_child(false, [](TavrenProcess& child) { child.send_eof(patience); }), gone);
}

TEST_P(HostThatReaps, LearnsDuringTheWaitThatItsChildGoes) {
  for (const bool separate_stdin : {false, true}) {
    EXPECT_EQ(result_with("sleep 1; echo last words", separate_stdin, send_a_megabyte), gone);
  }
  EXPECT_EQ(result_with("sleep 1; echo last words", false, send_and_end<patience>), gone);
}

TEST_P(HostThatReaps, WaitsOnlyUntilTheDeadlineForAChildThatNeverReads) {
  for (const bool separate_stdin : {false, true}) {
    const auto send = [](TavrenProcess& child) { child.send(megabyte, 1); };
    EXPECT_EQ(result_with("exec sleep 600", separate_stdin, send), "TavrenTimeout");
  }
  EXPECT_EQ(result_with("exec sleep 600", false, send_and_end<1>), "TavrenTimeout");
}

TEST_P(HostThatReaps, EndsTheInputOfItsChild) {
  const std::string data(2000, 'x');
  const std::string line = output_of([&data] {
    TavrenProcess child = counterpart({"sum", "100", "10000"});
    child.send(data, patience);
    child.send_eof(patience);
    printf("%s", next_line(child).c_str());
  });
  EXPECT_EQ(line, sum_line(data, "canonical"));
}

TEST_P(HostThatReaps, HearsItsChildOut) {
  const auto read_on = [](TavrenProcess& child) { child.read_until_line_starts_with("", patient_deadline()); };
  EXPECT_EQ(result_with("seq 1 3", false, read_on), "13(/bin/sh) 12(1) 12(2) 12(3)");
}

/* A daemon's fork goes on with the object of its parent. The child is no child of its own, so waiting for it fails. */
TEST(ForkOfTheHost, DoesNotTakeTheChildForGone) {
  TavrenProcess child = counterpart({"sum", "4096", "1000"});
  const Outcome outcome = run_in_child([&child] {
    const std::string result = result_of([&child] {
      child.send(megabyte, patience);
      child.send_eof(patience);
      printf("%s ", next_line(child).c_str());
    });
    printf("%s", result.c_str());
  });
  EXPECT_EQ(outcome.out, sum_line(megabyte, "canonical") + " done");
}
