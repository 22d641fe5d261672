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

  void expect_key_mismatch(const std::string& body) {
    use_key();
    EXPECT_EQ(open_error(body), key_mismatch);
  }

  const std::string wait_forever = "exec sleep 100\n";
  const std::string noise = "noise\n" + std::string(200, '\n');
  const std::string flood = "exec yes 'noise'\n";
  const std::string flood_without_newline = "exec cat /dev/zero\n";
};

}  // namespace

TEST_F(LoginFailure, AChangedKeyIsAMismatch) { expect_key_mismatch(say(changed_key_block) + wait_forever); }

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

TEST_F(LoginFailure, AFailedVerificationIsAMismatch) {
  expect_key_mismatch(say("x Host key verification failed.\r\n") + wait_forever);
}

TEST_F(LoginFailure, AnUnknownKeyIsAMismatch) {
  expect_key_mismatch(say("The authenticity of host 'x (127.0.0.1)' can't be established.\n") + wait_forever);
}

TEST_F(LoginFailure, AnUnknownKeyBehindACarriageReturnIsAMismatch) {
  expect_key_mismatch(say(dialogue.introduction() + dialogue.question()) + wait_forever);
}

TEST_F(LoginFailure, AnOffendingKeyIsAMismatch) {
  expect_key_mismatch(say("Add correct host key in /dev/null to get rid of this message.\r\n") + wait_forever);
}

TEST_F(LoginFailure, AnOffendingKeyBehindACarriageReturnIsAMismatch) {
  expect_key_mismatch(say("\rAdd correct host key in /dev/null to get rid of this message.\r\n") + wait_forever);
}

TEST_F(LoginFailure, AMismatchIsFoundBehindOtherLines) {
  expect_key_mismatch(say("Welcome.\r\n\r\nHost key verification failed.\r\n") + wait_forever);
}

TEST_F(LoginFailure, AKeyMismatchAnswersNothing) {
  expect_key_mismatch(say(dialogue.introduction() + dialogue.question()) + "take_rest\n");
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
  EXPECT_EQ(open_error(say(dialogue.prompt()) + "take password\n" +
                       say("\nx Permission denied, please try again or leave\n") + wait_forever),
            denied);
}

TEST_F(LoginFailure, ARefusalWinsOverTheShellsFirstLineInTheSameLine) {
  for (const char* line : {"Permission denied, please try again. SHELL STARTED.\n",
                           "SHELL STARTED. Permission denied, please try again.\n"}) {
    use_key();
    EXPECT_EQ(open_error(say(dialogue.prompt()) + "take password\n" + say(line) + "become_shell\n"), denied);
    start_over();
  }
}

TEST_F(LoginFailure, AWrongPasswordIsNotTriedAgain) {
  EXPECT_EQ(open_error(dialogue.up_to_prompt() + "take password\n" + say(dialogue.refusal()) + "take_rest\n"), denied);
  EXPECT_EQ(client->rest(), "");
}

TEST_F(LoginFailure, TheFinalRefusalIsNoPrompt) {
  const std::string refusal = "archiver@archive.example: Permission denied (publickey,password).";
  use_key();
  EXPECT_EQ(open_error(say(refusal + "\r\n") + "exit 255\n"), client_ended + "  - Output: \"" + refusal + "\"\n");
}

TEST_F(LoginFailure, TheFinalRefusalAfterThePasswordIsNoSuccess) {
  const std::string refusal = "archiver@archive.example: Permission denied (publickey,password).";
  use_key();
  const std::string error =
      open_error(say(dialogue.prompt()) + "take password\n" + say("\n" + refusal + "\r\n") + "exit 255\n");
  EXPECT_EQ(error.find(client_ended), 0u) << error;
  EXPECT_NE(error.find("  - Output: \"" + refusal + "\"\n"), std::string::npos) << error;
}

TEST_F(LoginFailure, AClientThatEndsAtOnceShowsWhatItSaid) {
  EXPECT_EQ(open_error("echo 'ssh: connect to host archive.example port 22: Connection refused'; exit 255"),
            client_ended + "  - Output: \"ssh: connect to host archive.example port 22: Connection refused\"\n");
}

TEST_F(LoginFailure, AClientThatEndsWithoutAWordSaysSo) { EXPECT_EQ(open_error("exit 255"), client_ended); }

TEST_F(LoginFailure, AClientThatIsMissingSaysSo) {
  set_command("ssh", "/no/such/ssh");
  enable();
  EXPECT_EQ(error_body([this] { host.open_connection(); }),
            failed_to_start +
                "  - Program exited unexpectedly: /no/such/ssh\n"
                "  - Output: \"Failed to run /no/such/ssh: No such file or directory\"\n");
}

TEST_F(LoginFailure, AClientThatEndsAfterTheQuestionSaysSo) {
  const std::string error = open_error(say(dialogue.introduction() + dialogue.question()) + "take yes\nexit 255\n");
  EXPECT_EQ(error.find(client_ended), 0u) << error;
}

TEST_F(LoginFailure, AClientThatEndsAfterThePasswordShowsItsReason) {
  use_key();
  const std::string error = open_error(say(dialogue.prompt()) + "take password\n" +
                                       say("\nWARNING: Your password has expired.\r\n") + "exit 1\n");
  EXPECT_NE(error.find("  - Output: \"WARNING: Your password has expired.\"\n"), std::string::npos) << error;
}

TEST_F(LoginFailure, ASilentClientIsATimeout) {
  set_tunable("ssh_connect_timeout", "1");
  EXPECT_EQ(open_error(wait_forever), connect_timeout);
}

TEST_F(LoginFailure, ASilentClientIsATimeoutWithAKey) {
  set_tunable("ssh_connect_timeout", "1");
  use_key();
  EXPECT_EQ(open_error(wait_forever), connect_timeout);
}

TEST_F(LoginFailure, AClientThatFallsSilentAfterTheQuestionIsATimeout) {
  set_tunable("ssh_connect_timeout", "1");
  EXPECT_EQ(open_error(say(dialogue.introduction() + dialogue.question()) + "take yes\n" + wait_forever),
            connect_timeout);
}

TEST_F(LoginFailure, AClientThatNeverTakesThePasswordIsATimeout) {
  set_tunable("ssh_connect_timeout", "1");
  settings.password.assign(100000, 'p');
  EXPECT_EQ(open_error(dialogue.up_to_prompt() + wait_forever), connect_timeout);
}

TEST_F(LoginFailure, AShellThatNeverStartsIsATimeout) {
  set_tunable("ssh_shell_start_timeout", "1");
  use_key();
  EXPECT_EQ(
      open_error(say("Welcome.\n" + dialogue.prompt()) + "take password\n" + say("\nNo shell yet.\n") + wait_forever),
      shell_timeout +
          "  - Output: \"Welcome.\"\n"
          "  - Output: \"\rarchiver@archive.example's password: \"\n"
          "  - Output: \"No shell yet.\"\n");
}

TEST_F(LoginFailure, TheFirstLineOfAShellEndsInAFullStop) {
  set_tunable("ssh_shell_start_timeout", "1");
  use_key();
  const std::string error =
      open_error(say(dialogue.prompt()) + "take password\n" + say("\nSHELL STARTED\n") + wait_forever);
  EXPECT_EQ(first_lines(error, 2), shell_timeout);
}

TEST_F(LoginFailure, TheTimeoutOfAShellShowsTheLastTwentyLines) {
  set_tunable("ssh_shell_start_timeout", "1");
  use_key();
  std::string said = "\n", shown;
  for (int i = 1; i <= 25; ++i) {
    said += "line " + std::to_string(i) + "\n";
    if (i > 5) shown += "  - Output: \"line " + std::to_string(i) + "\"\n";
  }
  EXPECT_EQ(open_error(say(dialogue.prompt()) + "take password\n" + say(said) + wait_forever), shell_timeout + shown);
}

TEST_F(LoginFailure, AFloodBeforeTheQuestionEndsAtTheDeadline) {
  set_tunable("ssh_connect_timeout", "1");
  EXPECT_EQ(open_error(flood), connect_timeout);
}

TEST_F(LoginFailure, AFloodBeforeThePromptIsExcessiveOutput) {
  const std::string error = open_error(say(dialogue.introduction() + dialogue.question()) + "take yes\n" + flood);
  const std::string expected = failed_to_start + "  - CLIENT produced excessive output (";
  EXPECT_EQ(error.substr(0, expected.size()), expected);
}

TEST_F(LoginFailure, AFloodBeforeThePromptEndsAtTheDeadlineWithAKey) {
  set_tunable("ssh_connect_timeout", "1");
  use_key();
  EXPECT_EQ(open_error(flood), connect_timeout);
}

TEST_F(LoginFailure, AFloodAfterThePasswordEndsAtTheDeadline) {
  set_tunable("ssh_shell_start_timeout", "1");
  use_key();
  EXPECT_EQ(first_lines(open_error(say(dialogue.prompt()) + "take password\n" + flood), 2), shell_timeout);
}

TEST_F(LoginFailure, NoiseBeforeTheQuestionDoesNotProlongTheDeadline) {
  recorded_system::hurry_uptime();
  EXPECT_EQ(open_error(say(noise + dialogue.introduction() + dialogue.question()) + wait_forever), connect_timeout);
}

TEST_F(LoginFailure, NoiseBeforeThePromptDoesNotProlongTheDeadline) {
  use_key();
  recorded_system::hurry_uptime();
  EXPECT_EQ(open_error(say(noise + dialogue.prompt()) + wait_forever), connect_timeout);
}

TEST_F(LoginFailure, NoiseBeforeTheShellDoesNotProlongTheDeadline) {
  use_key();
  play(say(dialogue.prompt()) + "take password\n" + say(noise + ClientDialogue::shell_started()) + "become_shell\n");
  enable();
  recorded_system::hurry_uptime();
  EXPECT_EQ(first_lines(error_body([this] { host.open_connection(); }), 2), shell_timeout);
}

TEST_F(LoginFailure, AFloodWithoutANewlineIsExcessiveOutput) {
  const std::string error = open_error(flood_without_newline);
  EXPECT_EQ(error.find(failed_to_start + "  - CLIENT produced excessive output ("), 0u) << error;
}
