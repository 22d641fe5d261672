#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "host/odd_names.h"
#include "host/transfer_fixture.h"

namespace {

class FileOperation : public TransferTest {
 protected:
  void make(const std::string& name) { write_file(directory.path(name), name); }
  bool exists(const std::string& name) const { return std::filesystem::exists(directory.path(name)); }

  /* The command lines that were sent, without their frames. */
  static std::vector<std::string> commands_sent() {
    std::vector<std::string> commands;
    for (const std::string& written : recorded_system::take_writes()) {
      const size_t frame_end = written.find("'; ");
      const bool framed = written.find("echo '** RUNNING ") == 0;
      const size_t start = framed ? frame_end + 3 : 0;
      commands.push_back(written.substr(start, written.find('\n') - start));
    }
    return commands;
  }
};

}  // namespace

TEST_F(FileOperation, RemovesWithTheConfiguredCommand) {
  set_command("rm", "echo >removed");
  host.remove_file("file");
  EXPECT_EQ(received("removed"), "file\n");
}

TEST_F(FileOperation, RemovingAFileThatIsNotThereIsNoFailure) { EXPECT_NO_THROW(host.remove_file("file")); }

TEST_F(FileOperation, RemovingADirectoryIsAFailedCommand) {
  std::filesystem::create_directory(directory.path("dir"));
  EXPECT_EQ(error_body([this] { host.remove_file("dir"); }),
            "  - Remote command \"/bin/rm -f 'dir'\" failed with error code 1\n"
            "  - Command output: \"/bin/rm: cannot remove 'dir': Is a directory\"\n");
}

TEST_F(FileOperation, MakesADirectoryWithItsParents) {
  host.make_directory("a/b/c");
  EXPECT_TRUE(std::filesystem::is_directory(directory.path("a/b/c")));
}

TEST_F(FileOperation, MakesDirectoriesWithTheConfiguredCommand) {
  set_command("mkdir", "echo >made");
  host.make_directory("dir");
  EXPECT_EQ(received("made"), "dir\n");
}

TEST_F(FileOperation, MakingADirectoryInAFileIsAFailedCommand) {
  make("file");
  EXPECT_EQ(first_lines(error_body([this] { host.make_directory("file/dir"); }), 1),
            "  - Remote command \"/bin/mkdir -p 'file/dir'\" failed with error code 1\n");
}

TEST_F(FileOperation, RemovesTheFirstFileOfADirectory) {
  std::filesystem::create_directory(directory.path("dir"));
  for (const char* name : {"dir/b", "dir/a", "dir/c"}) make(name);
  EXPECT_TRUE(host.remove_first_file("dir"));
  EXPECT_FALSE(exists("dir/a"));
  EXPECT_TRUE(exists("dir/b"));
  EXPECT_TRUE(exists("dir/c"));
}

TEST_F(FileOperation, FindsNoFirstFileInAMissingOrEmptyDirectory) {
  EXPECT_FALSE(host.remove_first_file("dir"));
  std::filesystem::create_directory(directory.path("dir"));
  EXPECT_FALSE(host.remove_first_file("dir"));
}

TEST_F(FileOperation, QuotesTheNameOfTheFirstFileAndNotItsDirectory) {
  std::filesystem::create_directory(directory.path("dir"));
  make("dir/it's $(touch x)");
  EXPECT_TRUE(host.remove_first_file("dir"));
  EXPECT_FALSE(exists("dir/it's $(touch x)"));
  make("dir/a");
  recorded_system::record_writes();
  EXPECT_TRUE(host.remove_first_file("d*"));
  EXPECT_EQ(commands_sent(),
            (std::vector<std::string>{"/bin/ls -1 d* 2>/dev/null | /usr/bin/head -n 1 ", "/bin/rm -f 'd*/a'"}));
}

TEST_F(FileOperation, AFirstFileThatCannotBeRemovedIsAFailedCommand) {
  std::filesystem::create_directories(directory.path("dir/inner"));
  EXPECT_EQ(first_lines(error_body([this] { host.remove_first_file("dir"); }), 1),
            "  - Remote command \"/bin/rm -f 'dir/inner'\" failed with error code 1\n");
}

TEST_F(FileOperation, ProvesInThreeStepsThatAFileCanBeCreatedAndRemovesIt) {
  recorded_system::record_writes();
  host.try_to_create_file("file");
  EXPECT_EQ(commands_sent(), (std::vector<std::string>{"echo file-is-writable >'file' && echo OK", "/bin/cat 'file'",
                                                       "/bin/rm -f 'file'"}));
  host.run_and_check_ecode("true");
  EXPECT_FALSE(exists("file"));
}

TEST_F(FileOperation, TheRemovalOfTheProofIsNotChecked) {
  set_command("rm", "echo trouble; false");
  EXPECT_NO_THROW(host.try_to_create_file("file"));
}

TEST_F(FileOperation, AFileThatCannotBeCreatedIsAFailedCommand) {
  EXPECT_EQ(first_lines(error_body([this] { host.try_to_create_file("no/such/file"); }), 1),
            "  - Remote command \"echo file-is-writable >'no/such/file' && echo OK\" failed with error code 2\n");
}

TEST_F(FileOperation, AFileThatReadsDifferentlyIsIncorrectOutput) {
  set_command("cat", "echo");
  EXPECT_EQ(error_body([this] { host.try_to_create_file("file"); }),
            "  - Remote command \"echo 'file'\" produced incorrect output: 1 line(s) of output\n"
            "  - Command output: \"file\"\n"
            "  - Expected output: \"file-is-writable\"\n");
}

TEST_F(FileOperation, ANameMayBeAnyForAProofAFileAndADirectory) {
  for (const auto& [what, name] : odd_names) {
    SCOPED_TRACE(what);
    EXPECT_NO_THROW(host.try_to_create_file(name));
    host.run_and_check_ecode("true");
    make(name);
    host.remove_file(name);
    EXPECT_FALSE(exists(name));
    host.make_directory(name);
    EXPECT_TRUE(std::filesystem::is_directory(directory.path(name)));
  }
}
