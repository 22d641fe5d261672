#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <termios.h>

#include <string>

#include "support/files.h"
#include "support/temporary_directory.h"
#include "tools/program_on_a_terminal.h"

namespace {

/* tavren_send, which asks for the password before it does anything else with a key that it is given. */
class PasswordPrompt : public testing::Test, protected ProgramOnATerminal {
 protected:
  PasswordPrompt() {
    setenv("TAVREN_HOME", directory.path().c_str(), 1);
    write_file(key, "ssh-ed25519 AAAAC3NzaC1lZDI1NTE5AAAAIAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA\n");
    run_on_a_terminal({TAVREN_SEND, "-k", key.c_str(), "nobody@localhost:/nowhere", "/dev/null"});
    expect_shown("Password: ");
  }

  const TemporaryDirectory directory;
  const std::string key = directory.path("key.pub");
};

TEST_F(PasswordPrompt, ShowsNothingOfWhatIsTyped) { EXPECT_EQ(settings().c_lflag & static_cast<tcflag_t>(ECHO), 0U); }

TEST_F(PasswordPrompt, GivesTheTerminalBackWhenItIsInterrupted) {
  type("\x03");
  expect_end_by(SIGINT);
}

TEST_F(PasswordPrompt, GivesTheTerminalBackWhenItIsToEnd) {
  kill(program, SIGTERM);
  expect_end_by(SIGTERM);
}

TEST_F(PasswordPrompt, ShowsNothingAfterItWasStoppedAndAsksAgain) {
  run_in_a_shell(std::string(TAVREN_SEND) + " -k " + key + " nobody@localhost:/nowhere /dev/null");
  expect_shown("Password: ");
  type("\x1a");
  expect_shown("Stopped");
  EXPECT_TRUE(has_its_old_settings());
  type("fg\n");
  expect_shown("Password: ");
  EXPECT_EQ(settings().c_lflag & static_cast<tcflag_t>(ECHO), 0U);
}

}  // namespace
