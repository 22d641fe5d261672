#ifndef TESTS_KEYS_FINGERPRINT_FIXTURE_H
#define TESTS_KEYS_FINGERPRINT_FIXTURE_H

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "lab/lab.h"
#include "support/files.h"
#include "tavren_host_util.h"
#include "tavren_share.h"

/* Fingerprints with the system's tools, or with others that a test puts into their places. */
class FingerprintTest : public LabTest {
 protected:
  /* The real key generator is back in its place for the next test. */
  ~FingerprintTest() override { lab::run("while umount -l /usr/bin/ssh-keygen 2>/dev/null; do :; done"); }

  /* Returns the fingerprint of key, or the message of the failure. */
  static std::string fingerprint(const std::string& key) {
    char text[TAVREN_FINGERPRINT_SIZE] = "";
    char error[TAVREN_MESSAGE_SIZE] = "";
    const int result = tavren_host_key_fingerprint(key.c_str(), text, error);
    EXPECT_TRUE(result == 0 || result == -1) << result;
    return result == 0 ? text : error;
  }

  static std::string make_key(const std::string& options) { return lab::make_key("key", options); }

  /* What the key generator says of the key that make_key has made. */
  static std::string listed_fingerprint() {
    lab::run("ssh-keygen -l -f $LAB/key.pub >$LAB/list");
    const std::string list = read_file(lab::value("LAB") + "/list");
    const size_t start = list.find(' ') + 1;
    return list.substr(start, list.find(' ', start) - start);
  }

  static std::string private_path(const std::string& name) { return std::string(tavren_get_tmp_dir()) + "/" + name; }

  /* Puts a shell script into the key generator's place. */
  static void use_key_generator(const std::string& script) {
    write_file(lab::value("LAB") + "/generator", "#!/bin/sh\n" + script + "\n");
    lab::change_machine("chmod 755 $LAB/generator; mount --bind $LAB/generator /usr/bin/ssh-keygen");
  }

  /* Returns the names of the files in the private directory, but for its lock. */
  static std::string files_left() {
    std::string names;
    for (const auto& entry : std::filesystem::directory_iterator(tavren_get_tmp_dir())) {
      if (entry.path().filename() != ".lock") names += entry.path().filename().string() + " ";
    }
    return names;
  }
};

#endif
