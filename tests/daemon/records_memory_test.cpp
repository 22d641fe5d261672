#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "daemon/settings_strings.h"
#include "support/memory_limit.h"
#include "support/run_in_child.h"
#include "tavren_api.h"

namespace {

/* One of the strings is so long that memory does not hold many copies of it. */
TEST(LongString, OfSettingsAndOfAConfigurationIsReleasedWithThem) {
  for (const String member : settings_strings) {
    const Outcome outcome = run_in_child([member] {
      std::string text(large_size / 8, 'x');
      char empty[] = "";
      tavren_config_t config{{empty, empty, empty, empty, empty, empty}, {1, 2}};
      config.settings.*member = text.data();
      limit_memory(rlim_t{4} * large_size);
      for (int i = 0; i < 100; ++i) {
        tavren_settings_t settings{};
        tavren_settings_copy(&config.settings, &settings);
        if (settings.*member == nullptr) _exit(4);
        tavren_settings_free_contents(&settings);
        tavren_config_t copy{};
        tavren_config_copy(&config, &copy);
        if (copy.settings.*member == nullptr) _exit(5);
        tavren_config_free_contents(&copy);
      }
      _exit(3);
    });
    EXPECT_TRUE(outcome.exited_with(3)) << outcome.wait_status << outcome.err;
  }
}

}  // namespace
