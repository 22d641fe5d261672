#include <gtest/gtest.h>
#include <signal.h>

#include <string>

#include "TavrenExceptions.h"
#include "keys/key_dialogue_fixture.h"
#include "support/real_function.h"
#include "support/recorded_system.h"
#include "tavren_basic.h"

/*
 * How long each step of a download waits for its client, on the uptime clock. This program looks on when the library
 * stops the client: what passes after that is the grace time.
 */
namespace {

constexpr int connect_time = 2; /* seconds */
constexpr int answer_time = 5;  /* no tunable */

/* Uptime comes in whole seconds, so every wait may last a second longer. */
constexpr int all_of(int timeout) { return timeout + 1; }

int stopped_at = 0; /* seconds of uptime */

}  // namespace

STANDS_BEFORE_THE_REAL_ONE int kill(pid_t pid, int number) noexcept {
  static auto* const real_kill = real<int(pid_t, int)>("kill");
  if (number == SIGTERM) stopped_at = tavren_get_uptime();
  return real_kill(pid, number);
}

namespace {

class KeyDownloadTime : public KeyDialogue {
 protected:
  KeyDownloadTime() { recorded_system::reset(); }
  ~KeyDownloadTime() override { recorded_system::reset(); }

  /* Returns the seconds after which a client that runs the lines body is given up. */
  int given_up_after(const std::string& body) {
    play(body);
    recorded_system::stop_uptime(client->path("silence"));
    const int start = tavren_get_uptime();
    EXPECT_THROW(fetched(), TavrenTimeout);
    return stopped_at - start;
  }

  const ScopedTunable timeout{"ssh_connect_timeout", connect_time};
  const std::string fall_silent = ": >$dir/silence; exec sleep 100\n";
  const std::string question = say(dialogue.introduction() + dialogue.question());
};

TEST_F(KeyDownloadTime, TheQuestionHasTheTimeToConnect) {
  EXPECT_EQ(given_up_after(fall_silent), all_of(connect_time));
}

TEST_F(KeyDownloadTime, ThePromptHasTheTimeToConnect) {
  EXPECT_EQ(given_up_after(question + "take yes\n" + fall_silent), all_of(connect_time));
}

TEST_F(KeyDownloadTime, ThePromptHasWhatQuestionAndAnswerHaveLeft) {
  recorded_system::refuse_to_write("yes\n", 1);
  EXPECT_EQ(given_up_after(question + "take yes\n" + fall_silent), all_of(connect_time));
}

TEST_F(KeyDownloadTime, TheAnswerHasFiveSeconds) {
  recorded_system::refuse_to_write("yes\n");
  EXPECT_EQ(given_up_after(question + "exec sleep 100\n"), all_of(answer_time));
}

/* All of it is there at once, so nothing is waited for between the lines; but each takes a second to read. */
TEST_F(KeyDownloadTime, LinesThatAreThereUseUpTheTimeOfTheQuestion) {
  const ScopedTunable hundred("ssh_connect_timeout", 100);
  std::string lines;
  for (int i = 0; i < 300; ++i) lines += "x\n";
  play(say(lines + dialogue.question()) + "take yes\necho 'h t k' >\"$file\"\n" +
       say(dialogue.answered() + dialogue.prompt()) + wait_forever);
  recorded_system::hurry_uptime();
  EXPECT_THROW(fetched(), TavrenTimeout);
}

}  // namespace
