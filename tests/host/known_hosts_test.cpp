#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "host/login_fixture.h"
#include "support/files.h"
#include "support/process_state.h"

namespace {

class KnownHosts : public LoginTest {
 protected:
  KnownHosts() : file(private_directory() + "/known_hosts") {
    std::filesystem::remove_all(file);
    settings.host_key = "ssh-ed25519 AAAAC3NzaC1lZDI1NTE5AAAAIJ";
  }

  void log_in() { open(dialogue.login_with_key()); }

  void log_in_again() {
    host.close_connection();
    host.open_connection();
  }

  std::string syscall_error(const std::string& call, const std::string& code) const {
    return failed_to_start + "  - System call \"" + call + "(" + file + ")\" failed with error code " + code + "\n";
  }

  const std::string file;
};

}  // namespace

TEST_F(KnownHosts, HoldsTheHostAndItsKeyInOneLine) {
  log_in();
  EXPECT_EQ(read_file(file), "archive.example ssh-ed25519 AAAAC3NzaC1lZDI1NTE5AAAAIJ\n");
}

TEST_F(KnownHosts, ReplacesWhatAnotherSessionLeft) {
  write_file(file, "old.example ssh-rsa BBBB\nolder.example ssh-rsa CCCC\n");
  log_in();
  EXPECT_EQ(read_file(file), "archive.example ssh-ed25519 AAAAC3NzaC1lZDI1NTE5AAAAIJ\n");
}

TEST_F(KnownHosts, IsNotWrittenWithoutAKey) {
  settings.host_key.clear();
  open(dialogue.login());
  EXPECT_FALSE(std::filesystem::exists(file));
}

TEST_F(KnownHosts, IsReadableWhateverTheUmask) {
  const mode_t old_umask = umask(077);
  log_in();
  umask(old_umask);
  struct stat status {};
  ASSERT_EQ(stat(file.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0644u);
}

TEST_F(KnownHosts, WritingItRestoresTheUmask) {
  const mode_t old_umask = umask(037);
  log_in();
  EXPECT_EQ(umask(old_umask), 037u);
}

TEST_F(KnownHosts, IsReusedByASecondLogin) {
  log_in();
  write_file(file, "kept");
  log_in_again();
  EXPECT_EQ(read_file(file), "kept");
}

TEST_F(KnownHosts, IsWrittenAgainAfterNewSettings) {
  log_in();
  settings.host_key = "ssh-rsa BBBB";
  host.set_settings(settings.record());
  log_in_again();
  EXPECT_EQ(read_file(file), "archive.example ssh-rsa BBBB\n");
}

TEST_F(KnownHosts, IsUnlinkedBeforeItIsWrittenAgain) {
  log_in();
  const int old = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
  host.set_settings(settings.record());
  log_in_again();
  struct stat status {};
  ASSERT_EQ(fstat(old, &status), 0);
  close(old);
  EXPECT_EQ(status.st_nlink, 0u);
}

TEST_F(KnownHosts, IsGoneWhenItCannotBeWrittenAgain) {
  log_in();
  host.close_connection();
  host.set_settings(settings.record());
  rlimit usual{};
  getrlimit(RLIMIT_NOFILE, &usual);
  const rlimit none{0, usual.rlim_max};
  setrlimit(RLIMIT_NOFILE, &none);
  const std::string error = error_body([this] { host.open_connection(); });
  setrlimit(RLIMIT_NOFILE, &usual);
  EXPECT_EQ(error, syscall_error("fopen", std::to_string(EMFILE)));
  EXPECT_FALSE(std::filesystem::exists(file));
}

/* One that could not be written is none, and what stands in its place afterwards is somebody else's. */
TEST_F(KnownHosts, IsNotUnlinkedByTheLoginAfterOneThatCouldNotWriteIt) {
  log_in();
  host.close_connection();
  host.set_settings(settings.record());
  std::filesystem::remove(file);
  std::filesystem::create_directory(file);
  error_body([this] { host.open_connection(); });
  std::filesystem::remove(file);
  write_file(file, "x");
  const int other = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
  log_in_again();
  struct stat status {};
  ASSERT_EQ(fstat(other, &status), 0);
  close(other);
  EXPECT_EQ(status.st_nlink, 1u);
}

TEST_F(KnownHosts, AFileThatCannotBeOpenedIsASystemCallError) {
  std::filesystem::create_directory(file);
  EXPECT_EQ(open_error(dialogue.login_with_key()), syscall_error("fopen", std::to_string(EISDIR)));
}

TEST_F(KnownHosts, AFailedOpeningRestoresTheUmask) {
  std::filesystem::create_directory(file);
  const mode_t old_umask = umask(037);
  open_error(dialogue.login_with_key());
  EXPECT_EQ(umask(old_umask), 037u);
}

TEST_F(KnownHosts, NoClientIsStartedWithoutTheFile) {
  std::filesystem::create_directory(file);
  open_error(dialogue.login_with_key());
  EXPECT_EQ(client->starts(), 0);
}

TEST_F(KnownHosts, ALoginAfterAFailureWritesTheFile) {
  std::filesystem::create_directory(file);
  open_error(dialogue.login_with_key());
  std::filesystem::remove(file);
  log_in_again();
  EXPECT_EQ(read_file(file), "archive.example ssh-ed25519 AAAAC3NzaC1lZDI1NTE5AAAAIJ\n");
}

TEST_F(KnownHosts, AFileThatCannotBeWrittenIsASystemCallError) {
  std::filesystem::create_symlink("/dev/full", file);
  settings.host_key = "ssh-rsa " + std::string(100000, 'B');
  EXPECT_EQ(open_error(dialogue.login_with_key()), syscall_error("fprintf", std::to_string(ENOSPC)));
}

TEST_F(KnownHosts, AFileThatCannotBeWrittenIsTakenAway) {
  std::filesystem::create_symlink("/dev/full", file);
  settings.host_key = "ssh-rsa " + std::string(100000, 'B');
  open_error(dialogue.login_with_key());
  EXPECT_FALSE(std::filesystem::is_symlink(file));
}

TEST_F(KnownHosts, WritingItLeavesNoDescriptorOpen) {
  const std::ptrdiff_t before = count_open_descriptors();
  log_in();
  host.close_connection();
  EXPECT_EQ(count_open_descriptors(), before);
}

TEST_F(KnownHosts, AFileThatCannotBeWrittenLeavesNoDescriptorOpen) {
  std::filesystem::create_symlink("/dev/full", file);
  settings.host_key = "ssh-rsa " + std::string(100000, 'B');
  const std::ptrdiff_t before = count_open_descriptors();
  open_error(dialogue.login_with_key());
  EXPECT_EQ(count_open_descriptors(), before);
}

TEST_F(KnownHosts, AFileThatCannotBeClosedIsASystemCallError) {
  std::filesystem::create_symlink("/dev/full", file);
  EXPECT_EQ(open_error(dialogue.login_with_key()), syscall_error("fclose", std::to_string(ENOSPC)));
}

TEST_F(KnownHosts, AFileThatCannotBeClosedIsTakenAway) {
  std::filesystem::create_symlink("/dev/full", file);
  open_error(dialogue.login_with_key());
  EXPECT_FALSE(std::filesystem::is_symlink(file));
}
