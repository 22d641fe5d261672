#include <gtest/gtest.h>

#include <algorithm>
#include <string>
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

  /* The same with and without a key, and then forgets the client. */
  void expect_both_logins() {
    for (const char* key : {"", "ssh-ed25519 AAAA"}) {
      settings.host_key = key;
      expect_login(*key == '\0' ? dialogue.login() : dialogue.login_with_key());
      start_over();
    }
  }

  /* Expects a client that has been answered the password, and then writes text, to be taken for a refusing one. */
  void expect_refusal(const std::string& text) {
    EXPECT_EQ(open_error(dialogue.up_to_prompt() + "take password\n" + say(text) + "take another\n"), denied);
    start_over();
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

}  // namespace

TEST_F(LoginDialogue, OfEachVersionEndsInALoginOrARefusal) {
  const Named<ClientDialogue> versions[] = {
      {"7.9", version_7_9()}, {"8.0", version_8_0()}, {"9.2", ClientDialogue()}, {"10.1 to 10.5", version_10_1()}};
  for (const auto& [version, spoken] : versions) {
    SCOPED_TRACE(version);
    dialogue = spoken;
    expect_both_logins();
    settings.host_key.clear();
    expect_refusal(dialogue.refusal());
  }
}

TEST_F(LoginDialogue, ThePromptWithOrWithoutACarriageReturnMayComeInAnyTwoPieces) {
  use_key();
  for (const char* before : {"\r", ""}) {
    dialogue.before_prompt = before;
    expect_logins_however_split(dialogue.prompt(), [&](const std::string& prompt) { return prompt + rest; });
  }
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

constexpr const char* line_ends[] = {"\n", "\r\n", "\r\r\n"};

TEST_F(LoginDialogue, AnyLineEndIsAcceptedAfterTheClientsMessages) {
  for (const char* line_end : line_ends) {
    dialogue.line_end = line_end;
    expect_login(dialogue.login());
    start_over();
    expect_refusal(dialogue.refusal());
  }
}

TEST_F(LoginDialogue, AnyLineEndIsAcceptedAfterTheShellsFirstLine) {
  use_key();
  for (const std::string line_end : line_ends) {
    expect_login(say(dialogue.prompt()) + "take password\n" + say("SHELL STARTED." + line_end) + "become_shell");
    start_over();
  }
}

/* Of a line that tells that the host has another key. */
TEST_F(LoginDialogue, AnyLineEndIsAcceptedAfterAMismatch) {
  use_key();
  for (const std::string line :
       {"@    WARNING: REMOTE HOST IDENTIFICATION HAS CHANGED!     @", "Host key verification failed.",
        "The authenticity of host 'archive.example (127.0.0.1)' can't be established.",
        "Add correct host key in /dev/null to get rid of this message.",
        "Warning: Permanently added 'archive.example' (ED25519) to the list of known hosts."}) {
    for (const char* line_end : line_ends) {
      EXPECT_EQ(open_error(say(line + line_end) + "exec sleep 100\n"), key_mismatch) << line;
      start_over();
    }
  }
}

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
TEST_F(LoginDialogue, ALongUserAndHostMayBePromptedForCutOrWhole) {
  for (const auto& [user_size, host_size] : {std::pair<size_t, size_t>{31, 10}, {30, 129}, {63, 255}}) {
    SCOPED_TRACE(user_size);
    dialogue.user = settings.user = std::string(user_size, 'u');
    dialogue.host = settings.host = std::string(host_size, 'h');
    expect_both_logins();
    dialogue.user.resize(std::min<size_t>(user_size, 30));
    dialogue.host.resize(std::min<size_t>(host_size, 128));
    expect_both_logins();
  }
}

TEST_F(LoginDialogue, ThePromptOfAnotherUserOrOfOneWhoIsCutBefore30BytesIsNotAnswered) {
  set_tunable("ssh_connect_timeout", "1");
  for (const auto& [user, prompted] :
       {std::pair{settings.user, std::string("Archiver")}, {std::string(31, 'u'), std::string(29, 'u')}}) {
    settings.user = user;
    dialogue.user = prompted;
    EXPECT_EQ(open_error(dialogue.up_to_prompt() + "take_rest\n"), connect_timeout);
    start_over();
  }
}

TEST_F(LoginDialogue, AHostIsNotCutBefore128Bytes) {
  set_tunable("ssh_connect_timeout", "1");
  settings.host = std::string(129, 'h');
  dialogue.host = std::string(127, 'h');
  const std::string error = open_error(dialogue.up_to_prompt() + "take_rest\n");
  EXPECT_NE(error.find("Timeout occurred while connecting to "), std::string::npos) << error;
}

/* Lines that lack one character of a text that is looked for. */
TEST_F(LoginDialogue, AlmostAMismatchIsNone) {
  use_key();
  for (const std::string line : {"REMOTE HOST IDENTIFICATION HAS CHANGE", "EMOTE HOST IDENTIFICATION HAS CHANGED",
                                 "Host key verification failed", "ost key verification failed.", "The authenticity of",
                                 "he authenticity of ", "Add correct host key in", "dd correct host key in "}) {
    SCOPED_TRACE(line);
    dialogue.noise = line + "\r\n";
    expect_login(dialogue.login_with_key());
    start_over();
  }
}

TEST_F(LoginDialogue, AlmostARefusalIsNone) {
  use_key();
  for (const std::string line : {"Permission denied, please try agai", "ermission denied, please try again"}) {
    expect_login(say(dialogue.prompt()) + "take password\n" + say(line + "\r\n" + ClientDialogue::shell_started()) +
                 "become_shell\n");
    start_over();
  }
}

/* The refusal that follows is then read and counts. */
TEST_F(LoginDialogue, AlmostAShellIsNone) {
  for (const std::string line : {"SHELL STARTED", "HELL STARTED."}) expect_refusal(line + "\r\n" + dialogue.refusal());
}

TEST_F(LoginDialogue, AlmostAQuestionIsNotAnswered) {
  set_tunable("ssh_connect_timeout", "1");
  for (const char* question :
       {"Are you sure you want to continue connectin? ", "re you sure you want to continue connecting? "}) {
    EXPECT_EQ(open_error(say(question) + "take_rest\n"), connect_timeout) << question;
    EXPECT_EQ(client->rest(), "") << question;
    start_over();
  }
}

TEST_F(LoginDialogue, LinesBeforeTheQuestionInsideOfItAndBeforeThePromptAreIgnored) {
  dialogue.noise = "Welcome.\r\n\r\n  archiver@archive.example is watched  \r\n";
  expect_both_logins();
  settings.host_key.clear();
  dialogue.other_names =
      "This host key is known by the following other names/addresses:\n    ~/.ssh/known_hosts:1: x\n";
  expect_login(say("/etc/ssh/ssh_config line 53: Unsupported option \"gssapiauthentication\"\r\nanother line\r\n\r\n") +
               dialogue.login());
}

TEST_F(LoginDialogue, OtherTextBeforeTheShellStartsIsSkipped) {
  use_key();
  for (const std::string& text : {"Last login: yesterday\r\n\r\nSHELL STARTED\n" + ClientDialogue::shell_started(),
                                  std::string("x SHELL STARTED. y\n")}) {
    expect_login(say(dialogue.prompt()) + "take password\n" + say(text) + "become_shell\n");
    start_over();
  }
}

/* The client writes the host in lower case or as it was given, and an address in its canonical form, too. */
TEST_F(LoginDialogue, AHostIsPromptedForInAnyOfItsForms) {
  for (const auto& [configured, prompted] : {std::pair{"Archive.EXAMPLE", "archive.example"},
                                             {"Archive.EXAMPLE", "Archive.EXAMPLE"},
                                             {"127.1", "127.0.0.1"}}) {
    settings.host = configured;
    dialogue.host = prompted;
    expect_both_logins();
  }
}

TEST_F(LoginDialogue, TheUsersCaseIsKept) {
  settings.user = dialogue.user = "Archiver";
  expect_login(dialogue.login());
}

/* What the account's start-up files print stands before the shell's first line. */
TEST_F(LoginDialogue, StartUpFilesMayPrintAnything) {
  use_key();
  for (const std::string lines : {"", "printf x", "yes noise | head -c 1048576", "echo SHELL STARTED.",
                                  "echo \"** RUNNING cd '/'\"; echo '** EXIT CODE: 1'"}) {
    expect_login(say(dialogue.prompt()) + "take password\necho\n" + lines + "\necho SHELL STARTED.\nbecome_shell\n");
    start_over();
  }
}

TEST_F(LoginDialogue, AMegabyteWithoutANewlineIsExcessiveOutput) {
  use_key();
  const std::string error = open_error(say(dialogue.prompt()) + "take password\nhead -c 1048576 /dev/zero\n" +
                                       say(ClientDialogue::shell_started()) + "become_shell\n");
  EXPECT_EQ(error.find(failed_to_start + "  - CLIENT produced excessive output ("), 0u) << error;
}
