#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <string>
#include <utility>

#include "host/login_fixture.h"
#include "support/files.h"
#include "support/process_state.h"
#include "support/real_function.h"
#include "support/temporary_directory.h"

namespace {

/* Called when a file has been taken away, if set. */
std::function<void(const std::string&)> after_unlinking;

}  // namespace

STANDS_BEFORE_THE_REAL_ONE int unlink(const char* path) noexcept {
  const int result = real<int(const char*)>("unlink")(path);
  if (after_unlinking) after_unlinking(path);
  return result;
}

namespace {

/* What the file holds: the host by its names, and any at another port. */
std::string lines_for(const std::string& names, const std::string& key = "ssh-ed25519 AAAAC3NzaC1lZDI1NTE5AAAAIJ") {
  return names + " " + key + "\n[*]:* " + key + "\n";
}

/* While it lives, this process gets nothing more of a resource, as of file sizes (RLIMIT_FSIZE) on a full disk. */
class Exhausted {
 public:
  explicit Exhausted(__rlimit_resource_t wanted) : resource(wanted) {
    signal(SIGXFSZ, SIG_IGN);
    getrlimit(resource, &usual);
    const rlimit none{0, usual.rlim_max};
    setrlimit(resource, &none);
  }
  ~Exhausted() { setrlimit(resource, &usual); }
  Exhausted(const Exhausted&) = delete;
  Exhausted& operator=(const Exhausted&) = delete;

 private:
  const __rlimit_resource_t resource;
  rlimit usual{};
};

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

  std::string error_on_a_full_disk() {
    play(dialogue.login_with_key());
    enable();
    const Exhausted full(RLIMIT_FSIZE);
    return error_body([this] { host.open_connection(); });
  }

  std::string syscall_error(const std::string& call, const std::string& code) const {
    return failed_to_start + "  - System call \"" + call + "(" + file + ")\" failed with error code " + code + "\n";
  }

  const std::string file;
};

}  // namespace

TEST_F(KnownHosts, HoldsTheHostAndItsKeyAndTheKeyForAnotherPortInPlaceOfWhatAnotherSessionLeft) {
  write_file(file, "old.example ssh-rsa BBBB\nolder.example ssh-rsa CCCC\n");
  log_in();
  EXPECT_EQ(read_file(file), lines_for("archive.example"));
}

TEST_F(KnownHosts, IsNotWrittenWithoutAKey) {
  settings.host_key.clear();
  open(dialogue.login());
  EXPECT_FALSE(std::filesystem::exists(file));
}

TEST_F(KnownHosts, IsReadableWhateverTheUmaskWhichIsRestoredAndNoDescriptorIsLeft) {
  const std::ptrdiff_t before = count_open_descriptors();
  const mode_t old_umask = umask(077);
  log_in();
  EXPECT_EQ(umask(old_umask), 077u);
  host.close_connection();
  EXPECT_EQ(count_open_descriptors(), before);
  EXPECT_EQ(std::filesystem::status(file).permissions(), static_cast<std::filesystem::perms>(0644));
}

TEST_F(KnownHosts, IsReusedByASecondLogin) {
  log_in();
  write_file(file, "kept");
  log_in_again();
  EXPECT_EQ(read_file(file), "kept");
}

TEST_F(KnownHosts, IsUnlinkedAndWrittenAgainAfterNewSettings) {
  log_in();
  const int old = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
  settings.host_key = "ssh-rsa BBBB";
  host.set_settings(settings.record());
  log_in_again();
  EXPECT_EQ(read_file(file), lines_for("archive.example", "ssh-rsa BBBB"));
  struct stat status {};
  ASSERT_EQ(fstat(old, &status), 0);
  close(old);
  EXPECT_EQ(status.st_nlink, 0u);
}

TEST_F(KnownHosts, IsGoneWhenItCannotBeWrittenAgain) {
  log_in();
  host.close_connection();
  host.set_settings(settings.record());
  const auto open_without_descriptors = [this] {
    const Exhausted descriptors(RLIMIT_NOFILE);
    host.open_connection();
  };
  EXPECT_EQ(error_body(open_without_descriptors), syscall_error("fopen", std::to_string(EMFILE)));
  EXPECT_FALSE(std::filesystem::exists(file));
}

/* Everybody may write in the directory: what is planted there leads nowhere. */
TEST_F(KnownHosts, IsMadeAnewInThePlaceOfALink) {
  const TemporaryDirectory elsewhere;
  write_file(elsewhere.path("precious"), "precious");
  std::filesystem::create_symlink(elsewhere.path("precious"), file);
  log_in();
  EXPECT_EQ(read_file(elsewhere.path("precious")), "precious");
  EXPECT_EQ(read_file(file), lines_for("archive.example"));
  EXPECT_FALSE(std::filesystem::is_symlink(file));
}

TEST_F(KnownHosts, IsMadeAnewInThePlaceOfAFileThatHasAnotherName) {
  const std::string other_name = private_directory() + "/other";
  write_file(file, "somebody's");
  std::filesystem::create_hard_link(file, other_name);
  log_in();
  EXPECT_EQ(read_file(other_name), "somebody's");
}

TEST_F(KnownHosts, IsNoLinkThatIsPlantedAtTheLastMoment) {
  const TemporaryDirectory elsewhere;
  after_unlinking = [&](const std::string& path) {
    if (path == file) std::filesystem::create_symlink(elsewhere.path("made"), file);
  };
  EXPECT_EQ(open_error(dialogue.login_with_key()), syscall_error("fopen", std::to_string(EEXIST)));
  after_unlinking = nullptr;
  EXPECT_FALSE(std::filesystem::exists(elsewhere.path("made")));
}

/* The client looks for an address in its canonical form. */
TEST_F(KnownHosts, NamesTheCanonicalFormOfAnAddressTooUnlessItIsOne) {
  dialogue.host = "127.0.0.1";
  for (const std::string host_name : {"127.1", "0x7f.0.0.1", "2130706433", "127.0.0.1"}) {
    settings.host = host_name;
    log_in();
    EXPECT_EQ(read_file(file), lines_for(host_name == dialogue.host ? host_name : host_name + ",127.0.0.1"));
    start_over();
  }
}

TEST_F(KnownHosts, AFileThatCannotBeOpenedIsASystemCallErrorThatStartsNoClientAndPasses) {
  std::filesystem::create_directory(file);
  const mode_t old_umask = umask(037);
  EXPECT_EQ(open_error(dialogue.login_with_key()), syscall_error("fopen", std::to_string(EEXIST)));
  EXPECT_EQ(umask(old_umask), 037u);
  EXPECT_EQ(client->starts(), 0);
  std::filesystem::remove(file);
  log_in_again();
  EXPECT_EQ(read_file(file), lines_for("archive.example"));
}

TEST_F(KnownHosts, AFileThatCannotBeWrittenOrClosedIsASystemCallErrorAndLeavesNeitherFileNorDescriptor) {
  const std::ptrdiff_t before = count_open_descriptors();
  for (const auto& [call, length] : {std::pair<std::string, size_t>{"fprintf", 100000}, {"fclose", 10}}) {
    settings.host_key = "ssh-rsa " + std::string(length, 'B');
    EXPECT_EQ(error_on_a_full_disk(), syscall_error(call, std::to_string(EFBIG)));
    EXPECT_FALSE(std::filesystem::exists(file)) << call;
    EXPECT_EQ(count_open_descriptors(), before) << call;
    start_over();
  }
}
