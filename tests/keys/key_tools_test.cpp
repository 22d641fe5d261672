#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <functional>
#include <set>
#include <string>

#include "support/real_function.h"
#include "support/run_in_child.h"
#include "support/temporary_directory.h"
#include "tavren_host_util.h"
#include "tavren_share.h"

/*
 * This program looks on when the library looks for its tools and when it runs the shell. Paths are found once, so each
 * test looks in a process of its own.
 */
namespace {

std::string looks;                 /* what was asked, in order */
std::set<std::string> executables; /* what can be run */
std::string shell_command;         /* what the shell was given last */

std::string shown(const std::function<std::string()>& show) {
  return run_in_child([&] { fputs(show().c_str(), stdout); }).out;
}

}  // namespace

STANDS_BEFORE_THE_REAL_ONE int access(const char* path, int mode) noexcept {
  if (mode != X_OK) return -1;
  looks += std::string(path) + " ";
  return executables.count(path) == 1 ? 0 : -1;
}

STANDS_BEFORE_THE_REAL_ONE int system(const char* command) {
  shell_command = command;
  return 256;
}

namespace {

class KeyTools : public testing::Test {
 protected:
  KeyTools() {
    looks.clear();
    executables.clear();
  }
};

/* Returns where a tool was looked for, and its path. */
std::string looks_and_path(const char* (*path_of_tool)()) {
  return shown([path_of_tool] {
    const std::string path = path_of_tool();
    return looks + path;
  });
}

TEST_F(KeyTools, AreLookedForInFourPlaces) {
  EXPECT_EQ(looks_and_path(tavren_get_awk_path), "/usr/bin/awk /bin/awk /usr/sbin/awk /sbin/awk awk");
  EXPECT_EQ(looks_and_path(tavren_get_ssh_keygen_path),
            "/usr/bin/ssh-keygen /bin/ssh-keygen /usr/sbin/ssh-keygen /sbin/ssh-keygen ssh-keygen");
}

TEST_F(KeyTools, AreTakenFromTheFirstPlaceThatHasThem) {
  executables = {"/bin/awk", "/sbin/awk", "/usr/sbin/ssh-keygen", "/sbin/ssh-keygen"};
  EXPECT_EQ(looks_and_path(tavren_get_awk_path), "/usr/bin/awk /bin/awk /bin/awk");
  EXPECT_EQ(looks_and_path(tavren_get_ssh_keygen_path),
            "/usr/bin/ssh-keygen /bin/ssh-keygen /usr/sbin/ssh-keygen /usr/sbin/ssh-keygen");
}

/* Returns the paths that are told again when the tools have come to other places, and where they were looked for. */
std::string told_again() {
  return shown([] {
    tavren_get_awk_path();
    tavren_get_ssh_keygen_path();
    executables = {"/usr/bin/awk", "/usr/bin/ssh-keygen"};
    looks.clear();
    return std::string(tavren_get_awk_path()) + " " + tavren_get_ssh_keygen_path() + looks;
  });
}

TEST_F(KeyTools, APathThatWasFoundIsKept) {
  executables = {"/bin/awk", "/bin/ssh-keygen"};
  EXPECT_EQ(told_again(), "/bin/awk /bin/ssh-keygen");
}

TEST_F(KeyTools, ANameThatWasNotFoundIsKept) { EXPECT_EQ(told_again(), "awk ssh-keygen"); }

TEST_F(KeyTools, AreRunByOneShellCommand) {
  const TemporaryDirectory home;
  setenv("TAVREN_HOME", home.path().c_str(), 1);
  executables = {"/bin/awk", "/sbin/ssh-keygen"};
  const std::string key_file = home.path("tavren_tmp/tools.libtavren/host_key");
  EXPECT_EQ(shown([] {
              char message[TAVREN_MESSAGE_SIZE] = "";
              char fingerprint[TAVREN_FINGERPRINT_SIZE];
              tavren_setup_tmp_dir("tools", message);
              const int result = tavren_host_key_fingerprint("key", fingerprint, message);
              return shell_command + "\n" + std::to_string(result) + " " + message;
            }),
            "set -C; touch() { : >\"$1\"; }; "
            "(/sbin/ssh-keygen -l -f " +
                key_file + " 2>/dev/null || touch " + key_file + "_error) | /bin/awk '{print $2}' >" + key_file +
                "_fingerprint\n-1 Internal error: cannot generate host key fingerprint.");
}

}  // namespace
