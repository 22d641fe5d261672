#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <utility>

#include "host/login_fixture.h"
#include "support/named.h"

namespace {

constexpr char post_quantum_warning[] =
    "** WARNING: connection is not using a post-quantum key exchange algorithm.\r\n"
    "** This session may be vulnerable to \"store now, decrypt later\" attacks.\r\n"
    "** The server may need to be upgraded. See https://openssh.com/pq.html\r\n";

ClientDialogue version_7_9() {
  ClientDialogue dialogue;
  dialogue.before_question = "";
  dialogue.before_prompt = "";
  dialogue.other_names = "";
  dialogue.choice = "(yes/no)? ";
  return dialogue;
}

ClientDialogue version_8_0() {
  ClientDialogue dialogue;
  dialogue.other_names = "";
  return dialogue;
}

ClientDialogue version_10_1() {
  ClientDialogue dialogue;
  dialogue.fingerprint_is = " is: ";
  dialogue.fingerprint_end = "";
  dialogue.noise = post_quantum_warning;
  return dialogue;
}

class LoginDialogue : public LoginTest {
 protected:
  /* Logs in with the dialogue, and expects to meet a shell and the whole password. */
  void expect_login(const std::string& body) {
    ASSERT_NO_THROW(open(body)) << body;
    EXPECT_EQ(output_of(host, "echo ready"), "ready") << body;
    EXPECT_EQ(client->taken("password"), settings.password + "\n");
  }

  /* Cuts text at each of its bytes in turn and logs in with what the body makes of the pieces. */
  template <class Body>
  void expect_logins_however_split(const std::string& text, Body body) {
    for (size_t length = 1; length < text.size(); ++length) {
      expect_login(body(say_split(text, length)));
      start_over();
    }
  }
};

class LoginVersion : public LoginDialogue, public testing::WithParamInterface<Named<ClientDialogue>> {};

}  // namespace

TEST_P(LoginVersion, LogsInWithoutAKey) { expect_login(GetParam().value.login()); }

TEST_P(LoginVersion, LogsInWithAKey) {
  use_key();
  expect_login(GetParam().value.login_with_key());
}

TEST_P(LoginVersion, RefusesAWrongPassword) {
  const ClientDialogue& spoken = GetParam().value;
  EXPECT_EQ(open_error(spoken.up_to_prompt() + "take password\n" + say(spoken.refusal()) + "take another\n"), denied);
}

using Version = Named<ClientDialogue>;
INSTANTIATE_TEST_SUITE_P(, LoginVersion,
                         testing::Values(Version{"Client_7_9", version_7_9()}, Version{"Client_8_0", version_8_0()},
                                         Version{"Client_9_2", ClientDialogue()},
                                         Version{"Client_10_1", version_10_1()},
                                         Version{"Client_10_5", version_10_1()}),
                         by_name);

TEST_F(LoginDialogue, ThePromptMayComeInAnyTwoPieces) {
  use_key();
  expect_logins_however_split(dialogue.prompt(), [&](const std::string& prompt) { return prompt + rest; });
}

TEST_F(LoginDialogue, ThePromptWithoutACarriageReturnMayComeInAnyTwoPieces) {
  use_key();
  dialogue.before_prompt = "";
  expect_logins_however_split(dialogue.prompt(), [&](const std::string& prompt) { return prompt + rest; });
}

TEST_F(LoginDialogue, TheQuestionMayComeInAnyTwoPieces) {
  dialogue.choice = "(yes/no)? ";
  expect_logins_however_split(dialogue.question(), [&](const std::string& question) {
    return say(dialogue.introduction()) + question + "take yes\n" + say(dialogue.answered() + dialogue.prompt()) + rest;
  });
}

TEST_F(LoginDialogue, TheQuestionBehindACarriageReturnMayComeInAnyTwoPieces) {
  expect_logins_however_split("\r" + dialogue.question().substr(0, 48), [&](const std::string& question) {
    return question + "take yes\n" + say(dialogue.answered() + dialogue.prompt()) + rest;
  });
}

TEST_F(LoginDialogue, EverythingMayComeByteByByte) {
  dialogue.other_names = "";
  expect_login(say_slowly(dialogue.introduction() + dialogue.question()) + "take yes\n" +
               say_slowly(dialogue.answered() + dialogue.prompt()) + "take password\n" +
               say_slowly(ClientDialogue::shell_started()) + "become_shell\n");
}

class LoginLineEnd : public LoginDialogue, public testing::WithParamInterface<Named<const char*>> {
 protected:
  LoginLineEnd() { dialogue.line_end = GetParam().value; }
};

TEST_P(LoginLineEnd, IsAcceptedAfterTheClientsMessages) { expect_login(dialogue.login()); }

TEST_P(LoginLineEnd, IsAcceptedAfterTheShellsFirstLine) {
  use_key();
  expect_login(say(dialogue.prompt()) + "take password\n" + say("SHELL STARTED." + dialogue.line_end) + "become_shell");
}

TEST_P(LoginLineEnd, IsAcceptedAfterARefusal) {
  EXPECT_EQ(open_error(dialogue.up_to_prompt() + "take password\n" + say(dialogue.refusal()) + "take another\n"),
            denied);
}

using Literal = Named<const char*>;
constexpr Literal line_ends[] = {{"Newline", "\n"}, {"Return", "\r\n"}, {"TwoReturns", "\r\r\n"}};
INSTANTIATE_TEST_SUITE_P(, LoginLineEnd, testing::ValuesIn(line_ends), by_name);

/* A line that tells that the host has another key, and its end. */
class LoginMismatch : public LoginDialogue, public testing::WithParamInterface<std::tuple<Literal, Literal>> {};

TEST_P(LoginMismatch, IsFoundWhateverItsLineEnd) {
  use_key();
  const auto& [line, line_end] = GetParam();
  EXPECT_EQ(open_error(say(std::string(line.value) + line_end.value) + "exec sleep 100\n"), key_mismatch);
}

constexpr Literal mismatches[] = {
    {"ChangedKey", "@    WARNING: REMOTE HOST IDENTIFICATION HAS CHANGED!     @"},
    {"FailedVerification", "Host key verification failed."},
    {"UnknownKey", "The authenticity of host 'archive.example (127.0.0.1)' can't be established."},
    {"OffendingKey", "Add correct host key in /dev/null to get rid of this message."},
    {"AcceptedKey", "Warning: Permanently added 'archive.example' (ED25519) to the list of known hosts."}};
INSTANTIATE_TEST_SUITE_P(, LoginMismatch, testing::Combine(testing::ValuesIn(mismatches), testing::ValuesIn(line_ends)),
                         [](const auto& test) {
                           return std::string(std::get<0>(test.param).name) + "_" + std::get<1>(test.param).name;
                         });

/* With a pinned key that is not the host's, where the machine's own configuration has the client accept any. */
TEST_F(LoginDialogue, AnAcceptedKeyGetsNoPassword) {
  use_key();
  EXPECT_EQ(open_error(say(dialogue.answered() + dialogue.prompt()) + "take_rest\n"), key_mismatch);
  EXPECT_EQ(client->rest(), "");
}

/* Up to 8.4 the client adds the host's address by itself when the host's name has the pinned key. */
TEST_F(LoginDialogue, AnAddedAddressIsNoMismatch) {
  use_key();
  dialogue.noise =
      "Warning: Permanently added the ED25519 host key for IP address '192.0.2.1' to the list of known hosts.\r\n";
  expect_login(dialogue.login_with_key());
}

TEST_F(LoginDialogue, AnAcceptedKeyInTheMiddleOfALineIsNoMismatch) {
  use_key();
  dialogue.noise = "x Warning: Permanently added 'archive.example' (ED25519) to the list of known hosts.\r\n";
  expect_login(dialogue.login_with_key());
}

/* Where the machine's own configuration has the client accept any key, it does not ask. */
TEST_F(LoginDialogue, TheQuestionMayNotComeAtAll) { expect_login(say(dialogue.answered() + dialogue.prompt()) + rest); }

TEST_F(LoginDialogue, AQuestionThatDoesNotComeIsNotAnswered) {
  open(say(dialogue.answered() + dialogue.prompt()) + "take password\ntimeout --foreground 0.2 cat >$dir/early\n" +
       say(ClientDialogue::shell_started()) + "become_shell\n");
  EXPECT_EQ(client->taken("early"), "");
}

/* Up to 7.9 the client cuts the user behind 30 bytes and the host behind 128. */
class LoginCutPrompt : public LoginDialogue, public testing::WithParamInterface<Named<std::pair<size_t, size_t>>> {
 protected:
  LoginCutPrompt() {
    settings.user = std::string(GetParam().value.first, 'u');
    settings.host = std::string(GetParam().value.second, 'h');
    dialogue.user = settings.user.substr(0, 30);
    dialogue.host = settings.host.substr(0, 128);
  }
};

TEST_P(LoginCutPrompt, IsFound) { expect_login(dialogue.login()); }

TEST_P(LoginCutPrompt, IsFoundWithAKey) {
  use_key();
  expect_login(dialogue.login_with_key());
}

INSTANTIATE_TEST_SUITE_P(, LoginCutPrompt,
                         testing::Values(Named<std::pair<size_t, size_t>>{"Of31And10Bytes", {31, 10}},
                                         Named<std::pair<size_t, size_t>>{"Of30And129Bytes", {30, 129}},
                                         Named<std::pair<size_t, size_t>>{"Of63And255Bytes", {63, 255}}),
                         by_name);

TEST_F(LoginDialogue, ALongUserAndHostMayBePromptedForWhole) {
  dialogue.user = settings.user = std::string(63, 'u');
  dialogue.host = settings.host = std::string(255, 'h');
  expect_login(dialogue.login());
}

TEST_F(LoginDialogue, AUserIsNotCutBefore30Bytes) {
  set_tunable("ssh_connect_timeout", "1");
  settings.user = std::string(31, 'u');
  dialogue.user = std::string(29, 'u');
  EXPECT_EQ(open_error(dialogue.up_to_prompt() + "take_rest\n"), connect_timeout);
}

TEST_F(LoginDialogue, AHostIsNotCutBefore128Bytes) {
  set_tunable("ssh_connect_timeout", "1");
  settings.host = std::string(129, 'h');
  dialogue.host = std::string(127, 'h');
  const std::string error = open_error(dialogue.up_to_prompt() + "take_rest\n");
  EXPECT_NE(error.find("Timeout occurred while connecting to "), std::string::npos) << error;
}

/* A line that lacks one character of a text that is looked for. */
class LoginNearMiss : public LoginDialogue, public testing::WithParamInterface<Named<const char*>> {
 protected:
  const std::string line = std::string(GetParam().value) + "\r\n";
};

class LoginAlmostAMismatch : public LoginNearMiss {};

TEST_P(LoginAlmostAMismatch, IsNone) {
  use_key();
  dialogue.noise = line;
  expect_login(dialogue.login_with_key());
}

INSTANTIATE_TEST_SUITE_P(, LoginAlmostAMismatch,
                         testing::Values(Literal{"ChangedKeyWithoutItsEnd", "REMOTE HOST IDENTIFICATION HAS CHANGE"},
                                         Literal{"ChangedKeyWithoutItsFront", "EMOTE HOST IDENTIFICATION HAS CHANGED"},
                                         Literal{"FailedVerificationWithoutItsEnd", "Host key verification failed"},
                                         Literal{"FailedVerificationWithoutItsFront", "ost key verification failed."},
                                         Literal{"UnknownKeyWithoutItsEnd", "The authenticity of"},
                                         Literal{"UnknownKeyWithoutItsFront", "he authenticity of "},
                                         Literal{"OffendingKeyWithoutItsEnd", "Add correct host key in"},
                                         Literal{"OffendingKeyWithoutItsFront", "dd correct host key in "}),
                         by_name);

class LoginAlmostARefusal : public LoginNearMiss {};

TEST_P(LoginAlmostARefusal, IsNone) {
  use_key();
  expect_login(say(dialogue.prompt()) + "take password\n" + say(line + ClientDialogue::shell_started()) +
               "become_shell\n");
}

INSTANTIATE_TEST_SUITE_P(, LoginAlmostARefusal,
                         testing::Values(Literal{"WithoutItsEnd", "Permission denied, please try agai"},
                                         Literal{"WithoutItsFront", "ermission denied, please try again"}),
                         by_name);

class LoginAlmostAShell : public LoginNearMiss {};

/* The refusal that follows is then read and counts. */
TEST_P(LoginAlmostAShell, IsNone) {
  EXPECT_EQ(open_error(dialogue.up_to_prompt() + "take password\n" + say(line + dialogue.refusal()) + "take another\n"),
            denied);
}

INSTANTIATE_TEST_SUITE_P(, LoginAlmostAShell,
                         testing::Values(Literal{"WithoutItsEnd", "SHELL STARTED"},
                                         Literal{"WithoutItsFront", "HELL STARTED."}),
                         by_name);

class LoginAlmostAQuestion : public LoginNearMiss {};

TEST_P(LoginAlmostAQuestion, IsNotAnswered) {
  set_tunable("ssh_connect_timeout", "1");
  EXPECT_EQ(open_error(say(GetParam().value) + "take_rest\n"), connect_timeout);
  EXPECT_EQ(client->rest(), "");
}

INSTANTIATE_TEST_SUITE_P(, LoginAlmostAQuestion,
                         testing::Values(Literal{"WithoutItsEnd", "Are you sure you want to continue connectin? "},
                                         Literal{"WithoutItsFront", "re you sure you want to continue connecting? "}),
                         by_name);

TEST_F(LoginDialogue, LinesBeforeTheQuestionAreIgnored) {
  expect_login(say("/etc/ssh/ssh_config line 53: Unsupported option \"gssapiauthentication\"\r\nanother line\r\n\r\n") +
               dialogue.login());
}

TEST_F(LoginDialogue, LinesBetweenTheQuestionsFirstLineAndItsLastAreIgnored) {
  dialogue.other_names =
      "This host key is known by the following other names/addresses:\n    ~/.ssh/known_hosts:1: x\n";
  expect_login(dialogue.login());
}

TEST_F(LoginDialogue, LinesBeforeThePromptAreIgnored) {
  dialogue.noise = "Welcome.\r\n\r\n  archiver@archive.example is watched  \r\n";
  expect_login(dialogue.login());
}

TEST_F(LoginDialogue, LinesBeforeThePromptAreIgnoredWithAKey) {
  use_key();
  dialogue.noise = "Welcome.\r\n\r\n  archiver@archive.example is watched  \r\n";
  expect_login(dialogue.login_with_key());
}

TEST_F(LoginDialogue, LinesBeforeTheShellStartsAreSkipped) {
  use_key();
  expect_login(say(dialogue.prompt()) + "take password\n" + say("Last login: yesterday\r\n\r\nSHELL STARTED\n") +
               say(ClientDialogue::shell_started()) + "become_shell\n");
}

TEST_F(LoginDialogue, TheShellsFirstLineMayStandBehindOtherText) {
  use_key();
  expect_login(say(dialogue.prompt()) + "take password\n" + say("x SHELL STARTED. y\n") + "become_shell\n");
}

TEST_F(LoginDialogue, AHostInCapitalsIsPromptedForInLowerCase) {
  settings.host = "Archive.EXAMPLE";
  expect_login(dialogue.login());
}

TEST_F(LoginDialogue, AHostInCapitalsMayBePromptedForAsItIs) {
  settings.host = dialogue.host = "Archive.EXAMPLE";
  expect_login(dialogue.login());
}

TEST_F(LoginDialogue, AHostInCapitalsIsPromptedForInLowerCaseWithAKey) {
  use_key();
  settings.host = "Archive.EXAMPLE";
  expect_login(dialogue.login_with_key());
}

TEST_F(LoginDialogue, TheUsersCaseIsKept) {
  settings.user = dialogue.user = "Archiver";
  expect_login(dialogue.login());
}

TEST_F(LoginDialogue, AnAddressIsPromptedForInItsCanonicalForm) {
  settings.host = "127.1";
  dialogue.host = "127.0.0.1";
  expect_login(dialogue.login());
}

TEST_F(LoginDialogue, ThePromptOfAnotherUserIsNotAnswered) {
  set_tunable("ssh_connect_timeout", "1");
  dialogue.user = "Archiver";
  EXPECT_EQ(open_error(dialogue.login()), connect_timeout);
}

/* What the account's start-up files print stands before the shell's first line. */
class LoginStartUpFiles : public LoginDialogue, public testing::WithParamInterface<Named<const char*>> {};

TEST_P(LoginStartUpFiles, MayPrintAnything) {
  use_key();
  expect_login(say(dialogue.prompt()) + "take password\necho\n" + GetParam().value +
               "\necho SHELL STARTED.\nbecome_shell\n");
}

using Output = Named<const char*>;
INSTANTIATE_TEST_SUITE_P(, LoginStartUpFiles,
                         testing::Values(Output{"Nothing", ""}, Output{"NoNewline", "printf x"},
                                         Output{"AMegabyte", "yes noise | head -c 1048576"},
                                         Output{"TheShellsFirstLine", "echo SHELL STARTED."},
                                         Output{"AMarker", "echo \"** RUNNING cd '/'\"; echo '** EXIT CODE: 1'"}),
                         by_name);

TEST_F(LoginDialogue, AMegabyteWithoutANewlineIsExcessiveOutput) {
  use_key();
  const std::string error = open_error(say(dialogue.prompt()) + "take password\nhead -c 1048576 /dev/zero\n" +
                                       say(ClientDialogue::shell_started()) + "become_shell\n");
  EXPECT_EQ(error.find(failed_to_start + "  - CLIENT produced excessive output ("), 0u) << error;
}
