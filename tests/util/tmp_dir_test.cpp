#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <functional>
#include <set>
#include <utility>

#include "support/files.h"
#include "util/private_directory.h"

namespace {

TEST_F(PrivateDirectory, MayBeUsedByEverybodyWhateverTheUmask) {
  EXPECT_EQ(in_instance([] {
              umask(077);
              return set_up();
            }),
            success);
  EXPECT_EQ(entries(), Names({".lock"}));
  EXPECT_EQ(mode_of(directory), 0777U);
  EXPECT_EQ(mode_of(lock), 0666U);
  EXPECT_EQ(mode_of(home.path("tavren_tmp")), 0755U);
}

TEST_F(PrivateDirectory, IsNamedOnceItIsSetUp) {
  EXPECT_EQ(in_instance([] {
              const std::string before = name_of_directory();
              return before + " " + set_up_and_name();
            }),
            "NULL " + (success + (" " + directory)));
}

TEST_F(PrivateDirectory, OfAnEarlierInstanceIsEmptiedButForItsDotFiles) {
  leave_directory();
  for (const char* name : {"/known_hosts", "/host_key", "/.hidden"}) write_file(directory + name, "x");
  write_file(lock, "content");
  EXPECT_EQ(in_instance([] { return set_up(); }), success);
  EXPECT_EQ(entries(), Names({".lock", ".hidden"}));
  EXPECT_EQ(read_file(lock), "content");
}

TEST_F(PrivateDirectory, HoldsItsLockInADescriptorThatNoProgramInherits) {
  EXPECT_EQ(in_instance([&] {
              set_up();
              const std::set<int> descriptors = descriptors_of(lock);
              if (descriptors.size() != 1) return std::string("not one descriptor");
              const int flags = fcntl(*descriptors.begin(), F_GETFD);
              return std::string((flags & FD_CLOEXEC) != 0 ? "close-on-exec" : "inherited");
            }),
            "close-on-exec");
}

TEST_F(PrivateDirectory, ThatCannotBeCreatedIsNamedWithTheReasonInUpTo127Bytes) {
  std::filesystem::create_directories(home.path("tavren_tmp"));
  const std::string before = "Failed to create directory " + home.path("tavren_tmp/");
  EXPECT_EQ(in_instance([] { return set_up("no/such"); }), "-1 " + before + "no/such.libtavren, errno=2");
  const std::string name = "no/" + std::string(200, 'n');
  EXPECT_EQ(in_instance([&] { return set_up(name); }), "-1 " + (before + name).substr(0, 127));
}

/* A directory or a pipe in the lock's place, a file in the directory's, and links: nothing is made behind those. */
TEST_F(PrivateDirectory, InWhosePlaceSomethingElseStandsIsRefusedWithTheReason) {
  const std::string root = home.path("tavren_tmp"), elsewhere = home.path("elsewhere");
  std::filesystem::create_directory(elsewhere);
  write_file(elsewhere + "/file", "x");
  const std::pair<std::function<void()>, std::string> obstacles[] = {
      {[&] { std::filesystem::create_directories(lock); }, "Failed to open " + lock + ", errno=21."},
      {[&] { write_file(directory, "x"); }, "Failed to open " + lock + ", errno=20."},
      {[&] { std::filesystem::create_directory_symlink(elsewhere, directory); },
       "Failed to create directory " + directory + ", errno=40"},
      {[&] { std::filesystem::create_directory(directory), std::filesystem::create_symlink(elsewhere + "/new", lock); },
       "Failed to open " + lock + ", errno=40."},
      {[&] { std::filesystem::create_directory(directory), mkfifo(lock.c_str(), 0666); },
       "Failed to open " + lock + ", errno=6."}};
  for (const auto& [stand, reason] : obstacles) {
    std::filesystem::create_directory(root);
    stand();
    EXPECT_EQ(in_instance([] { return set_up_and_name(); }), "-1 " + reason + " NULL");
    std::filesystem::remove_all(root);
  }
  directory = elsewhere;
  EXPECT_EQ(entries(), Names({"file"}));
}

TEST_F(PrivateDirectory, LeavesTheUmaskAsItWasWhateverHappens) {
  EXPECT_EQ(in_instance([&] {
              umask(027);
              std::string masks;
              const auto set_up_and_look = [&](const std::string& name) {
                set_up(name);
                masks += std::to_string(umask(027)) + " ";
              };
              set_up_and_look("prog");
              set_up_and_look("no/such");
              std::filesystem::create_directories(home.path("tavren_tmp/other.libtavren/.lock"));
              set_up_and_look("other");
              return masks;
            }),
            "23 23 23 ");
}

}  // namespace
