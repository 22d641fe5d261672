#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "lab/tavren_send_fixture.h"

using testing::HasSubstr;
using testing::StartsWith;

namespace {

TEST_F(TavrenSend, SendsEachFilePrintsALineForEachAndLeavesNoChildAndNoFileBehind) {
  write_file(lab::value("LAB") + "/a.log", "first\n");
  write_file(lab::value("LAB") + "/b.log", "");
  EXPECT_EQ(send("-k $LAB/host_key.pub " + target + "$LAB/a.log $LAB/b.log"), 0) << err();
  EXPECT_EQ(out(), "a.log: 6 bytes sent\nb.log: 0 bytes sent\n");
  EXPECT_EQ(err(), "");
  EXPECT_EQ(read_file(lab::archived("a.log")), "first\n");
  EXPECT_EQ(read_file(lab::archived("b.log")), "");
  lab::run("for i in $(seq 500); do pgrep -x ssh >/dev/null || exit 0; sleep 0.01; done; exit 1");
  lab::run("! ls $LAB/tavren_tmp | grep -q tavren_send");
}

TEST_F(TavrenSend, RefusesAnotherKeyThanTheOneGivenAndReportsAWrongPassword) {
  lab::make_key("other_key", "-t ed25519");
  EXPECT_EQ(send("-k $LAB/other_key.pub " + target + "$LAB/sshd_config"), 1);
  EXPECT_THAT(err(), HasSubstr("The public host key setting does not match the remote host's private key"));
  EXPECT_EQ(shell(TAVREN_SEND " -p 3 -k $LAB/host_key.pub " + target + "$LAB/sshd_config 3<$LAB/host_key.pub"), 1);
  EXPECT_EQ(err(),
            "tavren_send: login failed:\n  - Failed to start secure shell session on localhost\n"
            "  - Secure shell login failed: permission denied\n");
}

TEST_F(TavrenSend, ShowsABarOnATerminal) {
  write_file(lab::value("LAB") + "/a.log", std::string(100000, 'x'));
  EXPECT_EQ(shell("script -qec '" TAVREN_SEND " -p 3 -k $LAB/host_key.pub " + target +
                  "$LAB/a.log 3<$LAB/password' /dev/null"),
            0);
  EXPECT_THAT(out(), HasSubstr("a.log                    [##############################] 100% "));
}

TEST_F(TavrenSend, AsksForThePasswordWithoutShowingIt) {
  write_file(lab::value("LAB") + "/a.log", "first\n");
  EXPECT_EQ(shell("{ while ! grep -q Password: $LAB/typescript 2>/dev/null; do sleep 0.05; done; sleep 0.2; "
                  "cat $LAB/password; sleep 5; } | script -qefc '" TAVREN_SEND " -k $LAB/host_key.pub " +
                  target + "$LAB/a.log' $LAB/typescript"),
            0);
  EXPECT_THAT(out(), HasSubstr("Password: "));
  EXPECT_THAT(out(), testing::Not(HasSubstr(lab::value("LAB_PASSWORD"))));
  EXPECT_EQ(read_file(lab::archived("a.log")), "first\n");
}

TEST_F(TavrenSend, GoesOnAfterAFileThatFailsAndSaysSoInItsStatus) {
  write_file(lab::value("LAB") + "/a.log", "first\n");
  lab::run(
      "mkdir $LAB_ARCHIVE/b.log; cp $LAB/a.log $LAB/b.log; cp $LAB/a.log $LAB/c.log; chmod 555 $LAB_ARCHIVE/b.log");
  EXPECT_EQ(send("-k $LAB/host_key.pub " + target + "$LAB/missing $LAB/b.log /dev/null $LAB/c.log"), 1);
  EXPECT_EQ(out(), "c.log: 6 bytes sent\n");
  EXPECT_THAT(err(), HasSubstr("/missing: No such file or directory\n"));
  EXPECT_THAT(err(), HasSubstr("tavren_send: b.log failed:\n  - Remote command \"scp -q -t 'b.log'\" failed"));
  EXPECT_THAT(err(), HasSubstr("tavren_send: /dev/null: not a regular file\n"));
}

TEST_F(TavrenSend, RefusesAFileOfFourGibibytes) {
  lab::run("truncate -s 4G $LAB/large.log");
  EXPECT_EQ(send("-k $LAB/host_key.pub " + target + "$LAB/large.log"), 1);
  EXPECT_THAT(err(), HasSubstr("large.log: too large: a transfer carries less than 4 GiB\n"));
}

TEST_F(TavrenSend, ExplainsItsUsageAndRefusesABadTarget) {
  const auto usage = StartsWith("Usage: tavren_send [options] user@host:directory FILE...\n");
  EXPECT_EQ(shell(TAVREN_SEND), 2);
  EXPECT_THAT(err(), usage);
  EXPECT_EQ(shell(TAVREN_SEND " --help"), 0);
  EXPECT_THAT(out(), usage);
  EXPECT_EQ(send("user@host:-x $LAB/sshd_config"), 2);
  EXPECT_EQ(err(), "tavren_send: The archive directory name may not start with '-' or '~'.\n");
}

}  // namespace
