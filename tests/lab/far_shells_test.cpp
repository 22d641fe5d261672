#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "lab/lab.h"
#include "support/files.h"

using testing::HasSubstr;

namespace {

/* The account's login shell and what its start-up file prints are the archive host's business. */
class FarShell : public LabTest {
 protected:
  /* Makes bash, which reads its start-up file under sshd, the login shell. */
  static void use_bash(const std::string& startup) {
    write_file("/home/archiver/.bashrc", startup);
    use_shell("/bin/bash");
  }

  static void use_shell(const std::string& path) {
    lab::run("sed -i '/^archiver:/s#[^:]*$#" + path + "#' /etc/passwd");
  }

  /* Expects a login shell to work, and again when it has a start-up file that prints. */
  void expect_work_with(const std::string& shell, const std::string& startup_file) {
    use_shell(shell);
    EXPECT_EQ(log_in_and_work(), no_error);
    write_file(startup_file, "echo -n x\necho '** EXIT CODE: 7'\ntouch ~/started\n");
    EXPECT_EQ(log_in_and_work(), no_error);
    EXPECT_EQ(access("/home/archiver/started", F_OK), 0);
  }

  std::string log_in_and_work() {
    return error_of([this] {
      TavrenHost& host = connected_session();
      host.run_and_expect_line("echo works", "works");
      host.send_data("x", 1, "file", 0644);
    });
  }
};

/* Nothing, words without a newline, a mebibyte of lines, the markers of commands and transfers. */
TEST_F(FarShell, WorksWhateverLinesItPrintsAtItsStart) {
  for (const char* startup :
       {"", "printf x; printf y >&2\n", "yes 'some line of a talkative start-up file' | head -c 1048576\necho\n",
        "echo '** RUNNING cd '\\''/home/archiver/archive'\\'; echo '** EXIT CODE: 7'; echo '_TAV/REN_ BEGIN'\n"}) {
    use_bash(startup);
    EXPECT_EQ(log_in_and_work(), no_error) << startup;
  }
}

TEST_F(FarShell, ThatPrintsAMebibyteWithoutANewlineIsANamedError) {
  use_bash("head -c 1048576 /dev/zero | tr '\\0' x\n");
  EXPECT_THAT(log_in_and_work(), HasSubstr("produced excessive output"));
}

TEST_F(FarShell, OfTheCFamilyWorksAlsoWhenItsStartUpFilePrints) {
  expect_work_with("/bin/csh", "/home/archiver/.cshrc");
}

TEST_F(FarShell, ThatIsNoRelativeOfTheOthersWorksAlsoWhenItsStartUpFilePrints) {
  lab::run("mkdir -p /home/archiver/.config/fish && chown -R archiver /home/archiver/.config");
  expect_work_with("/usr/bin/fish", "/home/archiver/.config/fish/config.fish");
}

TEST_F(FarShell, WhoseEchoInterpretsBackslashesOrNotRunsCommandsWithThem) {
  for (const char* shell : {"/bin/sh", "/bin/bash"}) {
    std::string message;
    TavrenHost::set_cmd("sh", shell, message);
    connected_session().run_and_expect_line("printf 'a\\\\b\\n'", "a\\b");
  }
  TavrenHost::reset_cmd_map();
}

}  // namespace
