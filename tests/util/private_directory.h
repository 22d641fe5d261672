#ifndef TESTS_UTIL_PRIVATE_DIRECTORY_H
#define TESTS_UTIL_PRIVATE_DIRECTORY_H

#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <filesystem>
#include <functional>
#include <set>
#include <stdexcept>
#include <string>

#include "support/run_in_child.h"
#include "support/temporary_directory.h"
#include "tavren_share.h"

/* Directory and lock belong to the process, so every instance of a program is a child. */

/* Sets the directory up and returns result and message in one text. */
inline std::string set_up(const std::string& name = "prog") {
  char message[TAVREN_MESSAGE_SIZE] = "untouched";
  const int result = tavren_setup_tmp_dir(name.c_str(), message);
  return std::to_string(result) + " " + message;
}

inline constexpr char success[] = "0 untouched";

/* Returns the descriptors of this process that lead to path. */
inline std::set<int> descriptors_of(const std::string& path) {
  std::set<int> found;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code closed_meanwhile;
    if (std::filesystem::read_symlink(entry.path(), closed_meanwhile) == path) {
      found.insert(std::stoi(entry.path().filename()));
    }
  }
  return found;
}

class PrivateDirectory : public testing::Test {
 protected:
  /* Returns what action, in an instance of the program, returns. */
  std::string in_instance(const std::function<std::string()>& action) const {
    return run_in_child([&] {
             setenv("TAVREN_HOME", home.path().c_str(), 1);
             fputs(action().c_str(), stdout);
           })
        .out;
  }

  /* Leaves the directory of an earlier instance behind, with nothing but the lock in it. */
  void leave_directory() const {
    ASSERT_EQ(in_instance([] { return set_up(); }), success);
  }

  std::set<std::string> entries() const {
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(directory)) names.insert(entry.path().filename());
    return names;
  }

  static mode_t mode_of(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) throw std::runtime_error("no such file: " + path);
    return status.st_mode & 07777;
  }

  TemporaryDirectory home;
  std::string directory = home.path("tavren_tmp/prog.libtavren");
  std::string lock = directory + "/.lock";
};

using Names = std::set<std::string>;

#endif
