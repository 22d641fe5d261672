#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include "tavrend/simulated_weeks.h"

using simulated::Chance;
using simulated::trouble_of;

TEST(Plan, KeepsItsPromisesWhateverComesOverWeeks) {
  for (unsigned seed = 1; seed <= 20; ++seed) {
    EXPECT_EQ(trouble_of(Chance(seed), 100), "") << "with seed " << seed;
  }
}

/* Ten thousand intervals where scripts/endurance asks for them. */
TEST(Plan, KeepsItsPromisesOverManyIntervals) {
  const char* const wanted = getenv("TAVREN_ENDURANCE");
  const bool is_full = wanted != nullptr && strcmp(wanted, "full") == 0;
  EXPECT_EQ(trouble_of(Chance(4711), is_full ? 10000 : 500), "");
}
