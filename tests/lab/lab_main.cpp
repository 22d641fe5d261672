/*
 * The main function of the tests that need an archive host: it runs the program again beside a private one.
 */
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <string_view>
#include <vector>

#include "support/run_all_tests.h"

int main(int argc, char** argv) {
  const bool lists_only =
      std::any_of(argv, argv + argc, [](const char* a) { return std::string_view(a) == "--gtest_list_tests"; });
  if (getenv("LAB") == nullptr && !lists_only) {
    char self[4096];
    const ssize_t length = readlink("/proc/self/exe", self, sizeof self - 1);
    if (length == -1) return 1;
    self[length] = '\0';
    /* No test asks which they are, and a thousand logins take half the processor time with these. */
    setenv("LAB_SSHD_LINES", "KexAlgorithms curve25519-sha256\nCiphers aes128-gcm@openssh.com", 0);
    std::vector<char*> command = {const_cast<char*>(ARCHIVE_HOST)};
#ifdef EMULATOR
    command.push_back(const_cast<char*>(EMULATOR));
#endif
    command.push_back(self);
    command.insert(command.end(), argv + 1, argv + argc + 1);
    execv(ARCHIVE_HOST, command.data());
    perror(ARCHIVE_HOST);
    return 1;
  }
  return run_all_tests(argc, argv);
}
