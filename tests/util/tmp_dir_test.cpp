#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <set>

#include "support/files.h"
#include "util/private_directory.h"

namespace {

TEST_F(PrivateDirectory, IsSetUpWithItsLockFile) {
  EXPECT_EQ(in_instance([] { return set_up(); }), success);
  EXPECT_EQ(entries(), Names({".lock"}));
}

TEST_F(PrivateDirectory, MayBeUsedByEverybodyWhateverTheUmask) {
  EXPECT_EQ(in_instance([] {
              umask(077);
              return set_up();
            }),
            success);
  EXPECT_EQ(mode_of(directory), 0777U);
  EXPECT_EQ(mode_of(lock), 0666U);
  EXPECT_EQ(mode_of(home.path("tavren_tmp")), 0755U);
}

TEST_F(PrivateDirectory, IsNamedOnceItIsSetUp) {
  EXPECT_EQ(in_instance([] { return tavren_get_tmp_dir() == nullptr ? "NULL" : "not NULL"; }), "NULL");
  EXPECT_EQ(in_instance([] {
              set_up();
              return tavren_get_tmp_dir();
            }),
            directory);
}

TEST_F(PrivateDirectory, OfAnEarlierInstanceIsEmptiedButForItsDotFiles) {
  leave_directory();
  for (const char* name : {"/known_hosts", "/host_key", "/.hidden"}) write_file(directory + name, "x");
  EXPECT_EQ(in_instance([] { return set_up(); }), success);
  EXPECT_EQ(entries(), Names({".lock", ".hidden"}));
}

TEST_F(PrivateDirectory, KeepsWhatItsLockFileHolds) {
  leave_directory();
  write_file(lock, "content");
  EXPECT_EQ(in_instance([] { return set_up(); }), success);
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

TEST_F(PrivateDirectory, ThatCannotBeCreatedIsNamedWithTheReason) {
  std::filesystem::create_directories(home.path("tavren_tmp"));
  const std::string name = "no/such";
  EXPECT_EQ(in_instance([&] { return set_up(name); }),
            "-1 Failed to create directory " + home.path("tavren_tmp/no/such.libtavren") + ", errno=2");
}

TEST_F(PrivateDirectory, WhoseLockFileCannotBeOpenedIsNamedWithTheReason) {
  std::filesystem::create_directories(lock);
  EXPECT_EQ(in_instance([] { return set_up(); }), "-1 Failed to open " + lock + ", errno=21.");
}

TEST_F(PrivateDirectory, InWhosePlaceAFileStandsIsNamedWithTheReason) {
  std::filesystem::create_directories(home.path("tavren_tmp"));
  write_file(directory, "x");
  EXPECT_EQ(in_instance([] { return set_up(); }), "-1 Failed to open " + lock + ", errno=20.");
}

TEST_F(PrivateDirectory, InWhosePlaceALinkStandsIsRefusedAndTheLinksTargetUntouched) {
  std::filesystem::create_directories(home.path("tavren_tmp"));
  std::filesystem::create_directory(home.path("elsewhere"));
  write_file(home.path("elsewhere/file"), "x");
  std::filesystem::create_directory_symlink(home.path("elsewhere"), directory);
  EXPECT_EQ(in_instance([] { return set_up(); }), "-1 Failed to create directory " + directory + ", errno=40");
  EXPECT_EQ(entries(), Names({"file"}));
}

TEST_F(PrivateDirectory, InWhoseLocksPlaceALinkStandsIsRefusedAndNothingMadeBehindIt) {
  std::filesystem::create_directories(directory);
  std::filesystem::create_symlink(home.path("elsewhere"), lock);
  EXPECT_EQ(in_instance([] { return set_up(); }), "-1 Failed to open " + lock + ", errno=40.");
  EXPECT_FALSE(std::filesystem::exists(home.path("elsewhere")));
}

TEST_F(PrivateDirectory, InWhoseLocksPlaceANamedPipeStandsIsRefusedAtOnce) {
  std::filesystem::create_directories(directory);
  ASSERT_EQ(mkfifo(lock.c_str(), 0666), 0);
  EXPECT_EQ(in_instance([] { return set_up(); }), "-1 Failed to open " + lock + ", errno=6.");
}

TEST_F(PrivateDirectory, ThatIsRefusedHasNoName) {
  std::filesystem::create_directories(lock);
  EXPECT_EQ(in_instance([] {
              set_up();
              return tavren_get_tmp_dir() == nullptr ? "NULL" : "not NULL";
            }),
            "NULL");
}

TEST_F(PrivateDirectory, CutsALongMessageTo127Bytes) {
  const std::string name = "no/" + std::string(200, 'n');
  const std::string whole = "Failed to create directory " + home.path("tavren_tmp/") + name;
  EXPECT_EQ(in_instance([&] { return set_up(name); }), "-1 " + whole.substr(0, 127));
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
