#include <gtest/gtest.h>

#include "lab/lab.h"
#include "support/files.h"

namespace {

constexpr char accepted[] = "no TavrenError was thrown";
constexpr char mismatch[] =
    "4\n  - Failed to start secure shell session on localhost\n"
    "  - Failed to authenticate the remote host (localhost)\n"
    "  - The public host key setting does not match the remote host's private key\n";

/* The host has a key of each of two types, prefers Ed25519 and shows one key. Which one the client asks for follows
 * from the setting. */
class HostKey : public LabTest {
 protected:
  std::string outcome_with(const std::string& setting) {
    Settings settings = lab::settings();
    settings.host_key = setting;
    return error_of([&] { session(settings).open_connection(); });
  }

  /* Makes the file name and returns the public key: type, blank, encoded key. */
  static std::string make_key(const std::string& type, const std::string& name = "other_key") {
    lab::run("ssh-keygen -q -t " + type + " -N '' -C '' -f $LAB/" + name);
    lab::run("cut -d' ' -f1,2 $LAB/" + name + ".pub | tr -d '\\n' >$LAB/" + name + ".setting");
    return read_file(lab::value("LAB") + "/" + name + ".setting");
  }

  /* A setting of two keys: the file that the client reads has one line for each. */
  static std::string both(const std::string& first, const std::string& second) {
    return first + "\n" + lab::value("LAB_HOST") + " " + second;
  }

  const std::string ed25519 = lab::value("LAB_HOST_KEY");
  const std::string rsa = lab::value("LAB_HOST_KEY_RSA");
};

TEST_F(HostKey, ThatTheServerPrefersIsAccepted) { EXPECT_EQ(outcome_with(ed25519), accepted); }

TEST_F(HostKey, ThatTheServerHasButDoesNotPreferIsAccepted) { EXPECT_EQ(outcome_with(rsa), accepted); }

TEST_F(HostKey, OfAnotherHostIsRefused) { EXPECT_EQ(outcome_with(make_key("ed25519")), mismatch); }

TEST_F(HostKey, OfAnotherHostIsRefusedInTheTypeThatTheServerDoesNotPrefer) {
  EXPECT_EQ(outcome_with(make_key("rsa")), mismatch);
}

TEST_F(HostKey, OfATypeThatTheServerDoesNotHaveIsRefused) { EXPECT_EQ(outcome_with(make_key("ecdsa")), mismatch); }

TEST_F(HostKey, IsAcceptedAsEitherOfTwoOfOneType) {
  const std::string other = make_key("ed25519");
  EXPECT_EQ(outcome_with(both(ed25519, other)), accepted);
  EXPECT_EQ(outcome_with(both(other, ed25519)), accepted);
}

TEST_F(HostKey, IsRefusedWhereNeitherOfTwoOfOneTypeIsTheHosts) {
  EXPECT_EQ(outcome_with(both(make_key("ed25519"), make_key("ed25519", "third_key"))), mismatch);
}

TEST_F(HostKey, IsAcceptedWhereBothOfTwoTypesAreTheHosts) {
  EXPECT_EQ(outcome_with(both(ed25519, rsa)), accepted);
  EXPECT_EQ(outcome_with(both(rsa, ed25519)), accepted);
}

TEST_F(HostKey, OfTwoTypesCountsInTheTypeThatTheServerPrefers) {
  EXPECT_EQ(outcome_with(both(make_key("rsa"), ed25519)), accepted);
  EXPECT_EQ(outcome_with(both(make_key("ed25519", "third_key"), rsa)), mismatch);
}

TEST_F(HostKey, OfAServerWithTwoOfOneTypeIsTheFirst) {
  const std::string second = make_key("ed25519");
  lab::run("echo HostKey $LAB/other_key >>$LAB_SSHD_CONFIG; \"$LAB_RESTART_SSHD\"");
  EXPECT_EQ(outcome_with(ed25519), accepted);
  EXPECT_EQ(outcome_with(second), mismatch);
}

TEST_F(HostKey, OfAServerWithTwoOfOneTypeIsAcceptedBesideTheSecond) {
  const std::string second = make_key("ed25519");
  lab::run("echo HostKey $LAB/other_key >>$LAB_SSHD_CONFIG; \"$LAB_RESTART_SSHD\"");
  EXPECT_EQ(outcome_with(both(second, ed25519)), accepted);
}

}  // namespace
