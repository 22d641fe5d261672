#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <unistd.h>

#include "TavrenTunables.h"
#include "lab/lab.h"
#include "support/files.h"
#include "support/own_machine.h"

using testing::HasSubstr;

namespace {

std::string working_directory(TavrenHost& host) {
  std::list<std::string> lines;
  host.run_and_check_ecode("pwd", lines);
  return lines.empty() ? "" : lines.front();
}

class Login : public LabTest {
 protected:
  void expect_login(const Settings& settings) {
    TavrenHost& host = session(settings);
    EXPECT_EQ(error_of([&] { host.open_connection(); }), no_error);
    EXPECT_EQ(working_directory(host), settings.dir);
  }
};

/* In lower case, in capitals, and as an address in another than its canonical form. */
TEST_F(Login, OfAHostInAnyOfItsFormsSucceedsWithAndWithoutAKey) {
  for (const char* host : {"localhost", "LocalHost", "127.1"}) {
    Settings settings = lab::settings_with(&Settings::host, host);
    expect_login(settings);
    settings.host_key = lab::value("LAB_HOST_KEY");
    expect_login(settings);
  }
}

TEST_F(Login, ToAnUnknownHostShowsWhatTheClientSays) {
  need_own_machine("the network would be asked for a name");
  const std::string error = outcome_of_login(lab::settings_with(&Settings::host, "no-such-host.invalid"));
  EXPECT_THAT(error, HasSubstr("4\n  - Failed to start secure shell session on no-such-host.invalid\n"
                               "  - Program exited unexpectedly: /usr/bin/ssh\n"));
  EXPECT_THAT(error, HasSubstr("Could not resolve hostname no-such-host.invalid"));
}

TEST_F(Login, ToAServerThatTakesNoPasswordsIsNoSuccessAndShowsTheRefusal) {
  lab::configure_sshd("PasswordAuthentication no");
  const std::string error = outcome_of_login(lab::settings());
  EXPECT_THAT(error, HasSubstr("Program exited unexpectedly"));
  EXPECT_THAT(error, HasSubstr("archiver@localhost: Permission denied (publickey)."));
}

TEST_F(Login, OfAnAccountWithAnExpiredPasswordShowsWhatTheHostSays) {
  lab::run("sed -i '/^archiver:/s/:19000:/:0:/' /etc/shadow");
  EXPECT_THAT(outcome_of_login(lab::settings()), HasSubstr("Your password has expired"));
}

TEST_F(Login, ToAMissingDirectoryFailsWithTheShellsWordsAfterTheStatusIsConnected) {
  TavrenHost& host = session(lab::settings_with(&Settings::dir, "/no/such/directory"));
  const std::string error = error_of([&] { host.open_connection(); });
  EXPECT_THAT(error, HasSubstr("14\n  - Remote command \"cd '/no/such/directory'\" failed with error code 2\n"));
  EXPECT_THAT(error, HasSubstr("can't cd to /no/such/directory"));
  tavren_connection_status_t status = TAVREN_CONNECTION_NONE;
  long when = 0;
  host.get_connection_status(status, when);
  EXPECT_EQ(status, TAVREN_CONNECTION_OK);
  EXPECT_GT(when, 0);
}

TEST_F(Login, ToADirectoryWithABackslashQuotesAndDollarsInItsNameSucceeds) {
  lab::run(R"(mkdir -p '/home/archiver/a\b '\''c'\'' "$HOME" $(x) \n')");
  expect_login(lab::settings_with(&Settings::dir, R"(/home/archiver/a\b 'c' "$HOME" $(x) \n)"));
}

TEST_F(Login, FailureShowsWhatTheClientSaysReachesTheSystemLogAndWarnsOnTheConsole) {
  lab::stop_sshd();
  EXPECT_THAT(outcome_of_login(lab::settings(), true), HasSubstr("Connection refused"));
  EXPECT_THAT(lab::system_log(), HasSubstr(": failed to connect to archive host"));
  EXPECT_EQ(lab::console(), "\nWARNING: Log Archiving unable to communicate with archive host localhost\n");
}

/* The client goes by the user's entry, whatever HOME says. */
TEST_F(Login, LeavesTheUsersKnownHostsAlone) {
  const std::string path = getpwuid(getuid())->pw_dir + std::string("/.ssh/known_hosts");
  const bool existed = access(path.c_str(), F_OK) == 0;
  const std::string before = existed ? read_file(path) : "";
  connected_session();
  EXPECT_EQ(access(path.c_str(), F_OK) == 0, existed);
  EXPECT_EQ(existed ? read_file(path) : "", before);
}

TEST_F(Login, PassesEightArgumentsAFileOfTheHostAndItsKeyAndAnEmptyEnvironmentToTheClient) {
  const std::string key = lab::value("LAB_HOST_KEY");
  session(lab::settings_with(&Settings::host_key, key)).open_connection();
  lab::run("pid=$(pgrep -x ssh); tr '\\0' '|' </proc/$pid/cmdline >$LAB/cmdline; cat /proc/$pid/environ >$LAB/environ");
  const std::string known_hosts = lab::value("TAVREN_HOME") + "/tavren_tmp/lab.libtavren/known_hosts";
  EXPECT_EQ(read_file(lab::value("LAB") + "/cmdline"),
            "/usr/bin/ssh|-2|-4|-T|-oPreferredAuthentications=password|-oGlobalKnownHostsFile=" + known_hosts +
                "|-oUserKnownHostsFile=/dev/null|archiver@localhost|"
                "/bin/sh -c 'echo SHELL STARTED. >&2; /bin/sh >&2'|");
  EXPECT_EQ(read_file(lab::value("LAB") + "/environ"), "");
  EXPECT_EQ(read_file(known_hosts), "localhost " + key + "\n[*]:* " + key + "\n");
}

}  // namespace
