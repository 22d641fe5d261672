#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>

#include <filesystem>
#include <string>

#include "support/run_in_child.h"
#include "support/temporary_directory.h"
#include "tavren_basic.h"
#include "tavren_share.h"

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

  /* Sets the directory up below home in an instance of the program, and returns result and message in one text. */
  static std::string set_up(
      const std::string& home, const std::function<void()>& then = [] {}) {
    return run_in_child([&] {
             setenv("TAVREN_HOME", home.c_str(), 1);
             char message[TAVREN_MESSAGE_SIZE] = "untouched";
             const int result = tavren_setup_tmp_dir("prog", message);
             printf("%d %s", result, message);
             then();
           })
        .out;
  }

  TemporaryDirectory parent;
};

TEST_F(LongHome, HoldsTheTemporaryRoot) {
  const std::string home = make_home(parent, 1000);
  const Outcome outcome = run_in_child([&] {
    setenv("TAVREN_HOME", home.c_str(), 1);
    fputs(tavren_get_tmp_root(), stdout);
  });
  EXPECT_EQ(outcome.out, home + "/tavren_tmp");
}

TEST_F(LongHome, HoldsThePrivateDirectory) {
  const std::string home = make_home(parent, 1000);
  EXPECT_EQ(set_up(home), "0 untouched");
  EXPECT_TRUE(std::filesystem::exists(home + "/tavren_tmp/prog.libtavren/.lock"));
}

TEST_F(LongHome, LosesThePrivateDirectoryWithItsFiles) {
  const std::string home = make_home(parent, 1000);
  EXPECT_EQ(set_up(home,
                   [] {
                     const std::string file = std::string(tavren_get_tmp_dir()) + "/file";
                     printf(" %d", tavren_create_text_file(file.c_str(), "x"));
                     tavren_cleanup_tmp_dir();
                   }),
            "0 untouched 0");
  EXPECT_TRUE(std::filesystem::is_empty(home + "/tavren_tmp"));
}

constexpr size_t longest_path = 4095;

TEST_F(LongHome, HoldsADirectoryWhoseLockFileHasTheLongestPath) {
  const std::string home = make_home(parent, longest_path - std::string("/tavren_tmp/prog.libtavren/.lock").size());
  EXPECT_EQ(set_up(home), "0 untouched");
}

TEST_F(LongHome, WithoutRoomForTheDirectorysPathIsRefused) {
  const std::string home = make_home(parent, longest_path + 1 - std::string("/tavren_tmp/prog.libtavren").size());
  const std::string directory = home + "/tavren_tmp/prog.libtavren";
  EXPECT_EQ(set_up(home), "-1 " + ("Failed to create directory " + directory).substr(0, TAVREN_MESSAGE_SIZE - 1));
  EXPECT_TRUE(std::filesystem::is_empty(home + "/tavren_tmp"));
}

}  // namespace
