#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tavren_basic.h"
#include "util/private_directory.h"

/* The temporary root is decided once for a process, so each of these paths belongs to a child. */
namespace {

class LongHome : public testing::Test {
 protected:
  /* Makes a home whose path has that many bytes, in names that a file system takes. */
  static std::string make_home(const TemporaryDirectory& parent, size_t length) {
    std::string home = parent.path();
    while (home.size() + 250 < length) home += "/" + std::string(200, 'h');
    home += "/" + std::string(length - home.size() - 1, 'h');
    std::filesystem::create_directories(home + "/tavren_tmp");
    return home;
  }

  TemporaryDirectory parent;
};

TEST_F(LongHome, HoldsThePrivateDirectoryAndLosesItWithItsFiles) {
  const std::string home = make_home(parent, 1000), root = home + "/tavren_tmp";
  const std::string lock = root + "/prog.libtavren/.lock";
  EXPECT_EQ(in_instance_at(home,
                           [&] {
                             std::string result = set_up();
                             result += std::filesystem::exists(lock) ? " locked " : " ";
                             const std::string file = name_of_directory() + "/file";
                             const int created = tavren_create_text_file(file.c_str(), "x");
                             tavren_cleanup_tmp_dir();
                             return result + std::to_string(created) + " " + tavren_get_tmp_root();
                           }),
            success + (" locked 0 " + root));
  EXPECT_TRUE(std::filesystem::is_empty(root));
}

constexpr size_t longest_path = 4095;

TEST_F(LongHome, HoldsADirectoryWhoseLockFileHasTheLongestPath) {
  const std::string home = make_home(parent, longest_path - std::string("/tavren_tmp/prog.libtavren/.lock").size());
  EXPECT_EQ(in_instance_at(home, [] { return set_up(); }), success);
}

TEST_F(LongHome, WithoutRoomForTheDirectorysPathIsRefused) {
  const std::string home = make_home(parent, longest_path + 1 - std::string("/tavren_tmp/prog.libtavren").size());
  const std::string directory = home + "/tavren_tmp/prog.libtavren";
  EXPECT_EQ(in_instance_at(home, [] { return set_up(); }),
            "-1 " + ("Failed to create directory " + directory).substr(0, TAVREN_MESSAGE_SIZE - 1));
  EXPECT_TRUE(std::filesystem::is_empty(home + "/tavren_tmp"));
}

}  // namespace
