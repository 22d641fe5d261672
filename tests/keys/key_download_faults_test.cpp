#include <errno.h>
#include <gtest/gtest.h>

#include <new>
#include <string>

#include "keys/key_dialogue_fixture.h"
#include "support/early_ends.h"
#include "support/failing_memory.h"
#include "support/process_state.h"

namespace {

class KeyDialogueFault : public KeyDialogue {};

TEST_F(KeyDialogueFault, WithoutMemoryAtAnyPointLeavesNothing) {
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

/* What the client says just before it ends is the reason that people need to see. */
TEST_F(KeyDialogueFault, ReportsTheClientsLastWordsBehindAnEndThatIsNone) {
  play(say("ssh: connect to host archive.example port 22: No route to host\n") + "exit 255\n");
  const EarlyEnds ends(EIO);
  for (int i = 0; i < 20; ++i) {
    EXPECT_EQ(error_of([] { fetched(); }),
              "13\n  - Program exited unexpectedly: /usr/bin/ssh\n"
              "  - Output: \"ssh: connect to host archive.example port 22: No route to host\"\n");
  }
  EXPECT_GT(EarlyEnds::count(), 0);
}

}  // namespace
