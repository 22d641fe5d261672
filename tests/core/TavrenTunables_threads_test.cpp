#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "core/tunables_fixture.h"

namespace {

constexpr int rounds = 20000;

/*
 * Threads that change tunables and threads that read them. Under the thread sanitizer any race fails these tests. In
 * other builds a text that two threads touch without the lock breaks within a few rounds, while an aligned number is
 * written and read whole by every machine that the library runs on, 32 bits included: what can then still be seen of
 * it is a change made in two steps.
 */
class TunablesInThreads : public TunablesTest {
 protected:
  /* Runs reader again and again in two threads while writer runs in two others. */
  template <class Reader, class Writer>
  static void read_while_writing(Reader reader, Writer writer) {
    std::atomic<int> writing{2};
    std::vector<std::thread> threads;
    for (int i = 0; i < 2; ++i) {
      threads.emplace_back([&] {
        while (writing > 0) reader();
      });
      threads.emplace_back([&] {
        writer();
        --writing;
      });
    }
    for (std::thread& thread : threads) thread.join();
  }

  /* Too long to be kept inside of a string, and of different lengths. */
  const std::string texts[2] = {std::string(100, 'a'), std::string(1000, 'b')};
};

TEST_F(TunablesInThreads, ShowANumberBeforeOrAfterAChangeAndNothingBetween) {
  /* The halves of these two differ, and neither is the default. */
  set("ssh_command_timeout", "1");
  std::atomic<int> others{0};
  read_while_writing(
      [&] {
        const int value = tunables.get_ssh_command_timeout();
        if (value != 1 && value != -2) ++others;
      },
      [&] {
        for (int i = 0; i < rounds; ++i) tunables.set_tunables("ssh_command_timeout=-2\nssh_command_timeout=1\n");
      });
  EXPECT_EQ(others, 0);
}

TEST_F(TunablesInThreads, PrintATextAndATableBeforeOrAfterAChangeAndNothingBetween) {
  std::string lines[2], tables[2];
  for (const int i : {1, 0}) {
    set("log_dir_prefix", texts[i]);
    lines[i] = changed();
    tables[i] = table(tunables);
  }
  std::atomic<int> others{0};
  read_while_writing(
      [&] {
        const std::string line = changed(), text = table(tunables);
        if (line != lines[0] && line != lines[1]) ++others;
        if (text != tables[0] && text != tables[1]) ++others;
      },
      [&] {
        std::string error;
        for (int i = 0; i < rounds; ++i) tunables.set_tunable("log_dir_prefix", texts[i % 2], error);
      });
  EXPECT_EQ(others, 0);
}

}  // namespace
