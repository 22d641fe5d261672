#include "process/last_words.h"

#include <errno.h>
#include <gtest/gtest.h>

#include <atomic>
#include <numeric>
#include <thread>

#include "process/children.h"
#include "support/early_ends.h"

/* What a child says just before it ends is heard, although its terminal may say too early that there is no more. */
namespace {

class LastWordsBehindAnEarlyEnd : public testing::TestWithParam<int> {};

/* Hears the child of that seed out; returns whether it was all that it said. */
bool is_heard_out(unsigned int seed) {
  const std::vector<std::string> pieces = last_words(seed);
  TavrenProcess child = counterpart({"last-words", std::to_string(seed)});
  const std::string heard = all_lines(child);
  child.stop(0);
  return heard == std::accumulate(pieces.begin(), pieces.end(), std::string());
}

}  // namespace

/* On every third read of 200 children that say 12 pieces each. */
TEST_P(LastWordsBehindAnEarlyEnd, AreHeard) {
  const EarlyEnds ends(GetParam());
  for (unsigned int seed = 0; seed < 200; ++seed) ASSERT_TRUE(is_heard_out(seed)) << seed;
  EXPECT_GT(EarlyEnds::count(), 200);
}

INSTANTIATE_TEST_SUITE_P(, LastWordsBehindAnEarlyEnd, testing::Values(0, EIO), [](const auto& end) {
  return end.param == 0 ? std::string("OfNoBytes") : std::string("OfAnError");
});

/* The children and those who hear them are each other's load, which is what makes the kernel say it too early. */
TEST(LastWords, OfTwentyThousandChildrenAreHeardBesideOtherWork) {
  constexpr unsigned int listeners = 4;
  constexpr unsigned int children = 5000;
  std::atomic<unsigned int> cut{0};
  std::vector<std::thread> threads;
  for (unsigned int i = 0; i < listeners; ++i) {
    threads.emplace_back([&cut, i] {
      for (unsigned int seed = i * children; seed < (i + 1) * children; ++seed) {
        if (!is_heard_out(seed)) ++cut;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(cut, 0U);
}
