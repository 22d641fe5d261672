#include <gtest/gtest.h>
#include <stdlib.h>

#include <string>

#include "keys/fingerprint_fixture.h"

namespace {

class FingerprintOfType : public FingerprintTest {};

TEST_F(FingerprintOfType, IsWhatTheKeyGeneratorSays) {
  for (const char* type :
       {"-t ed25519", "-t ecdsa -b 256", "-t ecdsa -b 384", "-t ecdsa -b 521", "-t rsa -b 2048", "-t rsa -b 4096"}) {
    const std::string key = make_key(type);
    EXPECT_EQ(fingerprint(key), listed_fingerprint()) << type;
  }
  const std::string key = lab::take_long_key("key");
  EXPECT_EQ(fingerprint(key), listed_fingerprint());
}

TEST_F(FingerprintTest, IsThatOfTheFirstKeyWithoutItsNewlineAndComment) {
  const std::string key = make_key("-t ed25519");
  for (const std::string& behind :
       {std::string("\n"), " " + std::string(1 << 20, 'x'), "\n" + lab::value("LAB_HOST_KEY") + "\n"}) {
    EXPECT_EQ(fingerprint(key + behind), listed_fingerprint());
  }
}

TEST_F(FingerprintTest, IsNotMisledByTheFilesThatAnEarlierOneLeftAndLeavesNeitherFilesNorAnError) {
  write_file(private_path("host_key_error"), "");
  write_file(private_path("host_key_fingerprint"), "old\n");
  const std::string key = make_key("-t ed25519");
  char text[TAVREN_FINGERPRINT_SIZE];
  char error[TAVREN_MESSAGE_SIZE] = "untouched";
  EXPECT_EQ(tavren_host_key_fingerprint(key.c_str(), text, error), 0);
  EXPECT_EQ(text, listed_fingerprint());
  EXPECT_STREQ(error, "untouched");
  EXPECT_EQ(files_left(), "");
}

TEST_F(FingerprintTest, HandsTheEnvironmentToItsToolsAndIsCutTo63Characters) {
  setenv("MARK", "from-the-environment", 1);
  use_key_generator("echo x $MARK");
  EXPECT_EQ(fingerprint("key"), "from-the-environment");
  use_key_generator("echo x " + std::string(64, 'y'));
  EXPECT_EQ(fingerprint("key"), std::string(63, 'y'));
}

}  // namespace
