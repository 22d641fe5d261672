#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/close_range.h>

#include <filesystem>
#include <iostream>
#include <map>
#include <set>
#include <sstream>
#include <thread>
#include <vector>

#include "lab/lab.h"
#include "support/files.h"
#include "tavren_basic.h"

using testing::AnyOf;
using testing::MatchesRegex;
using testing::SizeIs;
using testing::StartsWith;
using testing::StrEq;

namespace {

/* What a process's descriptors refer to, as in "/dev/pts/3" or "pipe:[4711]". */
using Descriptors = std::map<int, std::string>;

/* Several sessions of one program, each driven by a thread of its own. */
class ManySessions : public LabTest {
 protected:
  struct Attempt {
    std::string outcome;
    int seconds;
  };

  /* Opens count sessions at once and closes those that are not to stay. */
  std::vector<Attempt> log_in(int count, bool stay = false) {
    std::vector<Attempt> attempts(static_cast<size_t>(count));
    std::vector<std::thread> threads;
    for (Attempt& attempt : attempts) {
      threads.emplace_back([&attempt, &host = session(lab::settings()), stay] {
        const int started = tavren_get_uptime();
        attempt.outcome = error_of([&host] { host.open_connection(); });
        attempt.seconds = tavren_get_uptime() - started;
        if (!stay) host.close_connection();
      });
    }
    for (std::thread& thread : threads) thread.join();
    return attempts;
  }
};

/* Sessions through a client that first shows what it was given; the real one then closes all but its terminal. */
class DescriptorsOfManySessions : public ManySessions {
 protected:
  static constexpr int count = 8;

  DescriptorsOfManySessions() {
    /* What the test program itself was started with must not confuse the picture. */
    EXPECT_EQ(close_range(3, ~0U, CLOSE_RANGE_CLOEXEC), 0);
    const std::string lab = lab::value("LAB");
    write_file(lab + "/ssh",
               "#!/bin/sh\n(ls -l /proc/$$/fd >" + lab + "/given/$$)\nexec " + lab + "/real-ssh \"$@\"\n");
    lab::run("mkdir $LAB/given && cp /usr/bin/ssh $LAB/real-ssh && chmod +x $LAB/ssh");
    lab::change_machine("mount --bind $LAB/ssh /usr/bin/ssh");
    for (const Attempt& attempt : log_in(count, true)) EXPECT_EQ(attempt.outcome, no_error);
  }

  /* Returns what each client was started with; its shell's own script does not count. */
  static std::vector<Descriptors> given() {
    std::vector<Descriptors> all;
    for (const auto& file : std::filesystem::directory_iterator(lab::value("LAB") + "/given")) {
      all.push_back(listed(read_file(file.path())));
    }
    return all;
  }

 private:
  static Descriptors listed(const std::string& listing) {
    Descriptors descriptors;
    std::istringstream lines(listing);
    for (std::string line; std::getline(lines, line);) {
      const size_t arrow = line.find(" -> ");
      if (arrow == std::string::npos) continue; /* the sum that ls begins with */
      const std::string target = line.substr(arrow + 4);
      const int fd = std::stoi(line.substr(line.rfind(' ', arrow - 1) + 1));
      if (target != "/usr/bin/ssh") descriptors[fd] = target;
    }
    return descriptors;
  }
};

TEST_F(DescriptorsOfManySessions, AtTheStartAreATerminalOfTheChildsOwnAndNothingElse) {
  std::set<std::string> terminals;
  for (const Descriptors& child : given()) {
    ASSERT_FALSE(child.empty());
    const std::string terminal = child.begin()->second;
    EXPECT_THAT(terminal, StartsWith("/dev/pts/"));
    EXPECT_EQ(child, (Descriptors{{0, terminal}, {1, terminal}, {2, terminal}}));
    terminals.insert(terminal);
  }
  EXPECT_THAT(terminals, SizeIs(count));
}

TEST_F(ManySessions, OneAfterTheOtherAllSucceed) {
  for (int i = 0; i < 25; ++i) {
    for (const Attempt& attempt : log_in(4)) EXPECT_EQ(attempt.outcome, no_error);
  }
}

/* Servers drop logins when too many come at once. */
class BusyServer : public ManySessions {
 protected:
  /* Lets the server drop every connection while as many as limit have not logged in. */
  static void limit_logins_at_once(int limit) {
    /* Of this setting the last one wins, unlike of others. */
    lab::run("sed -i /^MaxStartups/d $LAB_SSHD_CONFIG");
    const std::string number = std::to_string(limit);
    lab::configure_sshd("MaxStartups " + number + ":100:" + number);
  }

  /* Keeps the one place of such a server taken. Who is dropped gets another first line. */
  static void take_the_only_place() {
    lab::run(
        "bash -c 'until exec 3<>/dev/tcp/127.0.0.1/22 && read -r line <&3 && [[ $line == SSH-* ]]; do sleep 0.01; "
        "done; sleep 1000 <&3 &'");
  }

  static void expect_inside_deadlines(const std::vector<Attempt>& attempts) {
    for (const Attempt& attempt : attempts) EXPECT_LE(attempt.seconds, 3 * (timeout + 1)) << attempt.outcome;
  }

 private:
  /* The login, the shell's start and the change of directory each have so many seconds. */
  static constexpr int timeout = 20;
  const ScopedTunable connect{"ssh_connect_timeout", timeout};
  const ScopedTunable start{"ssh_shell_start_timeout", timeout};
  const ScopedTunable command{"ssh_command_timeout", timeout};
};

constexpr char dropped[] =
    "4\n  - Failed to start secure shell session on localhost\n"
    "  - Program exited unexpectedly: /usr/bin/ssh\n"
    "  - Output: \"kex_exchange_identification: [^\"]*\"\n"
    "  - Output: \"(Connection (closed|reset) by|banner exchange: Connection to) 127\\.0\\.0\\.1 port 22[^\"]*\"\n";

TEST_F(BusyServer, LetsEachOfThirtyLoginsAtOnceInOrDropsItWithTheClientsWords) {
  limit_logins_at_once(3);
  const std::vector<Attempt> attempts = log_in(30);
  int succeeded = 0;
  for (const Attempt& attempt : attempts) {
    EXPECT_THAT(attempt.outcome, AnyOf(StrEq(no_error), MatchesRegex(dropped)));
    if (attempt.outcome == no_error) ++succeeded;
  }
  std::cout << succeeded << " of 30 logins succeeded\n";
  EXPECT_GT(succeeded, 0);
  expect_inside_deadlines(attempts);
}

TEST_F(BusyServer, WithoutAPlaceDropsEachOfThirtyLoginsAtOnceWithTheClientsWords) {
  limit_logins_at_once(1);
  take_the_only_place();
  const std::vector<Attempt> attempts = log_in(30);
  for (const Attempt& attempt : attempts) EXPECT_THAT(attempt.outcome, MatchesRegex(dropped));
  expect_inside_deadlines(attempts);
}

}  // namespace
