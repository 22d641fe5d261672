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
  /* Connects with a client that runs the lines body, PATH in the command's text being its path. */
  void open_with(const std::string& text, const std::string& body) {
    play(body);
    std::string command = text;
    set_command("ssh", command.replace(command.find("PATH"), 4, client->path()));
    enable();
    host.open_connection();
  }

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

  const std::string note_terminal = "[ -t 0 ] && echo >$dir/terminal\n";
};

}  // namespace

TEST_F(LoginCommand, HasEightArgumentsAndNoEnvironmentAndReadsFromTheTerminal) {
  open(note_terminal + dialogue.login());
  EXPECT_EQ(client->arguments(), client_arguments("/dev/null"));
  EXPECT_EQ(client->environment(), "");
  EXPECT_TRUE(std::filesystem::exists(client->path("terminal")));
  start_over();
  use_key();
  open(dialogue.login_with_key());
  EXPECT_EQ(client->arguments(), client_arguments(private_directory() + "/known_hosts"));
}

TEST_F(LoginCommand, StartsTheConfiguredShellOnTheFarSide) {
  set_command("sh", "/opt/my sh");
  open(dialogue.login());
  EXPECT_EQ(client->arguments().back(), "/opt/my sh -c 'echo SHELL STARTED. >&2; /opt/my sh >&2'");
}

TEST_F(LoginCommand, WordsOfItsOwnReplaceTheWholeCommandLineAndNotTheTerminal) {
  for (const char* command : {"PATH -v other.example", "PATH  -v   other.example "}) {
    open_with(command, note_terminal + dialogue.login());
    EXPECT_EQ(client->arguments(), (std::vector<std::string>{"-v", "other.example"}));
    EXPECT_TRUE(std::filesystem::exists(client->path("terminal")));
    start_over();
  }
  use_key();
  open_with("PATH -v", dialogue.login_with_key());
  EXPECT_EQ(client->arguments(), std::vector<std::string>{"-v"});
}

/* Only a single blank, at the very end, leaves a command one word. */
TEST_F(LoginCommand, OfOneWordWithAnotherBlankHasWordsOfItsOwn) {
  for (const char* text : {" PATH", "PATH ", "  PATH  "}) {
    EXPECT_NO_THROW(open_with(text, dialogue.login())) << "\"" << text << "\"";
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

TEST_F(LoginCommand, AnswersTheQuestionWithYesAndNothingBeforeItOrBeforeThePrompt) {
  const std::string listen = "timeout --foreground 0.2 cat >>$dir/early\n";
  open(listen + say(dialogue.introduction() + dialogue.question()) + "take yes\n" + listen +
       say(dialogue.answered() + dialogue.prompt()) + rest);
  EXPECT_EQ(client->taken("early"), "");
  EXPECT_EQ(client->taken("yes"), "yes\n");
}

TEST_F(LoginCommand, ChangesWithTheConfiguredCommandToTheArchiveDirectoryWhichMayHoldAnything) {
  const TemporaryDirectory archive;
  settings.dir = archive.path("it's $(x) \\ \"a\xc3\xa4");
  std::filesystem::create_directory(settings.dir);
  set_command("cd", "echo changed >" + archive.path("changed") + " && cd");
  open(dialogue.login());
  EXPECT_EQ(output_of(host, "printf '%s\\n' \"$PWD\""), settings.dir);
  EXPECT_EQ(read_file(archive.path("changed")), "changed\n");
}

TEST_F(LoginCommand, AMissingDirectoryIsAFailedCommandOfASessionThatIsConnected) {
  settings.dir = "/no/such";
  EXPECT_EQ(first_lines(open_error(dialogue.login()), 1),
            "  - Remote command \"cd '/no/such'\" failed with error code 2\n");
  EXPECT_EQ(status(), TAVREN_CONNECTION_OK);
  host.open_connection();
  EXPECT_EQ(client->starts(), 1);
  EXPECT_EQ(output_of(host, "echo ready"), "ready");
}

TEST_F(LoginCommand, ALoginSetsTheStatusAndOpeningAgainNeitherTouchesItNorStartsASecondClient) {
  recorded_system::set_time(1000000);
  open(dialogue.login());
  recorded_system::reset();
  tavren_connection_status_t result{};
  long when = 0;
  host.get_connection_status(result, when);
  EXPECT_EQ(result, TAVREN_CONNECTION_OK);
  EXPECT_EQ(when, 1000000);
  host.clear_connection_status();
  host.open_connection();
  EXPECT_EQ(client->starts(), 1);
  EXPECT_EQ(status(), TAVREN_CONNECTION_NONE);
}

TEST_F(LoginCommand, AFailedLoginSetsTheStatusAndOpeningAgainReturnsAtOnce) {
  open_error("exit 255");
  EXPECT_EQ(status(), TAVREN_CONNECTION_FAILED);
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

TEST_F(LoginCommand, TheShellIsSetUpLastWhenAskedFor) {
  play("umask 077; become_shell() { exec /bin/sh +i -f 2>&1; }\n" + dialogue.login());
  TavrenHost configured(true, false);
  configured.set_settings(settings.record());
  configured.enable();
  recorded_system::record_writes();
  configured.open_connection();
  const std::vector<std::string> writes = recorded_system::take_writes();
  recorded_system::reset();
  EXPECT_EQ(writes.back(), "umask 022; set +f\n");
  EXPECT_EQ(output_of(configured, "umask"), "0022");
  EXPECT_EQ(output_of(configured, "case $- in *f*) echo off;; *) echo on;; esac"), "on");
  configured.close_connection();
}

TEST_F(LoginCommand, TheShellIsLeftAloneOtherwise) {
  open("umask 077\n" + dialogue.login());
  EXPECT_EQ(output_of(host, "umask"), "0077");
}
