#include <gtest/gtest.h>

#include <string>

#include "host/login_fixture.h"
#include "support/recorded_system.h"

namespace {

constexpr char changed_key_block[] =
    "@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@\r\n"
    "@    WARNING: REMOTE HOST IDENTIFICATION HAS CHANGED!     @\r\n"
    "@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@@\r\n";

class LoginFailure : public LoginTest {
 protected:
  ~LoginFailure() override { recorded_system::reset(); }

  /* Expects a client that writes text, and then runs the lines after, to have a key that is not the host's. */
  void expect_key_mismatch(const std::string& text, const std::string& after = "exec sleep 100\n") {
    use_key();
    EXPECT_EQ(open_error(say(text) + after), key_mismatch) << text;
  }

  /* What a client does that takes the password and then writes text. */
  std::string after_the_password(const std::string& text) const {
    return say(dialogue.prompt()) + "take password\n" + say(text);
  }

  const std::string wait_forever = "exec sleep 100\n";
  const std::string noise = "noise\n" + std::string(200, '\n');
  const std::string flood = "exec yes 'noise'\n";
};

}  // namespace

TEST_F(LoginFailure, HasNoSecondArguments) {
  const auto codes_of = [this](const std::string& body) {
    const std::string codes = error_codes([&] { open(body); });
    start_over();
    return codes;
  };
  EXPECT_EQ(codes_of(dialogue.up_to_prompt() + "take password\n" + say(dialogue.refusal()) + wait_forever),
            "4(archive.example) 23()");
  use_key();
  EXPECT_EQ(codes_of(say(changed_key_block) + wait_forever), "4(archive.example) 7(archive.example) 8()");
  set_tunable("ssh_connect_timeout", "0");
  EXPECT_EQ(codes_of(wait_forever), "4(archive.example) 21(archive.example)");
}

TEST_F(LoginFailure, AChangedKeyIsAMismatchAndIsFoundBehindOtherText) {
  const std::string texts[] = {changed_key_block, "x Host key verification failed.\r\n",
                               "Welcome.\r\n\r\nHost key verification failed.\r\n",
                               "\rAdd correct host key in /dev/null to get rid of this message.\r\n",
                               dialogue.introduction() + dialogue.question()};
  for (const std::string& text : texts) {
    expect_key_mismatch(text);
    start_over();
  }
}

TEST_F(LoginFailure, AKeyMismatchAnswersNothing) {
  expect_key_mismatch(dialogue.introduction() + dialogue.question(), "take_rest\n");
  EXPECT_EQ(client->rest(), "");
}

TEST_F(LoginFailure, TheMismatchTextsInsideALineAreNoMismatch) {
  use_key();
  dialogue.noise = "x The authenticity of \r\nx Add correct host key in \r\n";
  EXPECT_NO_THROW(open(dialogue.login_with_key()));
}

TEST_F(LoginFailure, TheMismatchTextsAreNoMismatchWithoutAKey) {
  dialogue.noise = std::string(changed_key_block) + "Host key verification failed.\r\nAdd correct host key in x\r\n";
  EXPECT_NO_THROW(open(dialogue.login()));
}

TEST_F(LoginFailure, ARefusalMayStandBehindOtherText) {
  use_key();
  EXPECT_EQ(open_error(after_the_password("\nx Permission denied, please try again or leave\n") + wait_forever),
            denied);
}

TEST_F(LoginFailure, ARefusalWinsOverTheShellsFirstLineInTheSameLine) {
  for (const char* line : {"Permission denied, please try again. SHELL STARTED.\n",
                           "SHELL STARTED. Permission denied, please try again.\n"}) {
    use_key();
    EXPECT_EQ(open_error(after_the_password(line) + "become_shell\n"), denied);
    start_over();
  }
}

TEST_F(LoginFailure, AWrongPasswordIsNotTriedAgain) {
  EXPECT_EQ(open_error(dialogue.up_to_prompt() + "take password\n" + say(dialogue.refusal()) + "take_rest\n"), denied);
  EXPECT_EQ(client->rest(), "");
}

TEST_F(LoginFailure, TheFinalRefusalIsNoPromptAndAfterThePasswordNoSuccess) {
  const std::string refusal = "archiver@archive.example: Permission denied (publickey,password).";
  use_key();
  EXPECT_EQ(open_error(say(refusal + "\r\n") + "exit 255\n"), client_ended + "  - Output: \"" + refusal + "\"\n");
  start_over();
  const std::string error = open_error(after_the_password("\n" + refusal + "\r\n") + "exit 255\n");
  EXPECT_EQ(error.find(client_ended), 0u) << error;
  EXPECT_NE(error.find("  - Output: \"" + refusal + "\"\n"), std::string::npos) << error;
}

TEST_F(LoginFailure, AClientThatEndsSaysSoAndShowsWhatItSaid) {
  EXPECT_EQ(open_error("echo 'ssh: connect to host archive.example port 22: Connection refused'; exit 255"),
            client_ended + "  - Output: \"ssh: connect to host archive.example port 22: Connection refused\"\n");
  start_over();
  EXPECT_EQ(open_error("exit 255"), client_ended);
  start_over();
  std::string error = open_error(say(dialogue.introduction() + dialogue.question()) + "take yes\nexit 255\n");
  EXPECT_EQ(error.find(client_ended), 0u) << error;
  start_over();
  use_key();
  error = open_error(after_the_password("\nWARNING: Your password has expired.\r\n") + "exit 1\n");
  EXPECT_NE(error.find("  - Output: \"WARNING: Your password has expired.\"\n"), std::string::npos) << error;
}

TEST_F(LoginFailure, AClientThatIsMissingSaysSo) {
  set_command("ssh", "/no/such/ssh");
  enable();
  EXPECT_EQ(error_body([this] { host.open_connection(); }),
            failed_to_start +
                "  - Program exited unexpectedly: /no/such/ssh\n"
                "  - Output: \"Failed to run /no/such/ssh: No such file or directory\"\n");
}

TEST_F(LoginFailure, AClientThatNeverTakesThePasswordIsATimeout) {
  set_tunable("ssh_connect_timeout", "1");
  settings.password.assign(100000, 'p');
  EXPECT_EQ(open_error(dialogue.up_to_prompt() + wait_forever), connect_timeout);
}

TEST_F(LoginFailure, AShellThatNeverStartsIsATimeoutThatShowsTheLastTwentyLines) {
  set_tunable("ssh_shell_start_timeout", "1");
  use_key();
  EXPECT_EQ(open_error(say("Welcome.\n") + after_the_password("\nNo shell yet.\n") + wait_forever),
            shell_timeout +
                "  - Output: \"Welcome.\"\n"
                "  - Output: \"\rarchiver@archive.example's password: \"\n"
                "  - Output: \"No shell yet.\"\n");
  start_over();
  std::string said = "\n", shown;
  for (int i = 1; i <= 25; ++i) {
    said += "line " + std::to_string(i) + "\n";
    if (i > 5) shown += "  - Output: \"line " + std::to_string(i) + "\"\n";
  }
  EXPECT_EQ(open_error(after_the_password(said) + wait_forever), shell_timeout + shown);
}

TEST_F(LoginFailure, AFloodBeforeTheQuestionOrThePromptEndsAtTheDeadline) {
  set_tunable("ssh_connect_timeout", "1");
  EXPECT_EQ(open_error(flood), connect_timeout);
  start_over();
  use_key();
  EXPECT_EQ(open_error(flood), connect_timeout);
}

TEST_F(LoginFailure, AFloodBehindTheQuestionOrWithoutANewlineIsExcessiveOutput) {
  for (const std::string& body : {say(dialogue.introduction() + dialogue.question()) + "take yes\n" + flood,
                                  std::string("exec cat /dev/zero\n")}) {
    const std::string error = open_error(body);
    EXPECT_EQ(error.find(failed_to_start + "  - CLIENT produced excessive output ("), 0u) << error;
    start_over();
  }
}

TEST_F(LoginFailure, AFloodAfterThePasswordEndsAtTheDeadline) {
  set_tunable("ssh_shell_start_timeout", "1");
  use_key();
  EXPECT_EQ(first_lines(open_error(say(dialogue.prompt()) + "take password\n" + flood), 2), shell_timeout);
}

TEST_F(LoginFailure, NoiseBeforeTheQuestionOrThePromptDoesNotProlongTheDeadline) {
  recorded_system::hurry_uptime();
  EXPECT_EQ(open_error(say(noise + dialogue.introduction() + dialogue.question()) + wait_forever), connect_timeout);
  start_over();
  use_key();
  EXPECT_EQ(open_error(say(noise + dialogue.prompt()) + wait_forever), connect_timeout);
}

TEST_F(LoginFailure, NoiseBeforeTheShellDoesNotProlongTheDeadline) {
  use_key();
  play(after_the_password(noise + ClientDialogue::shell_started()) + "become_shell\n");
  enable();
  recorded_system::hurry_uptime();
  EXPECT_EQ(first_lines(error_body([this] { host.open_connection(); }), 2), shell_timeout);
}
