#include <gtest/gtest.h>
#include <unistd.h>

#include <future>
#include <string>

#include "host/login_fixture.h"
#include "host/measured_time.h"
#include "support/process_state.h"

/*
 * How long each step of a login waits for its client.
 */
namespace {

class LoginTime : public LoginTest, protected MeasuredTime {
 protected:
  /* Connects with a client that runs the lines body, in which fall_silent is the end. Returns the error. */
  std::string error_of(const std::string& body) {
    play(body);
    enable();
    start_measuring(client->path("silence"));
    return error_body([this] { host.open_connection(); });
  }

  /* The same; when the client comes to pause, seconds of uptime pass. */
  std::string error_of(const std::string& body, int seconds) {
    play(body);
    client->make_fifo("pausing");
    enable();
    start_measuring(client->path("silence"));
    std::promise<pid_t> thread;
    auto error = std::async(std::launch::async, [this, &thread] {
      thread.set_value(gettid());
      return error_body([this] { host.open_connection(); });
    });
    wait_at(client->path("pausing"));
    wait_until_it_stays_asleep(thread.get_future().get());
    recorded_system::pass_uptime(seconds);
    release(client->path("go"));
    return error.get();
  }

  const std::string fall_silent = ": >$dir/silence; exec sleep 100\n";
  const std::string pause = "echo >$dir/pausing; read -r go <$dir/go\n";
  const std::string question = say(dialogue.introduction() + dialogue.question());
  const std::string prompt = say(dialogue.prompt());
  const std::string shell_starts = say(ClientDialogue::shell_started());
};

}  // namespace

TEST_F(LoginTime, TheQuestionHasTheTimeToConnect) {
  EXPECT_EQ(error_of(fall_silent), connect_timeout);
  EXPECT_EQ(passed(), all_of(connect_time));
}

TEST_F(LoginTime, ThePromptHasTheTimeToConnectWithAKey) {
  use_key();
  EXPECT_EQ(error_of(fall_silent), connect_timeout);
  EXPECT_EQ(passed(), all_of(connect_time));
}

TEST_F(LoginTime, ThePromptHasTheTimeToConnect) {
  EXPECT_EQ(error_of(question + "take yes\n" + fall_silent), connect_timeout);
  EXPECT_EQ(passed(), all_of(connect_time));
}

TEST_F(LoginTime, ThePromptHasWhatTheQuestionHasLeft) {
  EXPECT_EQ(error_of(pause + question + "take yes\n" + fall_silent, 1), connect_timeout);
  EXPECT_EQ(passed(), all_of(connect_time));
}

TEST_F(LoginTime, TheAnswerHasFiveSeconds) {
  recorded_system::refuse_to_write("yes\n");
  EXPECT_EQ(error_of(question + "exec sleep 100\n"), connect_timeout);
  EXPECT_EQ(passed(), all_of(fixed_send_time));
}

TEST_F(LoginTime, ThePasswordHasTheTimeToConnect) {
  use_key();
  recorded_system::refuse_to_write(settings.password + "\n");
  EXPECT_EQ(error_of(prompt + "exec sleep 100\n"), connect_timeout);
  EXPECT_EQ(passed(), all_of(connect_time));
}

TEST_F(LoginTime, ThePasswordHasTheTimeToConnectHoweverLongThePromptTook) {
  use_key();
  recorded_system::refuse_to_write(settings.password + "\n");
  EXPECT_EQ(error_of(pause + prompt + "exec sleep 100\n", 1), connect_timeout);
  EXPECT_EQ(passed(), 1 + all_of(connect_time));
}

TEST_F(LoginTime, TheShellHasATimeOfItsOwn) {
  use_key();
  EXPECT_EQ(first_lines(error_of(prompt + "take password\n" + fall_silent), 2), shell_timeout);
  EXPECT_EQ(passed(), all_of(shell_start_time));
}

TEST_F(LoginTime, TheShellHasAllOfItsTimeHoweverLongThePromptTook) {
  use_key();
  EXPECT_EQ(first_lines(error_of(pause + prompt + "take password\n" + fall_silent, 1), 2), shell_timeout);
  EXPECT_EQ(passed(), 1 + all_of(shell_start_time));
}

TEST_F(LoginTime, LinesBeforeTheShellStartsDoNotProlongItsTime) {
  use_key();
  EXPECT_EQ(first_lines(error_of(prompt + "take password\n" + pause + say("Welcome.\n") + fall_silent, 4), 2),
            shell_timeout);
  EXPECT_EQ(passed(), all_of(shell_start_time));
}

TEST_F(LoginTime, TheChangeOfDirectoryHasTheTimeOfACommand) {
  use_key();
  EXPECT_EQ(error_of(prompt + "take password\n" + shell_starts + fall_silent),
            "  - Timeout occurred while running remote command: \"cd '/'\"\n");
  EXPECT_EQ(passed(), all_of(command_time));
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
