#include <gtest/gtest.h>

#include <string>

#include "host/login_fixture.h"
#include "host/measured_time.h"

/*
 * How long each step of a login waits for its client.
 */
namespace {

class LoginTime : public LoginTest, protected MeasuredTime {
 protected:
  /*
   * Expects a client that runs the lines body, in which fall_silent is the end, to fail with error after seconds. What
   * it has written stands behind the time-out of a shell. When it comes to pause, some seconds of uptime pass.
   */
  void expect_failure(const std::string& body, const std::string& error, int seconds, int pausing = 0) {
    play(body);
    client->make_fifo("pausing");
    enable();
    start_measuring(client->path("silence"));
    std::string text;
    const auto log_in = [&] { text = error_body([this] { host.open_connection(); }); };
    if (pausing == 0) log_in();
    if (pausing != 0) run_with_pause(log_in, *client, pausing);
    EXPECT_EQ(error == shell_timeout ? first_lines(text, 2) : text, error);
    EXPECT_EQ(text.find(settings.password), std::string::npos) << text;
    EXPECT_EQ(passed(), seconds);
  }

  const std::string fall_silent = ": >$dir/silence; exec sleep 100\n";
  const std::string pause = "echo >$dir/pausing; read -r go <$dir/go\n";
  const std::string question = say(dialogue.introduction() + dialogue.question());
  const std::string prompt = say(dialogue.prompt());
  const std::string shell_starts = say(ClientDialogue::shell_started());
};

}  // namespace

TEST_F(LoginTime, TheQuestionAndThePromptHaveTheTimeToConnect) {
  expect_failure(fall_silent, connect_timeout, all_of(connect_time));
  start_over();
  expect_failure(question + "take yes\n" + fall_silent, connect_timeout, all_of(connect_time));
  start_over();
  use_key();
  expect_failure(fall_silent, connect_timeout, all_of(connect_time));
}

TEST_F(LoginTime, ThePromptHasWhatTheQuestionHasLeft) {
  expect_failure(pause + question + "take yes\n" + fall_silent, connect_timeout, all_of(connect_time), 1);
}

TEST_F(LoginTime, TheAnswerHasFiveSeconds) {
  recorded_system::refuse_to_write("yes\n");
  expect_failure(question + "exec sleep 100\n", connect_timeout, all_of(fixed_send_time));
}

TEST_F(LoginTime, ThePasswordHasTheTimeToConnect) {
  use_key();
  recorded_system::refuse_to_write(settings.password + "\n");
  expect_failure(prompt + "exec sleep 100\n", connect_timeout, all_of(connect_time));
}

TEST_F(LoginTime, ThePasswordHasTheTimeToConnectHoweverLongThePromptTook) {
  use_key();
  recorded_system::refuse_to_write(settings.password + "\n");
  expect_failure(pause + prompt + "exec sleep 100\n", connect_timeout, 1 + all_of(connect_time), 1);
}

TEST_F(LoginTime, TheShellHasATimeOfItsOwn) {
  use_key();
  expect_failure(prompt + "take password\n" + fall_silent, shell_timeout, all_of(shell_start_time));
}

TEST_F(LoginTime, TheShellHasAllOfItsTimeHoweverLongThePromptTook) {
  use_key();
  expect_failure(pause + prompt + "take password\n" + fall_silent, shell_timeout, 1 + all_of(shell_start_time), 1);
}

TEST_F(LoginTime, LinesBeforeTheShellStartsDoNotProlongItsTime) {
  use_key();
  expect_failure(prompt + "take password\n" + pause + say("Welcome.\n") + fall_silent, shell_timeout,
                 all_of(shell_start_time), 4);
}

TEST_F(LoginTime, TheChangeOfDirectoryHasTheTimeOfACommand) {
  use_key();
  expect_failure(prompt + "take password\n" + shell_starts + fall_silent,
                 "  - Timeout occurred while running remote command: \"cd '/'\"\n", all_of(command_time));
}

TEST_F(LoginTime, SettingTheShellUpHasTheTimeOfACommand) {
  play(dialogue.login());
  TavrenHost configured(true, false);
  configured.set_settings(settings.record());
  configured.enable();
  recorded_system::refuse_to_write("umask 022; set +f\n");
  start_measuring();
  EXPECT_EQ(error_body([&] { configured.open_connection(); }),
            "  - Timeout occurred while running remote command: \"umask 022; set +f\"\n");
  EXPECT_EQ(passed(), all_of(command_time));
  configured.close_connection();
}
