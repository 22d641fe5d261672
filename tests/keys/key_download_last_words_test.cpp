#include <errno.h>
#include <gtest/gtest.h>

#include "keys/key_dialogue_fixture.h"
#include "support/early_ends.h"

namespace {

/* What the client says just before it ends is the reason that people need to see. */
TEST_F(KeyDialogue, ReportsTheClientsLastWordsBehindAnEndThatIsNone) {
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
