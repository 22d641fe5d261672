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

  std::string log_in_and_work() {
    return error_of([this] {
      TavrenHost& host = connected_session();
      host.run_and_expect_line("echo works", "works");
      host.send_data("x", 1, "file", 0644);
    });
  }
};

TEST_F(FarShell, ThatPrintsNothingWorks) {
  use_bash("");
  EXPECT_EQ(log_in_and_work(), no_error);
}

TEST_F(FarShell, ThatPrintsAWordWithoutANewlineWorks) {
  use_bash("printf x; printf y >&2\n");
  EXPECT_EQ(log_in_and_work(), no_error);
}

TEST_F(FarShell, ThatPrintsAMebibyteOfLinesWorks) {
  use_bash("yes 'some line of a talkative start-up file' | head -c 1048576\necho\n");
  EXPECT_EQ(log_in_and_work(), no_error);
}

TEST_F(FarShell, ThatPrintsAMebibyteWithoutANewlineIsANamedError) {
  use_bash("head -c 1048576 /dev/zero | tr '\\0' x\n");
  EXPECT_THAT(log_in_and_work(), HasSubstr("produced excessive output"));
}

TEST_F(FarShell, ThatPrintsTheMarkersOfCommandsAndTransfersWorks) {
  use_bash("echo '** RUNNING cd '\\''/home/archiver/archive'\\'; echo '** EXIT CODE: 7'; echo '_TAV/REN_ BEGIN'\n");
  EXPECT_EQ(log_in_and_work(), no_error);
}

TEST_F(FarShell, OfTheCFamilyWorks) {
  use_shell("/bin/csh");
  EXPECT_EQ(log_in_and_work(), no_error);
}

TEST_F(FarShell, OfTheCFamilyWhoseStartUpFilePrintsWorks) {
  write_file("/home/archiver/.cshrc", "echo -n x\necho '** EXIT CODE: 7'\ntouch ~/started\n");
  use_shell("/bin/csh");
  EXPECT_EQ(log_in_and_work(), no_error);
  EXPECT_EQ(access("/home/archiver/started", F_OK), 0);
}

TEST_F(FarShell, ThatIsNoRelativeOfTheOthersWorks) {
  use_shell("/usr/bin/fish");
  EXPECT_EQ(log_in_and_work(), no_error);
}

TEST_F(FarShell, ThatIsNoRelativeOfTheOthersAndPrintsAtItsStartWorks) {
  lab::run("mkdir -p /home/archiver/.config/fish && chown -R archiver /home/archiver/.config");
  write_file("/home/archiver/.config/fish/config.fish", "echo -n x\necho '** EXIT CODE: 7'\ntouch ~/started\n");
  use_shell("/usr/bin/fish");
  EXPECT_EQ(log_in_and_work(), no_error);
  EXPECT_EQ(access("/home/archiver/started", F_OK), 0);
}

TEST_F(FarShell, WhoseEchoLeavesBackslashesAloneRunsCommandsWithThem) {
  std::string message;
  TavrenHost::set_cmd("sh", "/bin/bash", message);
  TavrenHost& host = connected_session();
  host.run_and_expect_line("printf 'a\\\\b\\n'", "a\\b");
  TavrenHost::reset_cmd_map();
}

TEST_F(FarShell, WhoseEchoInterpretsBackslashesRunsCommandsWithThem) {
  TavrenHost& host = connected_session();
  host.run_and_expect_line("printf 'a\\\\b\\n'", "a\\b");
}

}  // namespace
