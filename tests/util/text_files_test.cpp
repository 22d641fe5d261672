#include <errno.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <set>

#include "support/files.h"
#include "support/process_state.h"
#include "support/run_in_child.h"
#include "support/temporary_directory.h"
#include "tavren_basic.h"

namespace {

class TextFile : public testing::Test {
 protected:
  TemporaryDirectory directory;
  std::string path = directory.path("file");
};

TEST_F(TextFile, HoldsTheTextAndNothingElse) {
  for (const std::string& text :
       {std::string("a longer text"), std::string("new\n"), std::string(), std::string(1000000, 't')}) {
    EXPECT_EQ(tavren_create_text_file(path.c_str(), text.c_str()), 0);
    EXPECT_EQ(read_file(path), text);
  }
}

TEST_F(TextFile, ThatCannotBeOpenedIsAFailureWithItsErrno) {
  EXPECT_EQ(tavren_create_text_file(directory.path("no/such").c_str(), "x"), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(tavren_create_text_file(directory.path().c_str(), "x"), -1);
  EXPECT_EQ(errno, EISDIR);
}

/* A short text fails when the file is closed, a long one while it is written. */
TEST_F(TextFile, OnAFullDeviceIsAFailureWithItsErrno) {
  for (const size_t size : {size_t{1}, size_t{1000000}}) {
    EXPECT_EQ(tavren_create_text_file("/dev/full", std::string(size, 't').c_str()), -1);
    EXPECT_EQ(errno, ENOSPC);
  }
}

TEST_F(TextFile, IsClosedAlsoAfterAFailure) {
  const auto before = count_open_descriptors();
  tavren_create_text_file(path.c_str(), "x");
  tavren_create_text_file("/dev/full", "x");
  tavren_create_text_file("/dev/full", std::string(1000000, 't').c_str());
  char buffer[10];
  tavren_read_line_from_file(path.c_str(), buffer, sizeof buffer);
  tavren_read_line_from_file("/dev/null", buffer, sizeof buffer);
  tavren_read_line_from_file(directory.path().c_str(), buffer, sizeof buffer);
  EXPECT_EQ(count_open_descriptors(), before);
}

class LineFromFile : public TextFile {
 protected:
  /* Returns the line of a file with that content, or "(failure)". */
  std::string line_of(const std::string& content, int size = 100) {
    write_file(path, content);
    char buffer[100];
    return tavren_read_line_from_file(path.c_str(), buffer, size) == 0 ? buffer : "(failure)";
  }
};

TEST_F(LineFromFile, IsTheFirstWithoutItsNewline) {
  EXPECT_EQ(line_of("abc\n"), "abc");
  EXPECT_EQ(line_of("abc\n\n"), "abc");
  EXPECT_EQ(line_of("abc\ndef\n"), "abc");
  EXPECT_EQ(line_of("abc"), "abc");
  EXPECT_EQ(line_of("\nabc\n"), "");
  EXPECT_EQ(line_of("abc\r\n"), "abc\r");
  EXPECT_EQ(line_of(""), "(failure)");
}

TEST_F(LineFromFile, IsCutToOneLessThanTheSize) {
  EXPECT_EQ(line_of("abcdef\n", 5), "abcd");
  EXPECT_EQ(line_of("abcd\n", 5), "abcd");
  EXPECT_EQ(line_of("abc\n", 1), "");
}

TEST_F(LineFromFile, ThatCannotBeReadIsAFailure) {
  char buffer[10];
  EXPECT_EQ(tavren_read_line_from_file(directory.path("none").c_str(), buffer, sizeof buffer), -1);
  EXPECT_EQ(tavren_read_line_from_file(directory.path().c_str(), buffer, sizeof buffer), -1);
}

class DeleteAllFiles : public testing::Test {
 protected:
  std::set<std::string> remaining() {
    tavren_delete_all_files(directory.path().c_str());
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(directory.path())) {
      names.insert(entry.path().lexically_relative(directory.path()));
    }
    return names;
  }

  TemporaryDirectory directory;
};

using Names = std::set<std::string>;

TEST_F(DeleteAllFiles, RemovesEveryFileWhoseNameDoesNotBeginWithAPoint) {
  for (const char* name : {"a", "b.c", "-", "with blanks", "~", ".lock", "..x"}) write_file(directory.path(name), "x");
  EXPECT_EQ(remaining(), Names({".lock", "..x"}));
}

TEST_F(DeleteAllFiles, DoesNotEnterSubdirectoriesAndIgnoresThatTheyStay) {
  for (const char* name : {"a", "m", "z"}) std::filesystem::create_directory(directory.path(name));
  for (const char* name : {"a/file", "m/file", "z/file", "b", "n", "zz"}) write_file(directory.path(name), "x");
  EXPECT_EQ(remaining(), Names({"a", "a/file", "m", "m/file", "z", "z/file"}));
}

TEST_F(DeleteAllFiles, RemovesALinkAndNotWhatItLeadsTo) {
  const TemporaryDirectory elsewhere;
  write_file(elsewhere.path("file"), "x");
  std::filesystem::create_symlink(elsewhere.path("file"), directory.path("to_a_file"));
  std::filesystem::create_directory_symlink(elsewhere.path(), directory.path("to_a_directory"));
  EXPECT_EQ(remaining(), Names());
  EXPECT_EQ(read_file(elsewhere.path("file")), "x");
}

TEST_F(DeleteAllFiles, RemovesMoreThanOneReadOfTheDirectoryHolds) {
  for (int i = 0; i < 3000; ++i) write_file(directory.path(std::to_string(i)), "");
  EXPECT_EQ(remaining(), Names());
}

/* A path that was cut would be another file's. */
TEST_F(DeleteAllFiles, LeavesAFileWhosePathIsTooLong) {
  std::string deep = directory.path();
  while (deep.size() < 3880) deep += "/" + std::string(100, 'd');
  const std::string longest(4095 - (deep.size() + 1), 'f');
  const std::string too_long = longest + "f";
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::create_directories(deep);
  std::filesystem::current_path(deep);
  write_file(longest, "");
  write_file(too_long, "");
  tavren_delete_all_files(deep.c_str());
  EXPECT_FALSE(std::filesystem::exists(longest));
  EXPECT_TRUE(std::filesystem::remove(too_long));
  std::filesystem::current_path(before);
}

TEST_F(DeleteAllFiles, DoesNothingWhereThereIsNoDirectory) {
  write_file(directory.path(".file"), "x");
  tavren_delete_all_files(directory.path("none").c_str());
  tavren_delete_all_files(directory.path(".file").c_str());
  EXPECT_EQ(read_file(directory.path(".file")), "x");
}

/* The first call decides for the life of the process, so each runs in a child. */
class TemporaryRoot : public testing::Test {
 protected:
  /* Returns the root that a process has which does that before and knows no home otherwise. */
  static std::string root_after(const std::function<void()>& before) {
    return run_in_child([&] {
             unsetenv("TAVREN_HOME");
             before();
             fputs(tavren_get_tmp_root(), stdout);
           })
        .out;
  }
  static std::string root_with(const std::string& home) {
    return root_after([&] { set_home(home); });
  }
  static void set_home(const std::string& home) { setenv("TAVREN_HOME", home.c_str(), 1); }

  TemporaryDirectory home;
  std::string root = home.path("tavren_tmp");
};

TEST_F(TemporaryRoot, WithoutAHomeIsTmp) {
  EXPECT_EQ(root_after([] {}), "/tmp");
}

TEST_F(TemporaryRoot, LiesUnderTheHomeAndIsCreated) {
  EXPECT_EQ(root_after([this] {
              umask(0);
              set_home(home.path());
            }),
            root);
  struct stat status {};
  ASSERT_EQ(stat(root.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode, static_cast<mode_t>(S_IFDIR | 0755));
}

TEST_F(TemporaryRoot, MayExistAlready) {
  std::filesystem::create_directory(root);
  write_file(root + "/file", "x");
  EXPECT_EQ(root_with(home.path()), root);
  EXPECT_EQ(read_file(root + "/file"), "x");
}

TEST_F(TemporaryRoot, ThatCannotBeCreatedIsNamedAllTheSame) {
  EXPECT_EQ(root_with(home.path("no/such")), home.path("no/such/tavren_tmp"));
}

TEST_F(TemporaryRoot, StaysWhenTheVariableGoesAndIsCreatedOnceOnly) {
  EXPECT_EQ(root_after([this] {
              set_home(home.path());
              tavren_get_tmp_root();
              rmdir(root.c_str());
              tavren_get_tmp_root();
              unsetenv("TAVREN_HOME");
            }),
            root);
  EXPECT_FALSE(std::filesystem::exists(root));
}

TEST_F(TemporaryRoot, StaysWhenTheVariableComes) {
  EXPECT_EQ(root_after([this] {
              tavren_get_tmp_root();
              set_home(home.path());
            }),
            "/tmp");
  EXPECT_FALSE(std::filesystem::exists(root));
}

}  // namespace
