#include <gtest/gtest.h>

#include <string>

#include "host/login_fixture.h"
#include "support/named.h"

/*
 * A banner is text of the far side's and may hold, at the start of its lines, everything that the login looks for.
 */
namespace {

struct Banner {
  const char* line;
  bool is_a_mismatch; /* where a key is configured */
};

constexpr Named<Banner> banners[] = {
    {"ChangedKey", {"REMOTE HOST IDENTIFICATION HAS CHANGED", true}},
    {"FailedVerification", {"Host key verification failed.", true}},
    {"UnknownKey", {"The authenticity of this host is beyond doubt", true}},
    {"OffendingKey", {"Add correct host key in your file", true}},
    {"Question", {"Are you sure you want to continue connecting to a watched host?", false}},
    {"Refusal", {"Permission denied, please try again", false}},
    {"ShellStarted", {"SHELL STARTED.", false}},
    {"Prompt", {"archiver@archive.example's password: is known to us", false}},
    {"RunningMarker", {"** RUNNING cd '/'", false}},
    {"ExitCode", {"** EXIT CODE: 0", false}},
};

class LoginBanner : public LoginTest, public testing::WithParamInterface<Named<Banner>> {
 protected:
  LoginBanner() { dialogue.noise = GetParam().value.line + dialogue.line_end; }
};

}  // namespace

TEST_P(LoginBanner, EndsInALoginWithoutAKey) {
  open(dialogue.login());
  EXPECT_EQ(output_of(host, "echo ready"), "ready");
}

TEST_P(LoginBanner, EndsInALoginOrANamedErrorWithAKey) {
  use_key();
  if (GetParam().value.is_a_mismatch) {
    EXPECT_EQ(open_error(dialogue.login_with_key()), key_mismatch);
  } else {
    open(dialogue.login_with_key());
    EXPECT_EQ(output_of(host, "echo ready"), "ready");
  }
}

TEST_P(LoginBanner, OfAClientThatForgetsWhatWasTypedEndsInsideTheDeadline) {
  /* The real client throws away what was typed before it asked for the password. */
  set_tunable("ssh_connect_timeout", "1");
  set_tunable("ssh_shell_start_timeout", "1");
  const std::string body =
      say(dialogue.introduction() + dialogue.question()) + "take yes\n" + say(dialogue.answered()) +
      "sleep 0.1; perl -MPOSIX=tcflush,TCIFLUSH -e 'tcflush(0, TCIFLUSH)'\n" + say(dialogue.prompt()) + rest;
  if (std::string(GetParam().name) == "Prompt") {
    EXPECT_EQ(first_lines(open_error(body), 2), shell_timeout);
  } else {
    open(body);
    EXPECT_EQ(output_of(host, "echo ready"), "ready");
  }
}

INSTANTIATE_TEST_SUITE_P(, LoginBanner, testing::ValuesIn(banners), by_name);
