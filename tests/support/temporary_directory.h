#ifndef TESTS_SUPPORT_TEMPORARY_DIRECTORY_H
#define TESTS_SUPPORT_TEMPORARY_DIRECTORY_H

#include <stdlib.h>

#include <filesystem>
#include <stdexcept>
#include <string>

/* A directory of the test's own, removed with everything in it, also after a failure. */
class TemporaryDirectory {
 public:
  explicit TemporaryDirectory(const std::string& parent = "/tmp") : directory(parent + "/tavren-test.XXXXXX") {
    if (mkdtemp(directory.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
  }
  ~TemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(directory, ignored);
  }
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  const std::string& path() const { return directory; }
  std::string path(const std::string& name) const { return directory + "/" + name; }

 private:
  std::string directory;
};

#endif
