#include <gtest/gtest.h>
#include <signal.h>

#include <string>

#include "TavrenExceptions.h"
#include "host/measured_time.h"
#include "keys/key_dialogue_fixture.h"
#include "support/real_function.h"
#include "support/recorded_system.h"
#include "tavren_basic.h"

/*
 * How long each step of a download waits for its client, on the uptime clock. This program looks on when the library
 * stops the client: what passes after that is the grace time.
 */
namespace {

int stopped_at = 0; /* seconds of uptime */

}  // namespace

STANDS_BEFORE_THE_REAL_ONE int kill(pid_t pid, int number) noexcept {
  static auto* const real_kill = real<int(pid_t, int)>("kill");
  if (number == SIGTERM) stopped_at = tavren_get_uptime();
  return real_kill(pid, number);
}

namespace {

class KeyDownloadTime : public KeyDialogue, protected MeasuredTime {
 protected:
  /* Returns the seconds after which a client that runs the lines body is given up. */
  int given_up_after(const std::string& body) {
    play(body);
    start_measuring(client->path("silence"));
    const int begun = tavren_get_uptime();
    EXPECT_THROW(fetched(), TavrenTimeout);
    return stopped_at - begun;
  }

  const std::string fall_silent = ": >$dir/silence; exec sleep 100\n";
};

TEST_F(KeyDownloadTime, TheQuestionHasTheTimeToConnect) {
  EXPECT_EQ(given_up_after(fall_silent), all_of(connect_time));
}

TEST_F(KeyDownloadTime, ThePromptHasTheTimeToConnectAndNoFileIsLeftBehindIt) {
  EXPECT_EQ(given_up_after(question + record_key + fall_silent), all_of(connect_time));
  EXPECT_FALSE(file_is_left());
}

TEST_F(KeyDownloadTime, ThePromptHasWhatQuestionAndAnswerHaveLeft) {
  recorded_system::refuse_to_write("yes\n", 1);
  EXPECT_EQ(given_up_after(question + "take yes\n" + fall_silent), all_of(connect_time));
}

TEST_F(KeyDownloadTime, TheAnswerHasFiveSeconds) {
  recorded_system::refuse_to_write("yes\n");
  EXPECT_EQ(given_up_after(question + "exec sleep 100\n"), all_of(fixed_send_time));
}

/* All of it is there at once, so nothing is waited for between the lines; but each takes a second to read. */
TEST_F(KeyDownloadTime, LinesThatAreThereUseUpTheTimeOfTheQuestion) {
  const ScopedTunable hundred("ssh_connect_timeout", 100);
  std::string lines;
  for (int i = 0; i < 300; ++i) lines += "x\n";
  play(say(lines + dialogue.question()) + record_key + say(dialogue.answered() + dialogue.prompt()) + wait_forever);
  recorded_system::hurry_uptime();
  EXPECT_THROW(fetched(), TavrenTimeout);
}

}  // namespace
