#include <algorithm>
#include <atomic>
#include <random>
#include <thread>
#include <vector>

#include "endurance/endurance.h"
#include "support/files.h"

/*
 * Sessions for as long as a service processor runs: each sends files, and each file is compared on the far side.
 */
namespace {

constexpr int files_of_a_session = 3;
constexpr size_t largest_file = 200000;

/* Sends the files of session number in one login. Returns how many did not arrive whole. */
int run_session(int number) {
  std::minstd_rand random(static_cast<unsigned>(number) + 1);
  Handle session;
  const std::string refusal = session.open();
  if (!refusal.empty()) {
    ADD_FAILURE() << refusal;
    return files_of_a_session;
  }
  int damaged = 0;
  for (int i = 0; i < files_of_a_session; ++i) {
    std::string content(random() % largest_file, '\0');
    std::generate(content.begin(), content.end(), [&random] { return static_cast<char>(random() >> 8); });
    const std::string name = "file " + std::to_string(number) + "." + std::to_string(i);
    const std::string failure = session.send(name, content);
    if (!failure.empty() || read_file(lab::archived(name)) != content) {
      ADD_FAILURE() << name << ": " << failure;
      ++damaged;
    }
    unlink(lab::archived(name).c_str());
  }
  return damaged;
}

class Sessions : public LabTest {};

TEST_F(Sessions, OneAfterTheOtherSendEverythingAndLeaveNothing) {
  const int count = repetitions(20, 1000);
  const int warm_up = count / 10 + 5;
  Footprint early{};
  int damaged = 0;
  for (int i = 0; i < count; ++i) {
    if (i == warm_up) early = Footprint::now();
    damaged += run_session(i);
  }
  std::cout << count << " sessions, " << count * files_of_a_session << " files, " << damaged << " not whole\n";
  expect_no_growth(early, Footprint::now());
}

TEST_F(Sessions, SixteenAtOnceSendEverythingAndLeaveNothing) {
  constexpr int at_once = 16;
  const int rounds = repetitions(3, 65);
  std::atomic<int> damaged{0};
  Footprint early{};
  for (int round = 0; round < rounds; ++round) {
    if (round == 2) early = Footprint::now();
    std::vector<std::thread> threads;
    for (int i = 0; i < at_once; ++i) {
      threads.emplace_back([&damaged, number = round * at_once + i] { damaged += run_session(number); });
    }
    for (std::thread& thread : threads) thread.join();
  }
  std::cout << rounds * at_once << " sessions, " << rounds * at_once * files_of_a_session << " files, " << damaged
            << " not whole\n";
  expect_no_growth(early, Footprint::now(), at_once * noise_of_a_thread);
}

/* An embedded daemon tries again every few minutes for as long as its archive host is down. */
class DeadHost : public LabTest {
 protected:
  void expect_failing_opens_to_leave_nothing(int count) {
    Handle session;
    const int warm_up = count / 10 + 5;
    Footprint early{};
    for (int i = 0; i < count; ++i) {
      if (i == warm_up) early = Footprint::now();
      ASSERT_NE(session.open(), "");
    }
    std::cout << count << " failing opens\n";
    expect_no_growth(early, Footprint::now());
  }
};

TEST_F(DeadHost, TriedAgainAndAgainCostsNothing) {
  lab::stop_sshd();
  expect_failing_opens_to_leave_nothing(repetitions(100, 10000));
}

TEST_F(DeadHost, ThatRefusesEveryLoginCostsNothing) {
  lab::set_password("another one");
  expect_failing_opens_to_leave_nothing(repetitions(10, 200));
}

}  // namespace
