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

/* Returns the directory's path, "NULL" for none. */
inline std::string name_of_directory() {
  const char* const name = tavren_get_tmp_dir();
  return name == nullptr ? "NULL" : name;
}

/* Sets it up and returns its path behind what set_up returns. */
inline std::string set_up_and_name(const std::string& name = "prog") {
  const std::string result = set_up(name);
  return result + " " + name_of_directory();
}

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

inline std::string count_of_descriptors(const std::string& path) { return std::to_string(descriptors_of(path).size()); }

/* Returns what action, in an instance of the program at that home, returns. */
inline std::string in_instance_at(const std::string& home, const std::function<std::string()>& action) {
  const auto show = [&] {
    setenv("TAVREN_HOME", home.c_str(), 1);
    fputs(action().c_str(), stdout);
  };
  return run_in_child(show).out;
}

class PrivateDirectory : public testing::Test {
 protected:
  std::string in_instance(const std::function<std::string()>& action) const {
    return in_instance_at(home.path(), action);
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
