#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "host/login_fixture.h"

/*
 * A banner is text of the far side's and may hold, at the start of its lines, everything that the login looks for.
 */
namespace {

/* Lines, and whether they are a mismatch where a key is configured. */
constexpr std::pair<const char*, bool> banners[] = {
    {"REMOTE HOST IDENTIFICATION HAS CHANGED", true},
    {"Host key verification failed.", true},
    {"The authenticity of this host is beyond doubt", true},
    {"Add correct host key in your file", true},
    {"Are you sure you want to continue connecting to a watched host?", false},
    {"Permission denied, please try again", false},
    {"SHELL STARTED.", false},
    {"archiver@archive.example's password: is known to us", false},
    {"** RUNNING cd '/'", false},
    {"** EXIT CODE: 0", false},
};

class LoginBanner : public LoginTest {
 protected:
  /* Expects a client that runs the lines body to log in, and then forgets it. */
  void expect_login(const std::string& body) {
    open(body);
    EXPECT_EQ(output_of(host, "echo ready"), "ready");
    start_over();
  }
};

}  // namespace

TEST_F(LoginBanner, EndsInALoginOrWithAKeyInANamedError) {
  for (const auto& [line, is_a_mismatch] : banners) {
    SCOPED_TRACE(line);
    dialogue.noise = line + dialogue.line_end;
    settings.host_key.clear();
    expect_login(dialogue.login());
    use_key();
    if (!is_a_mismatch) expect_login(dialogue.login_with_key());
    if (!is_a_mismatch) continue;
    EXPECT_EQ(open_error(dialogue.login_with_key()), key_mismatch);
    start_over();
  }
}

/* The real client throws away what was typed before it asked for the password. */
TEST_F(LoginBanner, OfAClientThatForgetsWhatWasTypedEndsInsideTheDeadline) {
  set_tunable("ssh_connect_timeout", "1");
  set_tunable("ssh_shell_start_timeout", "1");
  for (const auto& [line, is_a_mismatch] : banners) {
    SCOPED_TRACE(line);
    dialogue.noise = line + dialogue.line_end;
    const std::string body =
        say(dialogue.introduction() + dialogue.question()) + "take yes\n" + say(dialogue.answered()) +
        "sleep 0.1; perl -MPOSIX=tcflush,TCIFLUSH -e 'tcflush(0, TCIFLUSH)'\n" + say(dialogue.prompt()) + rest;
    if (dialogue.noise.find("password: ") == std::string::npos) {
      expect_login(body);
    } else {
      EXPECT_EQ(first_lines(open_error(body), 2), shell_timeout);
      start_over();
    }
  }
}
