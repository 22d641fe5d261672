#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <string>
#include <utility>

#include "keys/fingerprint_fixture.h"
#include "support/real_function.h"
#include "support/run_in_child.h"

namespace {

/* Called before the shell is, if set. */
std::function<void()> before_the_shell;

}  // namespace

STANDS_BEFORE_THE_REAL_ONE int system(const char* command) {
  if (before_the_shell) std::exchange(before_the_shell, nullptr)();
  return real<int(const char*)>("system")(command);
}

namespace {

constexpr char invalid[] = "The specified public host key is invalid or incomplete.";
constexpr char internal[] = "Internal error: cannot generate host key fingerprint.";

class FingerprintFailure : public FingerprintTest {};
class FingerprintOfBadKey : public FingerprintFailure {};

TEST_F(FingerprintOfBadKey, IsInvalidAndLeavesNoFiles) {
  const std::string rsa = lab::value("LAB_HOST_KEY_RSA");
  const std::string keys[] = {"",
                              "\n",
                              "ssh-ed25519",
                              "ssh-ed25519 ",
                              "ssh-ed25519 AAAA",
                              "ssh-ed25519 AAAAC3NzaC1lZDI1NTE5AAAAIA",
                              "no-such-type AAAA",
                              "not a key",
                              rsa.substr(0, rsa.size() - 8),
                              "ssh-rsa " + std::string(1 << 20, 'A')};
  for (const std::string& key : keys) {
    SCOPED_TRACE(key.substr(0, 50));
    EXPECT_EQ(fingerprint(key), invalid);
    EXPECT_EQ(files_left(), "");
  }
}

TEST_F(FingerprintFailure, OfShellCharactersRunsNothing) {
  const std::string witness = lab::value("LAB") + "/witness";
  for (const std::string& text : {"$(touch " + witness + ")", "`touch " + witness + "`", "'; touch " + witness + " #",
                                  "\n touch " + witness + "\n", "| touch " + witness}) {
    EXPECT_EQ(fingerprint(text), invalid) << text;
  }
  EXPECT_FALSE(std::filesystem::exists(witness));
}

/* Everybody may write in the directory: what is planted there leads nowhere. */
class FingerprintBesideAPlantedLink : public FingerprintFailure {
 protected:
  /* Puts a link to the precious file in the place of name once the old results have been taken away. */
  void plant(const std::string& name) const {
    before_the_shell = [=] { std::filesystem::create_symlink(precious, private_path(name)); };
  }

  void expect_precious_untouched() const {
    EXPECT_EQ(read_file(precious), "precious\n");
    EXPECT_EQ(std::filesystem::last_write_time(precious), time_of_writing);
  }

  const std::string precious = lab::value("LAB") + "/precious";
  const std::filesystem::file_time_type time_of_writing = [this] {
    write_file(precious, "precious\n");
    return std::filesystem::last_write_time(precious);
  }();
};

TEST_F(FingerprintBesideAPlantedLink, WritesTheKeyToAFileOfItsOwn) {
  std::filesystem::create_symlink(precious, private_path("host_key"));
  const std::string key = make_key("-t ed25519");
  EXPECT_EQ(fingerprint(key), listed_fingerprint());
  expect_precious_untouched();
}

TEST_F(FingerprintBesideAPlantedLink, WritesNeitherAFingerprintNorAFailureThroughItAndMakesNoFile) {
  const std::string key = make_key("-t ed25519");
  plant("host_key_fingerprint");
  EXPECT_EQ(fingerprint(key), internal);
  plant("host_key_error");
  EXPECT_EQ(fingerprint("key"), invalid);
  expect_precious_untouched();
  for (const char* name : {"host_key_fingerprint", "host_key_error"}) {
    std::filesystem::remove(precious);
    plant(name);
    fingerprint("key");
    EXPECT_FALSE(std::filesystem::exists(precious)) << name;
  }
}

TEST_F(FingerprintBesideAPlantedLink, ReadsNoFingerprintThroughIt) {
  /* Planted when the file is there: before, the shell would not have made it. */
  const std::string file = private_path("host_key_fingerprint");
  use_key_generator("while [ ! -e " + file + " ]; do sleep 0.01; done; ln -sf " + precious + " " + file +
                    "; echo 256 SHA256:x");
  EXPECT_EQ(fingerprint("key"),
            ("Failed to open " + private_path("host_key_fingerprint") + " (errno=40).").substr(0, 127));
}

TEST_F(FingerprintFailure, WithoutAwkIsAnInternalErrorAndLeavesNoFile) {
  lab::change_machine("rm /etc/alternatives/awk"); /* a link to it that this machine's /etc has to itself */
  EXPECT_STREQ(tavren_get_awk_path(), "awk");
  for (const std::string& key : {lab::value("LAB_HOST_KEY"), std::string("not a key")}) {
    EXPECT_EQ(fingerprint(key), internal);
    EXPECT_EQ(files_left(), "");
  }
}

TEST_F(FingerprintFailure, WithoutAKeyGeneratorIsAnInvalidKey) {
  write_file(lab::value("LAB") + "/nothing", "");
  lab::change_machine("mount --bind $LAB/nothing /usr/bin/ssh-keygen");
  EXPECT_STREQ(tavren_get_ssh_keygen_path(), "ssh-keygen");
  EXPECT_EQ(fingerprint(lab::value("LAB_HOST_KEY")), invalid);
  EXPECT_EQ(files_left(), "");
}

TEST_F(FingerprintFailure, OfAKeyGeneratorThatPrintsNothingIsAFileThatCannotBeRead) {
  use_key_generator("exit 0");
  const std::string message = fingerprint(lab::value("LAB_HOST_KEY"));
  const std::string expected = "Failed to open " + private_path("host_key_fingerprint") + " (errno=";
  EXPECT_EQ(message.substr(0, expected.size()), expected);
  EXPECT_EQ(message.substr(message.size() - 2), ").");
  EXPECT_EQ(files_left(), "");
}

/* The reason is that of the reading: what went before it left another one. */
TEST_F(FingerprintFailure, OfAFingerprintThatCannotBeReadNamesFileAndReason) {
  const std::string file = private_path("host_key_fingerprint");
  use_key_generator("while [ ! -e " + file + " ]; do sleep 0.01; done; rm " + file + "; mkdir " + file);
  EXPECT_EQ(fingerprint("key"), "Failed to open " + file + " (errno=21).");
}

TEST_F(FingerprintFailure, OfAKeyThatCannotBeWrittenNamesFileAndReasonAndLeavesTheOtherFilesAlone) {
  std::filesystem::create_directory(private_path("host_key"));
  write_file(private_path("host_key_error"), "an old error");
  write_file(private_path("host_key_fingerprint"), "an old fingerprint");
  EXPECT_EQ(fingerprint("key"), "Cannot create file '" + private_path("host_key") + "': errno=17.");
  EXPECT_EQ(read_file(private_path("host_key_error")), "an old error");
  EXPECT_EQ(read_file(private_path("host_key_fingerprint")), "an old fingerprint");
}

TEST_F(FingerprintFailure, WithoutRoomNamesTheKeysFileAndReasonOrIsAnInternalError) {
  lab::change_machine(std::string("mount -t tmpfs -o size=8192 tmpfs ") + tavren_get_tmp_dir());
  EXPECT_EQ(fingerprint("ssh-rsa " + std::string(100000, 'A')),
            "Cannot create file '" + private_path("host_key") + "': errno=28.");
  std::filesystem::remove(private_path("host_key"));
  lab::run("head -c 4096 /dev/zero >" + private_path("filler"));
  EXPECT_EQ(fingerprint(lab::value("LAB_HOST_KEY")), internal);
  EXPECT_EQ(files_left(), "filler ");
}

TEST_F(FingerprintFailure, MessageIsCutToItsBuffer) {
  tavren_cleanup_tmp_dir();
  char message[TAVREN_MESSAGE_SIZE] = "";
  const std::string name(150, 'n');
  ASSERT_EQ(tavren_setup_tmp_dir(name.c_str(), message), 0) << message;
  std::filesystem::create_directory(private_path("host_key"));
  EXPECT_EQ(fingerprint("key"), ("Cannot create file '" + private_path("host_key")).substr(0, TAVREN_MESSAGE_SIZE - 1));
}

TEST_F(FingerprintFailure, WithoutAPrivateDirectoryIsAFailedAssertion) {
  tavren_cleanup_tmp_dir();
  expect_assertion("tavren_host_util", "tavren_get_tmp_dir() != NULL", [] { fingerprint("key"); });
}

}  // namespace
