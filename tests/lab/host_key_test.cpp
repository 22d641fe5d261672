#include <gtest/gtest.h>

#include "lab/lab.h"

namespace {

/*
 * The host has a key of each of two types, prefers Ed25519 and shows one key. Which one the client asks for follows
 * from the setting.
 */
class HostKey : public LabTest {
 protected:
  std::string outcome_with(const std::string& setting) {
    Settings settings = lab::settings();
    settings.host_key = setting;
    return error_of([&] { session(settings).open_connection(); });
  }

  static std::string make_key(const std::string& type, const std::string& name = "other_key") {
    return lab::make_key(name, "-t " + type);
  }

  /* A setting of two keys: the file that the client reads has one line for each. */
  static std::string both(const std::string& first, const std::string& second) {
    return first + "\n" + lab::value("LAB_HOST") + " " + second;
  }

  const std::string ed25519 = lab::value("LAB_HOST_KEY");
  const std::string rsa = lab::value("LAB_HOST_KEY_RSA");
};

TEST_F(HostKey, ThatTheServerPrefersIsAccepted) { EXPECT_EQ(outcome_with(ed25519), no_error); }

TEST_F(HostKey, ThatTheServerHasButDoesNotPreferIsAccepted) { EXPECT_EQ(outcome_with(rsa), no_error); }

TEST_F(HostKey, OfAnotherHostIsRefused) { EXPECT_EQ(outcome_with(make_key("ed25519")), key_mismatch); }

TEST_F(HostKey, OfAnotherHostIsRefusedInTheTypeThatTheServerDoesNotPrefer) {
  EXPECT_EQ(outcome_with(make_key("rsa")), key_mismatch);
}

TEST_F(HostKey, OfATypeThatTheServerDoesNotHaveIsRefused) { EXPECT_EQ(outcome_with(make_key("ecdsa")), key_mismatch); }

TEST_F(HostKey, IsAcceptedAsEitherOfTwoOfOneType) {
  const std::string other = make_key("ed25519");
  EXPECT_EQ(outcome_with(both(ed25519, other)), no_error);
  EXPECT_EQ(outcome_with(both(other, ed25519)), no_error);
}

TEST_F(HostKey, IsRefusedWhereNeitherOfTwoOfOneTypeIsTheHosts) {
  EXPECT_EQ(outcome_with(both(make_key("ed25519"), make_key("ed25519", "third_key"))), key_mismatch);
}

TEST_F(HostKey, IsAcceptedWhereBothOfTwoTypesAreTheHosts) {
  EXPECT_EQ(outcome_with(both(ed25519, rsa)), no_error);
  EXPECT_EQ(outcome_with(both(rsa, ed25519)), no_error);
}

TEST_F(HostKey, OfTwoTypesCountsInTheTypeThatTheServerPrefers) {
  EXPECT_EQ(outcome_with(both(make_key("rsa"), ed25519)), no_error);
  EXPECT_EQ(outcome_with(both(make_key("ed25519", "third_key"), rsa)), key_mismatch);
}

TEST_F(HostKey, OfAServerWithTwoOfOneTypeIsTheFirst) {
  const std::string second = make_key("ed25519");
  lab::run("echo HostKey $LAB/other_key >>$LAB_SSHD_CONFIG; \"$LAB_RESTART_SSHD\"");
  EXPECT_EQ(outcome_with(ed25519), no_error);
  EXPECT_EQ(outcome_with(second), key_mismatch);
}

TEST_F(HostKey, OfAServerWithTwoOfOneTypeIsAcceptedBesideTheSecond) {
  const std::string second = make_key("ed25519");
  lab::run("echo HostKey $LAB/other_key >>$LAB_SSHD_CONFIG; \"$LAB_RESTART_SSHD\"");
  EXPECT_EQ(outcome_with(both(second, ed25519)), no_error);
}

}  // namespace
