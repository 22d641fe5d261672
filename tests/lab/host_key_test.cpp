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
    return outcome_of_login(lab::settings_with(&Settings::host_key, setting));
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

TEST_F(HostKey, ThatTheServerPrefersOrOnlyHasIsAccepted) {
  EXPECT_EQ(outcome_with(ed25519), no_error);
  EXPECT_EQ(outcome_with(rsa), no_error);
}

/* In the type that the server prefers, in the other one that it has, and in one that it does not have. */
TEST_F(HostKey, OfAnotherHostIsRefused) {
  for (const char* type : {"ed25519", "rsa", "ecdsa"}) EXPECT_EQ(outcome_with(make_key(type)), key_mismatch) << type;
}

TEST_F(HostKey, IsAcceptedAsEitherOfTwoOfOneTypeAndRefusedWhereNeitherIsTheHosts) {
  const std::string other = make_key("ed25519");
  EXPECT_EQ(outcome_with(both(ed25519, other)), no_error);
  EXPECT_EQ(outcome_with(both(other, ed25519)), no_error);
  EXPECT_EQ(outcome_with(both(other, make_key("ed25519", "third_key"))), key_mismatch);
}

TEST_F(HostKey, IsAcceptedWhereBothOfTwoTypesAreTheHosts) {
  EXPECT_EQ(outcome_with(both(ed25519, rsa)), no_error);
  EXPECT_EQ(outcome_with(both(rsa, ed25519)), no_error);
}

TEST_F(HostKey, OfTwoTypesCountsInTheTypeThatTheServerPrefers) {
  EXPECT_EQ(outcome_with(both(make_key("rsa"), ed25519)), no_error);
  EXPECT_EQ(outcome_with(both(make_key("ed25519", "third_key"), rsa)), key_mismatch);
}

TEST_F(HostKey, OfAServerWithTwoOfOneTypeIsTheFirstAlsoBesideTheSecond) {
  const std::string second = make_key("ed25519");
  lab::run("echo HostKey $LAB/other_key >>$LAB_SSHD_CONFIG; \"$LAB_RESTART_SSHD\"");
  EXPECT_EQ(outcome_with(ed25519), no_error);
  EXPECT_EQ(outcome_with(second), key_mismatch);
  EXPECT_EQ(outcome_with(both(second, ed25519)), no_error);
}

}  // namespace
