#include <gtest/gtest.h>
#include <stdlib.h>

#include <string>

#include "keys/fingerprint_fixture.h"

namespace {

class FingerprintOfType : public FingerprintTest, public testing::WithParamInterface<const char*> {};

TEST_P(FingerprintOfType, IsWhatTheKeyGeneratorSays) {
  const std::string key = make_key(GetParam());
  EXPECT_EQ(fingerprint(key), listed_fingerprint());
}

INSTANTIATE_TEST_SUITE_P(Types, FingerprintOfType,
                         testing::Values("-t ed25519", "-t ecdsa -b 256", "-t ecdsa -b 384", "-t ecdsa -b 521",
                                         "-t rsa -b 2048", "-t rsa -b 4096"));

TEST_F(FingerprintTest, OfA8192BitKeyIsWhatTheKeyGeneratorSays) {
  const std::string key = lab::take_long_key("key");
  EXPECT_EQ(fingerprint(key), listed_fingerprint());
}

TEST_F(FingerprintTest, OfALineWithANewlineIsTheSame) {
  const std::string key = make_key("-t ed25519");
  EXPECT_EQ(fingerprint(key + "\n"), listed_fingerprint());
}

TEST_F(FingerprintTest, OfAKeyWithACommentOfAMegabyteIsTheSame) {
  const std::string key = make_key("-t ed25519");
  EXPECT_EQ(fingerprint(key + " " + std::string(1 << 20, 'x')), listed_fingerprint());
}

TEST_F(FingerprintTest, OfSeveralKeysIsThatOfTheFirst) {
  const std::string key = make_key("-t ed25519");
  EXPECT_EQ(fingerprint(key + "\n" + lab::value("LAB_HOST_KEY") + "\n"), listed_fingerprint());
}

TEST_F(FingerprintTest, LeavesNoFiles) {
  fingerprint(make_key("-t ed25519"));
  EXPECT_EQ(files_left(), "");
}

TEST_F(FingerprintTest, IsNotMisledByTheFilesThatAnEarlierOneLeft) {
  write_file(private_path("host_key_error"), "");
  write_file(private_path("host_key_fingerprint"), "old\n");
  const std::string key = make_key("-t ed25519");
  EXPECT_EQ(fingerprint(key), listed_fingerprint());
}

TEST_F(FingerprintTest, LeavesTheErrorBufferAlone) {
  char text[TAVREN_FINGERPRINT_SIZE];
  char error[TAVREN_MESSAGE_SIZE] = "untouched";
  EXPECT_EQ(tavren_host_key_fingerprint(lab::value("LAB_HOST_KEY").c_str(), text, error), 0);
  EXPECT_STREQ(error, "untouched");
}

TEST_F(FingerprintTest, HandsTheEnvironmentToItsTools) {
  setenv("MARK", "from-the-environment", 1);
  use_key_generator("echo x $MARK");
  EXPECT_EQ(fingerprint("key"), "from-the-environment");
}

TEST_F(FingerprintTest, OfMoreThan63CharactersIsCut) {
  use_key_generator("echo x " + std::string(64, 'y'));
  EXPECT_EQ(fingerprint("key"), std::string(63, 'y'));
}

}  // namespace
