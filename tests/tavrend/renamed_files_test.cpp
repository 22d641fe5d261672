#include <gtest/gtest.h>
#include <stdio.h>
#include <sys/stat.h>

#include <atomic>
#include <set>
#include <string>
#include <thread>

#include "sources/local_files.h"
#include "support/files.h"
#include "support/temporary_directory.h"

/*
 * Whoever rotates does not wait for whoever looks.
 */
namespace {

constexpr int files = 30;
constexpr int looks = 100;

class RenamedFiles : public testing::Test {
 protected:
  RenamedFiles() {
    for (int i = 1; i <= files; ++i) {
      write_file(path(i), "file " + std::to_string(i) + "\n");
      struct stat status {};
      stat(path(i).c_str(), &status);
      inodes.insert(status.st_ino);
    }
    /* All of them get the next number, the last one first, and then the one before, the first one first. */
    renaming = std::thread([this] {
      for (int first = 1; !enough; first = 3 - first) {
        for (int i = 0; i < files; ++i) {
          const int number = first == 1 ? files - i : i + 2;
          rename(path(number).c_str(), path(first == 1 ? number + 1 : number - 1).c_str());
        }
      }
    });
  }
  ~RenamedFiles() override {
    enough = true;
    renaming.join();
  }

  std::string path(int number) const { return directory.path("log." + std::to_string(number)); }

  static std::set<uint64_t> inodes_of(const Found& found) {
    std::set<uint64_t> all;
    for (const LogFile& file : found.files) all.insert(file.inode);
    return all;
  }

  const TemporaryDirectory directory;
  std::set<uint64_t> inodes;
  std::atomic<bool> enough{false};
  std::thread renaming;
};

}  // namespace

TEST_F(RenamedFiles, AreAllThere) {
  for (int i = 0; i < looks; ++i) {
    std::set<uint64_t> seen;
    see_matching("", directory.path("log.*"), [&seen](const LogFile& file) { seen.insert(file.inode); });
    ASSERT_EQ(seen, inodes) << "look " << i;
  }
}

TEST_F(RenamedFiles, BesideALogAreAllThere) {
  for (int i = 0; i < looks; ++i) {
    const auto around = look_around("", directory.path("log"));
    if (!around) continue; /* says that it does not know */
    ASSERT_EQ(inodes_of(around->beside), inodes) << "look " << i;
  }
}
