#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "daemon/settings_strings.h"
#include "support/memory_limit.h"
#include "support/run_in_child.h"
#include "tavren_api.h"

namespace {

/* One of the strings is so long that memory does not hold many copies of it. */
class LongString : public testing::TestWithParam<size_t> {
 protected:
  /* Exits with status 3 when copy_and_free has worked a hundred times with the record. */
  static Outcome outcome_of(bool (*copy_and_free)(const tavren_settings_t&)) {
    return run_in_child([copy_and_free] {
      std::string text(large_size / 8, 'x');
      char empty[] = "";
      tavren_settings_t settings{empty, empty, empty, empty, empty, empty};
      settings.*settings_strings[GetParam()] = text.data();
      limit_memory(rlim_t{4} * large_size);
      for (int i = 0; i < 100; ++i) {
        if (!copy_and_free(settings)) _exit(4);
      }
      _exit(3);
    });
  }
};

TEST_P(LongString, OfSettingsIsReleasedWithThem) {
  const Outcome outcome = outcome_of([](const tavren_settings_t& settings) {
    tavren_settings_t copy{};
    tavren_settings_copy(&settings, &copy);
    const bool worked = copy.*settings_strings[GetParam()] != nullptr;
    tavren_settings_free_contents(&copy);
    return worked;
  });
  EXPECT_TRUE(outcome.exited_with(3)) << outcome.wait_status << outcome.err;
}

TEST_P(LongString, OfAConfigurationIsReleasedWithIt) {
  const Outcome outcome = outcome_of([](const tavren_settings_t& settings) {
    const tavren_config_t config{settings, {1, 2}};
    tavren_config_t copy{};
    tavren_config_copy(&config, &copy);
    const bool worked = copy.settings.*settings_strings[GetParam()] != nullptr;
    tavren_config_free_contents(&copy);
    return worked;
  });
  EXPECT_TRUE(outcome.exited_with(3)) << outcome.wait_status << outcome.err;
}

INSTANTIATE_TEST_SUITE_P(Each, LongString, testing::Range<size_t>(0, 6));

}  // namespace
