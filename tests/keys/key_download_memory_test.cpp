#include <gtest/gtest.h>

#include <new>
#include <string>

#include "keys/key_dialogue_fixture.h"
#include "support/failing_memory.h"
#include "support/process_state.h"

namespace {

TEST_F(KeyDialogue, WithoutMemoryAtAnyPointLeavesNothing) {
  play_key("archive.example ssh-rsa " + std::string(400, 'A') + "\n");
  const auto descriptors = count_open_descriptors();
  int failures = 0;
  for (std::string key; key.empty() && failures < 500;) {
    try {
      const failing_memory::FailAllocation exhausted(failures + 1);
      key = fetched();
    } catch (const std::bad_alloc&) {
      ++failures;
    }
    EXPECT_EQ(count_open_descriptors(), descriptors) << "allocation " << failures;
    EXPECT_FALSE(file_is_left()) << "allocation " << failures;
  }
  EXPECT_GT(failures, 20);
  EXPECT_LT(failures, 500);
}

}  // namespace
