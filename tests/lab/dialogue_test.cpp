#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "lab/lab.h"
#include "support/files.h"
#include "tavren_basic.h"

using testing::AnyOf;
using testing::HasSubstr;
using testing::Not;

namespace {

constexpr int timeout = 4;

/* A banner is the host's own text, shown before the login: it may hold anything. */
class Banner : public LabTest {
 protected:
  /* Shows line in a banner and logs in, with and without a key; returns what became of both, one after the other. */
  std::string log_in_past(const std::string& line) {
    write_file(lab::value("LAB") + "/banner", "Welcome.\n" + line + "\nBehave.\n");
    lab::configure_sshd("Banner " + lab::value("LAB") + "/banner");
    return log_in("") + log_in(lab::value("LAB_HOST_KEY"));
  }

 private:
  std::string log_in(const std::string& key) {
    const ScopedTunable connect("ssh_connect_timeout", timeout);
    const ScopedTunable start("ssh_shell_start_timeout", timeout);
    Settings settings = lab::settings();
    settings.host_key = key;
    const int started = tavren_get_uptime();
    std::string outcome = error_of([&] { session(settings).open_connection(); });
    EXPECT_LE(tavren_get_uptime() - started, 2 * (timeout + 1) + 10);
    EXPECT_THAT(outcome, Not(HasSubstr(settings.password)));
    return outcome;
  }
};

constexpr char login[] = "no TavrenError was thrown";

TEST_F(Banner, WithoutALiteralOfOursDoesNotMatter) {
  EXPECT_EQ(log_in_past("Authorised access only."), std::string(login) + login);
}

TEST_F(Banner, WithTheQuestionDoesNotMatter) {
  EXPECT_EQ(log_in_past("Are you sure you want to continue connecting (yes/no)? "), std::string(login) + login);
}

TEST_F(Banner, WithTheShellsFirstLineDoesNotMatter) {
  EXPECT_EQ(log_in_past("SHELL STARTED."), std::string(login) + login);
}

TEST_F(Banner, WithADeniedPermissionDoesNotMatter) {
  EXPECT_EQ(log_in_past("Permission denied, please try again."), std::string(login) + login);
}

/* With a key these texts are the client's word that the host is not the one expected. */
TEST_F(Banner, WithTheTextsOfAWrongKeyIsTakenForOneWhereAKeyIsConfigured) {
  for (const char* line : {"WARNING: REMOTE HOST IDENTIFICATION HAS CHANGED!", "Host key verification failed.",
                           "The authenticity of host 'x' can't be established.", "Add correct host key in x"}) {
    EXPECT_EQ(log_in_past(line), std::string(login) +
                                     "4\n  - Failed to start secure shell session on localhost\n"
                                     "  - Failed to authenticate the remote host (localhost)\n"
                                     "  - The public host key setting does not match the remote host's private key\n");
  }
}

/* The password is then typed too early; the client throws away what was typed before it asks. */
TEST_F(Banner, WithThePasswordPromptEndsInALoginOrANamedError) {
  const std::string outcome = log_in_past("archiver@localhost's password: ");
  EXPECT_THAT(outcome, AnyOf(HasSubstr(login), HasSubstr("Timeout occurred while waiting for shell to start")));
}

}  // namespace
