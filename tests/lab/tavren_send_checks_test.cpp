#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "lab/tavren_send_fixture.h"

using testing::HasSubstr;

namespace {

constexpr char question[] = "Is this the host's key (yes/no)? ";

/* What the example program asks and tries before it sends anything. */
class TavrenSendChecks : public TavrenSend {
 protected:
  TavrenSendChecks() {
    write_file(lab::value("LAB") + "/a.log", "first\n");
    become("CHASSIS-7");
  }

  void become(const std::string& chassis) {
    lab::run("export HODRA_DIR=$LAB/hodra; " HODRA_PUT " 1 setup_system_id_info 1024 40=" + chassis);
  }

  /* Runs the program with answer as what the user says to its question. */
  int answer(const std::string& text, const std::string& arguments) {
    return shell("printf '" + text + "' | HODRA_DIR=$LAB/hodra " TAVREN_SEND " -p 3 " + arguments + " 3<$LAB/password");
  }

  static std::string fingerprint(const std::string& public_key) {
    lab::run("ssh-keygen -l -f " + public_key + " | cut -d' ' -f2 | tr -d '\\n' >$LAB/fingerprint");
    return read_file(lab::value("LAB") + "/fingerprint");
  }

  static std::string shown_key() {
    return "localhost shows a key of type ssh-ed25519 with the fingerprint\n  " + fingerprint("$LAB/host_key.pub") +
           "\n";
  }
};

TEST_F(TavrenSendChecks, ShowsTheHostsKeyAndSendsWhenItIsConfirmed) {
  EXPECT_EQ(answer("yes\\n", target + "$LAB/a.log"), 0) << err();
  EXPECT_EQ(out(), shown_key() + question + "\na.log: 6 bytes sent\n");
  EXPECT_EQ(read_file(lab::archived("a.log")), "first\n");
}

/* The end of the input confirms nothing. */
TEST_F(TavrenSendChecks, SendsNothingWhenTheKeyIsNotConfirmed) {
  for (const char* said : {"no\\n", ""}) {
    EXPECT_EQ(answer(said, target + "$LAB/a.log"), 1);
    EXPECT_EQ(err(), "tavren_send: the host's key was not confirmed\n");
    lab::run("[ -z \"$(ls -A $LAB_ARCHIVE)\" ]");
  }
}

TEST_F(TavrenSendChecks, ConfirmsTheKeyOnItsUsersWordAndShowsIt) {
  EXPECT_EQ(answer("", "--yes " + target + "$LAB/a.log"), 0) << err();
  EXPECT_EQ(out(), shown_key() + question + "yes\na.log: 6 bytes sent\n");
}

/* The host shows another key to the login than the one that was confirmed. */
TEST_F(TavrenSendChecks, PinsTheConfirmedKey) {
  lab::run(
      "ssh-keygen -q -t ed25519 -N '' -f $LAB/other_key; sed \"s|$LAB/host_key\\$|$LAB/other_key|\" "
      "$LAB/sshd_config >$LAB/other_config");
  EXPECT_EQ(shell("{ while ! grep -q 'Is this' $LAB/out; do sleep 0.05; done; cp $LAB/other_config $LAB/sshd_config; "
                  "$LAB_RESTART_SSHD; echo yes; } | " TAVREN_SEND " -p 3 " +
                  target + "$LAB/a.log 3<$LAB/password"),
            1);
  EXPECT_THAT(err(), HasSubstr("The public host key setting does not match the remote host's private key"));
}

TEST_F(TavrenSendChecks, SaysWhyTheKeyCannotBeFetched) {
  lab::stop_sshd();
  EXPECT_EQ(answer("", "--yes " + target + "$LAB/a.log"), 1);
  EXPECT_THAT(err(), HasSubstr("tavren_send: fetching the host's key failed:\n  - Program exited unexpectedly"));
  EXPECT_THAT(err(), HasSubstr("Connection refused"));
}

TEST_F(TavrenSendChecks, TestsTheHostAndClaimsTheDirectoryAndSendsAfterThat) {
  const std::string claimed = "localhost:" + lab::value("LAB_ARCHIVE") + " is tested and claimed for this chassis\n";
  EXPECT_EQ(answer("", "--test -k $LAB/host_key.pub " + target), 0) << err();
  EXPECT_EQ(out(), claimed);
  lab::run("[ \"$(ls -A $LAB_ARCHIVE)\" = .chassis.CHASSIS-7 ]");
  EXPECT_EQ(answer("", "--test -k $LAB/host_key.pub " + target + "$LAB/a.log"), 0) << err();
  EXPECT_EQ(out(), claimed + "a.log: 6 bytes sent\n");
}

TEST_F(TavrenSendChecks, RefusesTheDirectoryOfAnotherChassis) {
  lab::run("touch $LAB_ARCHIVE/.chassis.CHASSIS-8");
  EXPECT_EQ(answer("", "--test -k $LAB/host_key.pub " + target + "$LAB/a.log"), 1);
  EXPECT_EQ(err(),
            "tavren_send: the test of the host failed:\n"
            "  - Another QRV chassis is already using the specified archive directory (" +
                lab::value("LAB_ARCHIVE") +
                ")\n"
                "  - Remote command \"echo .chassis.*\" produced incorrect output: 1 line(s) of output\n"
                "  - Command output: \".chassis.CHASSIS-8\"\n"
                "Give this chassis a directory of its own. If the other chassis is gone, remove its .chassis file "
                "there.\n");
  lab::run("[ ! -e $LAB_ARCHIVE/a.log ]");
}

TEST_F(TavrenSendChecks, SaysWhatToDoWhenTheUserMayNotWriteThere) {
  lab::run("chmod 555 $LAB_ARCHIVE");
  EXPECT_EQ(answer("", "--test -k $LAB/host_key.pub " + target), 1);
  EXPECT_THAT(err(), HasSubstr("Permission denied\"\nLet the user write into that directory, or name another one."));
}

/* This takes the library's time-out of a minute. */
TEST_F(TavrenSendChecks, ReportsAHostThatStopsTakingDataAndSendsNoMore) {
  lab::run("truncate -s 1G $LAB/large.log");
  EXPECT_EQ(
      shell("{ until [ -s $LAB_ARCHIVE/large.log ]; do sleep 0.01; done; pkill -STOP -u $LAB_USER; } & " TAVREN_SEND
            " -p 3 -k $LAB/host_key.pub " +
            target + "$LAB/large.log 3<$LAB/password"),
      1);
  EXPECT_EQ(err(), "tavren_send: large.log failed:\n  - The host does not answer\n");
}

TEST_F(TavrenSendChecks, SaysWhatToDoWhenThePasswordIsWrong) {
  EXPECT_EQ(shell(TAVREN_SEND " --test -p 3 -k $LAB/host_key.pub " + target + " 3<$LAB/host_key.pub"), 1);
  EXPECT_THAT(err(), HasSubstr("permission denied\nCheck the user's name and the password.\n"));
}

TEST_F(TavrenSendChecks, ReportsADatabaseThatDoesNotSayWhichChassisThisIs) {
  lab::run("rm -r $LAB/hodra");
  EXPECT_EQ(answer("", "--test -k $LAB/host_key.pub " + target), 1);
  EXPECT_THAT(err(), HasSubstr("System call \"create_chassis_file->open_conf_db\" failed with error code 19\n"));
}

TEST_F(TavrenSendChecks, ReadsAnswerAndPasswordFromOneInput) {
  EXPECT_EQ(shell("printf 'yes\\n%s\\n' \"$LAB_PASSWORD\" | " TAVREN_SEND " -p 0 " + target + "$LAB/a.log"), 0)
      << err();
  EXPECT_EQ(read_file(lab::archived("a.log")), "first\n");
}

TEST_F(TavrenSendChecks, RefusesADescriptorWithoutAPasswordAndAKeyFileWithoutAKey) {
  EXPECT_EQ(shell(TAVREN_SEND " -p 3 -k $LAB/host_key.pub " + target + "$LAB/a.log 3</dev/null"), 1);
  EXPECT_EQ(err(), "tavren_send: cannot read the password\n");
  EXPECT_EQ(answer("", "-k /dev/null " + target + "$LAB/a.log"), 1);
  EXPECT_EQ(err(), "tavren_send: /dev/null: cannot read a host key\n");
}

}  // namespace
