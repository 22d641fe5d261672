#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "host/login_fixture.h"
#include "support/files.h"
#include "support/process_state.h"
#include "support/recorded_system.h"

namespace {

class LoginCommand : public LoginTest {
 protected:
  std::vector<std::string> client_arguments(const std::string& known_hosts_file) const {
    return {"-2",
            "-4",
            "-T",
            "-oPreferredAuthentications=password",
            "-oGlobalKnownHostsFile=" + known_hosts_file,
            "-oUserKnownHostsFile=/dev/null",
            "archiver@archive.example",
            "/bin/sh -c 'echo SHELL STARTED. >&2; /bin/sh >&2'"};
  }
};

}  // namespace

TEST_F(LoginCommand, HasEightArgumentsWithoutAKey) {
  open(dialogue.login());
  EXPECT_EQ(client->arguments(), client_arguments("/dev/null"));
}

TEST_F(LoginCommand, HasEightArgumentsWithAKey) {
  use_key();
  open(dialogue.login_with_key());
  EXPECT_EQ(client->arguments(), client_arguments(private_directory() + "/known_hosts"));
}

TEST_F(LoginCommand, StartsTheConfiguredShellOnTheFarSide) {
  set_command("sh", "/opt/my sh");
  open(dialogue.login());
  EXPECT_EQ(client->arguments().back(), "/opt/my sh -c 'echo SHELL STARTED. >&2; /opt/my sh >&2'");
}

TEST_F(LoginCommand, HasNoEnvironment) {
  open(dialogue.login());
  EXPECT_EQ(client->environment(), "");
}

TEST_F(LoginCommand, ReadsFromTheTerminal) {
  open("[ -t 0 ] && echo >$dir/terminal\n" + dialogue.login());
  EXPECT_TRUE(std::filesystem::exists(client->path("terminal")));
}

TEST_F(LoginCommand, WordsOfItsOwnReplaceTheWholeCommandLine) {
  play(dialogue.login());
  set_command("ssh", client->path() + " -v other.example");
  enable();
  host.open_connection();
  EXPECT_EQ(client->arguments(), (std::vector<std::string>{"-v", "other.example"}));
}

TEST_F(LoginCommand, WordsOfItsOwnReplaceTheCommandLineWithAKeyToo) {
  use_key();
  play(dialogue.login_with_key());
  set_command("ssh", client->path() + " -v");
  enable();
  host.open_connection();
  EXPECT_EQ(client->arguments(), std::vector<std::string>{"-v"});
}

TEST_F(LoginCommand, WordsOfItsOwnMayHaveSeveralBlanksBetweenThem) {
  play(dialogue.login());
  set_command("ssh", client->path() + "  -v   other.example ");
  enable();
  host.open_connection();
  EXPECT_EQ(client->arguments(), (std::vector<std::string>{"-v", "other.example"}));
}

TEST_F(LoginCommand, WithWordsOfItsOwnReadsFromTheTerminal) {
  play("[ -t 0 ] && echo >$dir/terminal\n" + dialogue.login());
  set_command("ssh", client->path() + " -v");
  enable();
  host.open_connection();
  EXPECT_TRUE(std::filesystem::exists(client->path("terminal")));
}

/* Only a single blank, at the very end, leaves a command one word. */
TEST_F(LoginCommand, OfOneWordWithAnotherBlankHasWordsOfItsOwn) {
  for (const char* format : {" %s", "%s ", "  %s  "}) {
    play(dialogue.login());
    std::string text = format;
    text.replace(text.find("%s"), 2, client->path());
    set_command("ssh", text);
    enable();
    EXPECT_NO_THROW(host.open_connection()) << "\"" << text << "\"";
    EXPECT_EQ(client->arguments(), std::vector<std::string>{}) << "\"" << text << "\"";
    start_over();
  }
}

TEST_F(LoginCommand, LoadedWithoutABlankHasWordsOfItsOwn) {
  play(dialogue.login());
  TavrenHost::set_cmds("ssh=" + client->path() + "\n");
  enable();
  host.open_connection();
  EXPECT_EQ(client->arguments(), std::vector<std::string>{});
}

TEST_F(LoginCommand, OfNothingButBlanksRunsNothing) {
  for (const char* blanks : {"", " ", "  "}) {
    set_command("ssh", blanks);
    enable();
    const std::string error = error_body([&] { host.open_connection(); });
    EXPECT_EQ(error,
              "  - Failed to start secure shell session on archive.example\n"
              "  - Program exited unexpectedly: \n"
              "  - Output: \"Failed to run : No such file or directory\"\n")
        << "\"" << blanks << "\"";
    start_over();
  }
}

TEST_F(LoginCommand, AnswersTheQuestionWithYes) {
  open(dialogue.login());
  EXPECT_EQ(client->taken("yes"), "yes\n");
}

TEST_F(LoginCommand, AnswersNothingBeforeTheQuestion) {
  open("timeout --foreground 0.2 cat >$dir/early\n" + dialogue.login());
  EXPECT_EQ(client->taken("early"), "");
}

TEST_F(LoginCommand, AnswersNothingBeforeThePrompt) {
  open(say(dialogue.introduction() + dialogue.question()) + "take yes\ntimeout --foreground 0.2 cat >$dir/early\n" +
       say(dialogue.answered() + dialogue.prompt()) + rest);
  EXPECT_EQ(client->taken("early"), "");
}

TEST_F(LoginCommand, LeavesAShellInTheArchiveDirectory) {
  const TemporaryDirectory archive;
  settings.dir = archive.path();
  open(dialogue.login());
  EXPECT_EQ(output_of(host, "pwd"), archive.path());
}

TEST_F(LoginCommand, TheArchiveDirectoryMayHoldAnything) {
  const TemporaryDirectory archive;
  settings.dir = archive.path("it's $(x) \\ \"a\xc3\xa4");
  std::filesystem::create_directory(settings.dir);
  open(dialogue.login());
  EXPECT_EQ(output_of(host, "printf '%s\\n' \"$PWD\""), settings.dir);
}

TEST_F(LoginCommand, ChangesDirectoryWithTheConfiguredCommand) {
  const TemporaryDirectory archive;
  settings.dir = archive.path();
  set_command("cd", "echo changed >" + archive.path("changed") + " && cd");
  open(dialogue.login());
  EXPECT_EQ(read_file(archive.path("changed")), "changed\n");
}

TEST_F(LoginCommand, AMissingDirectoryIsAFailedCommand) {
  settings.dir = "/no/such";
  EXPECT_EQ(first_lines(open_error(dialogue.login()), 1),
            "  - Remote command \"cd '/no/such'\" failed with error code 2\n");
}

TEST_F(LoginCommand, AMissingDirectoryLeavesTheStatusConnected) {
  settings.dir = "/no/such";
  open_error(dialogue.login());
  EXPECT_EQ(status(), TAVREN_CONNECTION_OK);
}

TEST_F(LoginCommand, AMissingDirectoryLeavesTheSessionConnected) {
  settings.dir = "/no/such";
  open_error(dialogue.login());
  host.open_connection();
  EXPECT_EQ(client->starts(), 1);
  EXPECT_EQ(output_of(host, "echo ready"), "ready");
}

TEST_F(LoginCommand, ALoginSetsTheStatus) {
  recorded_system::set_time(1000000);
  open(dialogue.login());
  recorded_system::reset();
  tavren_connection_status_t result{};
  long when = 0;
  host.get_connection_status(result, when);
  EXPECT_EQ(result, TAVREN_CONNECTION_OK);
  EXPECT_EQ(when, 1000000);
}

TEST_F(LoginCommand, AFailedLoginSetsTheStatus) {
  open_error("exit 255");
  EXPECT_EQ(status(), TAVREN_CONNECTION_FAILED);
}

TEST_F(LoginCommand, OpeningAgainDoesNotStartASecondClient) {
  open(dialogue.login());
  host.open_connection();
  EXPECT_EQ(client->starts(), 1);
}

TEST_F(LoginCommand, OpeningAgainDoesNotTouchTheStatus) {
  open(dialogue.login());
  host.clear_connection_status();
  host.open_connection();
  EXPECT_EQ(status(), TAVREN_CONNECTION_NONE);
}

TEST_F(LoginCommand, OpeningAfterAFailureReturnsAtOnce) {
  open_error("exit 255");
  host.clear_connection_status();
  EXPECT_NO_THROW(host.open_connection());
  EXPECT_EQ(client->starts(), 1);
  EXPECT_EQ(status(), TAVREN_CONNECTION_NONE);
}

TEST_F(LoginCommand, AFailedLoginKeepsItsChild) {
  set_tunable("ssh_connect_timeout", "1");
  open_error("echo $$ >$dir/pid; exec sleep 100");
  EXPECT_TRUE(has_survived(std::stoi(client->taken("pid"))));
}

TEST_F(LoginCommand, AnOpeningAfterClosingLogsInAgain) {
  open_error("[ -e $dir/failed ] || { echo >$dir/failed; exit 255; }\n" + dialogue.login());
  host.close_connection();
  EXPECT_NO_THROW(host.open_connection());
  EXPECT_EQ(client->starts(), 2);
}

TEST_F(LoginCommand, TheShellIsSetUpWhenAskedFor) {
  play("umask 077; become_shell() { exec /bin/sh +i -f 2>&1; }\n" + dialogue.login());
  TavrenHost configured(true, false);
  configured.set_settings(settings.record());
  configured.enable();
  configured.open_connection();
  EXPECT_EQ(output_of(configured, "umask"), "0022");
  EXPECT_EQ(output_of(configured, "case $- in *f*) echo off;; *) echo on;; esac"), "on");
  configured.close_connection();
}

TEST_F(LoginCommand, TheShellIsSetUpLast) {
  play(dialogue.login());
  TavrenHost configured(true, false);
  configured.set_settings(settings.record());
  configured.enable();
  recorded_system::record_writes();
  configured.open_connection();
  const std::vector<std::string> writes = recorded_system::take_writes();
  recorded_system::reset();
  EXPECT_EQ(writes.back(), "umask 022; set +f\n");
  configured.close_connection();
}

TEST_F(LoginCommand, TheShellIsLeftAloneOtherwise) {
  open("umask 077\n" + dialogue.login());
  EXPECT_EQ(output_of(host, "umask"), "0077");
}
