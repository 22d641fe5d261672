#include <errno.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/inotify.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "plan/checksum.h"
#include "plan/names.h"
#include "sources/local_files.h"
#include "support/files.h"
#include "support/run_in_child.h"
#include "support/temporary_directory.h"
#include "tavrend/changing_files.h"

using changing_files::after_lstat;
using changing_files::after_open;
using changing_files::after_pread;
using changing_files::entries_until_an_error;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr int64_t block = 65536; /* what is read at once in the search for a newline */

class LocalFiles : public testing::Test {
 protected:
  ~LocalFiles() override { changing_files::stop(); }

  std::string path(const std::string& name) const { return directory.path(name); }
  void make(const std::string& name, const std::string& content = "text\n") const { write_file(path(name), content); }
  void link(const std::string& name, const std::string& target) const {
    std::filesystem::create_symlink(target, path(name));
  }
  void rename(const std::string& from, const std::string& to) const { std::filesystem::rename(path(from), path(to)); }
  ino_t inode_of(const std::string& name) const {
    struct stat status {};
    stat(path(name).c_str(), &status);
    return status.st_ino;
  }

  /* All that is seen, once. */
  static Found found_matching(const std::string& prefix, const std::string& pattern) {
    Found found;
    std::set<std::string> paths;
    found.unreadable = see_matching(prefix, pattern, [&](const LogFile& file) {
      if (paths.insert(file.path).second) found.files.push_back(file);
    });
    return found;
  }

  bool is_log(const std::string& name) const { return look_at("", path(name)).has_value(); }

  /* The names below the directory, sorted. */
  std::vector<std::string> names_of(const Found& found) const {
    std::vector<std::string> names;
    for (const LogFile& file : found.files) names.push_back(file.path.substr(directory.path().size() + 1));
    std::sort(names.begin(), names.end());
    return names;
  }

  int64_t newline_in(const std::string& content, int64_t first, int64_t end) const {
    make("log", content);
    return last_newline(OpenFile("", path("log")), path("log"), first, end);
  }

  /* Runs action as a user who is not root, to whom the directory is open. */
  Outcome as_stranger(const std::function<void()>& action) const {
    chmod(directory.path().c_str(), 0755);
    return run_in_child([&] {
      if (geteuid() == 0 && seteuid(65534) != 0) _exit(100);
      action();
    });
  }

  const TemporaryDirectory directory;
};

/* What cannot be read, as "PATH: ERRNO", with "opened" behind it when it could be. */
std::string text_of(const UnreadableFile& file) {
  return file.path + ": " + std::to_string(file.error) + (file.was_open ? " opened" : "");
}

std::vector<std::string> unreadable_in(const Found& found) {
  std::vector<std::string> texts;
  for (const UnreadableFile& file : found.unreadable) texts.push_back(text_of(file));
  return texts;
}

}  // namespace

TEST_F(LocalFiles, AreDescribedByTheirStatusAndFirstBytes) {
  make("log", "one\n");
  const timespec times[] = {{1, 0}, {1700000000, 123456789}};
  utimensat(AT_FDCWD, path("log").c_str(), times, 0);
  struct stat status {};
  stat(path("log").c_str(), &status);
  const auto log = look_at("", path("log"));
  ASSERT_TRUE(log);
  EXPECT_EQ(log->path, path("log"));
  EXPECT_EQ(log->device, status.st_dev);
  EXPECT_EQ(log->inode, status.st_ino);
  EXPECT_EQ(log->size, 4);
  EXPECT_EQ(log->mtime_ns, 1700000000123456789);
  EXPECT_EQ(log->head, "one\n");
}

TEST_F(LocalFiles, ThatAreCompressedMaySayHowLongTheyWere) {
  const std::string text(70000, 'x');
  const auto size_after = [&](const std::string& program, const std::string& ending) {
    write_file(directory.path("log"), text);
    const std::string command = program + " -f " + directory.path("log");
    EXPECT_EQ(system(command.c_str()), 0);
    return look_at(directory.path(), "/log" + ending)->plain_size;
  };
  EXPECT_EQ(size_after("gzip", ".gz"), 70000);
  EXPECT_EQ(size_after("zstd -q", ".zst"), 70000);
  EXPECT_EQ(size_after("xz", ".xz"), -1);
  EXPECT_EQ(size_after("true", ""), -1);
  write_file(directory.path("short"), "\x1F\x8B short");
  EXPECT_EQ(look_at(directory.path(), "/short")->plain_size, -1);
}

TEST_F(LocalFiles, AreKnownByAsManyFirstBytesAsThereAre) {
  for (const size_t size : {size_t{0}, size_t{1}, head_size - 1, head_size, head_size + 1}) {
    const std::string content = std::string(size, 'x');
    make("log", content);
    const Identity identity = identity_of(*look_at("", path("log")));
    EXPECT_EQ(identity.head_length, std::min(size, head_size));
    EXPECT_EQ(identity.head_checksum, checksum(content.substr(0, head_size))) << size;
  }
}

TEST_F(LocalFiles, ThatAreNotThereAreNone) {
  make("file");
  EXPECT_FALSE(is_log("none"));
  EXPECT_FALSE(is_log("none/log"));
  EXPECT_FALSE(is_log("file/log"));
}

TEST_F(LocalFiles, OfOtherKindsAreNone) {
  std::filesystem::create_directory(path("directory"));
  const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un address{AF_UNIX, {}};
  path("socket").copy(address.sun_path, sizeof address.sun_path - 1);
  ASSERT_EQ(bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  close(fd);
  EXPECT_FALSE(is_log("directory"));
  EXPECT_FALSE(is_log("socket"));
  EXPECT_FALSE(look_at("", "/dev/null"));
}

TEST_F(LocalFiles, ANamedPipeIsNoneAndIsNotWaitedFor) {
  ASSERT_EQ(mkfifo(path("pipe").c_str(), 0600), 0);
  EXPECT_FALSE(is_log("pipe"));
}

/* A device may react to being opened. */
TEST_F(LocalFiles, OfOtherKindsAreNotEvenOpened) {
  ASSERT_EQ(mkfifo(path("pipe").c_str(), 0600), 0);
  const int opened = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  ASSERT_NE(inotify_add_watch(opened, path("pipe").c_str(), IN_OPEN), -1);
  EXPECT_FALSE(is_log("pipe"));
  char event[4096];
  EXPECT_EQ(read(opened, event, sizeof event), -1);
  close(opened);
}

TEST_F(LocalFiles, ALinkIsNoneWhereverItLeads) {
  make("file");
  link("to_file", path("file"));
  link("dangling", path("none"));
  link("to_itself", path("to_itself"));
  EXPECT_FALSE(is_log("to_file"));
  EXPECT_FALSE(is_log("dangling"));
  EXPECT_FALSE(is_log("to_itself"));
}

TEST_F(LocalFiles, AreFoundThroughLinksBeforeTheLastPart) {
  std::filesystem::create_directory(path("directory"));
  make("directory/log");
  link("way", path("directory"));
  EXPECT_TRUE(is_log("way/log"));
  EXPECT_THAT(names_of(found_matching("", path("way/*"))), ElementsAre("way/log"));
}

TEST_F(LocalFiles, ALinkThatTakesAFilesPlaceIsNotFollowed) {
  make("file");
  make("log");
  after_lstat = [this](const std::string&) {
    unlink(path("log").c_str());
    link("log", path("file"));
    after_lstat = nullptr;
  };
  EXPECT_FALSE(is_log("log"));
}

TEST_F(LocalFiles, ANamedPipeThatTakesAFilesPlaceIsNotWaitedFor) {
  make("log");
  after_lstat = [this](const std::string&) {
    unlink(path("log").c_str());
    mkfifo(path("log").c_str(), 0600);
    after_lstat = nullptr;
  };
  EXPECT_FALSE(is_log("log"));
}

TEST_F(LocalFiles, ThatMayNotBeReadAreSaidToBeSo) {
  make("log");
  chmod(path("log").c_str(), 0);
  EXPECT_EQ(as_stranger([this] {
              try {
                is_log("log");
              } catch (const UnreadableFile& file) {
                fputs(text_of(file).c_str(), stdout);
              }
            }).out,
            path("log") + ": " + std::to_string(EACCES));
}

TEST_F(LocalFiles, BehindAnUnreadableOneAreFoundAllTheSame) {
  make("log.1");
  make("log.2");
  chmod(path("log.1").c_str(), 0);
  const std::string expected = path("log.1") + ": " + std::to_string(EACCES);
  const Outcome outcome = as_stranger([&] {
    for (const Found& found : {found_matching("", path("log.*")), find_beside("", path("log"))}) {
      EXPECT_THAT(unreadable_in(found), ElementsAre(expected));
      EXPECT_THAT(names_of(found), ElementsAre("log.2"));
    }
    if (testing::Test::HasFailure()) _exit(1);
  });
  EXPECT_TRUE(outcome.exited_with(0)) << outcome.out;
}

TEST_F(LocalFiles, OfADirectoryThatMayNotBeReadAreSaidToBeSo) {
  std::filesystem::create_directory(path("directory"));
  make("directory/log.1");
  chmod(path("directory").c_str(), 0);
  const Outcome outcome = as_stranger([&] {
    const std::string reason = ": " + std::to_string(EACCES);
    EXPECT_THAT(unreadable_in(found_matching(path(""), "directory/log.*")), ElementsAre("directory" + reason));
    EXPECT_THAT(unreadable_in(found_matching(path(""), "direc*/log.*")), ElementsAre("directory" + reason));
    EXPECT_THAT(unreadable_in(find_beside("", path("directory/log"))), ElementsAre(path("directory/") + reason));
    if (testing::Test::HasFailure()) _exit(1);
  });
  chmod(path("directory").c_str(), 0755);
  EXPECT_TRUE(outcome.exited_with(0)) << outcome.out;
}

TEST_F(LocalFiles, OfADirectoryThatFailsWhileItIsReadAreSaidToBeSo) {
  make("log.1");
  const std::string reason = path("") + ": " + std::to_string(EIO);
  for (const int entries : {0, 1, 2, 3}) { /* two of which every directory has */
    entries_until_an_error = entries;
    EXPECT_THAT(unreadable_in(find_beside("", path("log"))), ElementsAre(reason)) << entries;
  }
}

TEST_F(LocalFiles, OfADirectoryThatIsNotThereAreNone) {
  for (const Found& found : {found_matching("", path("none/log.*")), find_beside("", path("none/log"))}) {
    EXPECT_THAT(found.files, IsEmpty());
    EXPECT_THAT(unreadable_in(found), IsEmpty());
  }
}

TEST_F(LocalFiles, MatchAPattern) {
  std::filesystem::create_directories(path("a.d"));
  std::filesystem::create_directories(path("log.9"));
  for (const char* name : {"log", "log.1", "log.12", "log.x", ".log.1", "a.d/log.1"}) make(name);
  link("log.3", path("log.1"));
  link("log.4", path("none"));
  mkfifo(path("log.5").c_str(), 0600);
  EXPECT_THAT(names_of(found_matching("", path("log.[0-9]*"))), ElementsAre("log.1", "log.12"));
  EXPECT_THAT(names_of(found_matching("", path("log.?"))), ElementsAre("log.1", "log.x"));
  EXPECT_THAT(names_of(found_matching("", path("*/log.*"))), ElementsAre("a.d/log.1"));
  EXPECT_THAT(names_of(found_matching("", path("*log.1"))), ElementsAre("log.1"));
  EXPECT_THAT(names_of(found_matching("", path("log"))), ElementsAre("log"));
  EXPECT_THAT(names_of(found_matching("", path("none*"))), IsEmpty());
  EXPECT_THAT(unreadable_in(found_matching("", path("log.*"))), IsEmpty());
}

/* One is asked for without a look at the others. */
TEST_F(LocalFiles, MatchAPatternByTheirPathsAlone) {
  std::filesystem::create_directories(path("a.d"));
  const std::vector<std::string> names = {"log", "log.1", "log.12", "log.x", ".log.1", "a.d/log.1", "a.d/.log"};
  for (const std::string& name : names) make(name);
  for (const char* pattern : {"log.[0-9]*", "log.?", "*/log.*", "*log.1", "*", "*/*", ".*", "log.\\x", "none*"}) {
    std::vector<std::string> matching;
    std::copy_if(names.begin(), names.end(), std::back_inserter(matching),
                 [&](const std::string& name) { return matches(path(pattern), path(name)); });
    EXPECT_THAT(names_of(found_matching("", path(pattern))), testing::UnorderedElementsAreArray(matching)) << pattern;
  }
}

/* What a look has shown is told again when the next one shows something else. */
/* Each look's list of paths would be a hundred kilobytes. Where a sanitizer counts memory itself, it finds what is
 * lost. */
TEST_F(LocalFiles, LeaveNoMemoryBehindWhereTheLookIsEndedByAnException) {
  for (int i = 0; i < 1000; ++i) make(std::to_string(i));
  const auto look = [this] { see_matching("", path("*"), [](const LogFile&) { throw std::runtime_error("enough"); }); };
  EXPECT_THROW(look(), std::runtime_error);
  const size_t before = mallinfo2().uordblks;
  for (int i = 0; i < 50; ++i) EXPECT_THROW(look(), std::runtime_error);
  EXPECT_LT(mallinfo2().uordblks, before + 1000000);
}

TEST_F(LocalFiles, ThatTakeAnothersPlaceWhileTheyAreLookedForAreFound) {
  make("log.1");
  make("other");
  int looks = 0;
  after_lstat = [&](const std::string& at) {
    if (at == path("log.1") && ++looks == 2) rename("other", "log.1");
  };
  std::vector<uint64_t> inodes;
  const ino_t other = inode_of("other");
  see_matching("", path("log.*"), [&](const LogFile& file) { inodes.push_back(file.inode); });
  EXPECT_THAT(inodes, testing::Contains(other));
  EXPECT_GE(looks, 4);
}

TEST_F(LocalFiles, BesideALogAreItsRotatedOnes) {
  for (const char* name : {"log", "log.1", "log-2026", "log.1.gz", "log1", "other.1", "xlog.1", "log."}) make(name);
  std::filesystem::create_directory(path("log.d"));
  link("log.2", path("log.1"));
  mkfifo(path("log.3").c_str(), 0600);
  EXPECT_THAT(names_of(find_beside("", path("log"))), ElementsAre("log-2026", "log.1", "log.1.gz"));
}

TEST_F(LocalFiles, OfAnotherRootHaveTheirOwnPaths) {
  std::filesystem::create_directories(path("root/var/log"));
  make("root/var/log/m");
  make("root/var/log/m.1");
  const std::string root = path("root");
  EXPECT_EQ(look_at(root, "/var/log/m")->path, "/var/log/m");
  ASSERT_EQ(found_matching(root, "/var/log/m.*").files.size(), 1U);
  EXPECT_EQ(found_matching(root, "/var/log/m.*").files[0].path, "/var/log/m.1");
  ASSERT_EQ(find_beside(root, "/var/log/m").files.size(), 1U);
  EXPECT_EQ(find_beside(root, "/var/log/m").files[0].path, "/var/log/m.1");
}

TEST_F(LocalFiles, OfARootWhoseNameLooksLikeAPatternAreFound) {
  for (const char* root : {"a*", "a?", "[ab]", "a\\b", "ab"}) {
    std::filesystem::create_directories(path(root + std::string("/log")));
    make(root + std::string("/log/m.1"), root);
  }
  for (const char* root : {"a*", "a?", "[ab]", "a\\b"}) {
    for (const char* pattern : {"/log/m.*", "/l*/m.*", "/log/m.1"}) {
      const Found found = found_matching(path(root), pattern);
      ASSERT_EQ(found.files.size(), 1U) << root << pattern;
      EXPECT_EQ(found.files[0].path, "/log/m.1");
      EXPECT_EQ(found.files[0].head, root);
    }
  }
}

TEST_F(LocalFiles, OfAnyNameAreFoundAndCanBeArchived) {
  const std::string names[] = {"log.a\nb\x01\x7F", "log.\xFF\xC3", "log.a b'\"", "log." + std::string(251, 'x')};
  for (const std::string& name : names) make(name);
  EXPECT_THAT(names_of(found_matching("", path("log.*"))), testing::UnorderedElementsAreArray(names));
  EXPECT_THAT(names_of(find_beside("", path("log"))), testing::UnorderedElementsAreArray(names));
  for (const std::string& name : names) {
    const std::string item = item_path("", 0, name, true).substr(1);
    EXPECT_LE(item.size(), 255U);
    EXPECT_TRUE(std::none_of(item.begin(), item.end(), [](char c) { return c == '\n' || c == '\x01' || c == '\x7F'; }))
        << item;
  }
}

TEST_F(LocalFiles, AroundALogAreTakenAsTheyWereAtOneMoment) {
  make("m", "new\n");
  make("m.1", "old\n");
  const ino_t newest = inode_of("m");
  const ino_t older = inode_of("m.1");
  after_lstat = [this](const std::string& looked_at) {
    if (looked_at != path("m")) return;
    after_lstat = nullptr;
    rename("m.1", "m.2");
    rename("m", "m.1");
    make("m", "newest\n");
  };
  const auto around = look_around("", path("m"));
  ASSERT_TRUE(around);
  ASSERT_TRUE(around->present);
  EXPECT_EQ(around->present->head, "newest\n");
  ASSERT_THAT(names_of(around->beside), ElementsAre("m.1", "m.2"));
  for (const LogFile& file : around->beside.files) {
    EXPECT_EQ(file.inode, file.path == path("m.1") ? newest : older) << file.path;
  }
}

/* A rotation renames and renames back: at each look the name is there, and what has it is elsewhere when it is opened.
 */
TEST_F(LocalFiles, AroundALogAreNotOverlookedBecauseTheyAreElsewhereForAMoment) {
  make("m");
  make("m.1");
  int looks = 0;
  int times = 0; /* that the name was looked at: before it is opened, and again when that has failed */
  after_lstat = [&](const std::string& at) {
    if (at == path("m.1") && ++times % 2 == 1 && looks < 3) rename("m.1", "elsewhere");
  };
  after_open = [&](const std::string& at) {
    if (at == path("m.1") && ++looks <= 3) rename("elsewhere", "m.1");
  };
  const auto around = look_around("", path("m"));
  ASSERT_TRUE(around);
  EXPECT_THAT(names_of(around->beside), ElementsAre("m.1"));
}

TEST_F(LocalFiles, AroundALogThatIsRotatedWithoutEndAreNotTaken) {
  make("m");
  int rotations = 0;
  after_lstat = [&](const std::string& looked_at) {
    if (looked_at != path("m")) return;
    rename("m", "m." + std::to_string(++rotations));
    make("m");
  };
  EXPECT_FALSE(look_around("", path("m")));
  EXPECT_LE(rotations, 100);
}

TEST_F(LocalFiles, AroundALogThatIsNotThereAreItsRotatedOnes) {
  make("m.1");
  const auto around = look_around("", path("m"));
  ASSERT_TRUE(around);
  EXPECT_FALSE(around->present);
  EXPECT_THAT(names_of(around->beside), ElementsAre("m.1"));
}

TEST_F(LocalFiles, AroundALogOfAnotherRootHaveTheirOwnPaths) {
  std::filesystem::create_directories(path("root/var/log"));
  make("root/var/log/m");
  make("root/var/log/m.1");
  const auto around = look_around(path("root"), "/var/log/m");
  ASSERT_TRUE(around && around->present);
  EXPECT_EQ(around->present->path, "/var/log/m");
  ASSERT_EQ(around->beside.files.size(), 1U);
  EXPECT_EQ(around->beside.files[0].path, "/var/log/m.1");
}

TEST_F(LocalFiles, ThatCannotBeReadMayBeTheOneThatIsLookedForOrItsDirectory) {
  std::filesystem::create_directory(path("directory"));
  make("log");
  make("other");
  const auto inode = ::inode_of(*look_at("", path("log")));
  EXPECT_FALSE(may_be_among({}, "", inode));
  EXPECT_FALSE(may_be_among({{path("none"), EACCES, false}, {path("other"), EACCES, false}}, "", inode));
  EXPECT_TRUE(may_be_among({{path("other"), EACCES, false}, {path("log"), EIO, true}}, "", inode));
  EXPECT_TRUE(may_be_among({{"/directory", EACCES, false}}, directory.path(), inode));
}

TEST_F(LocalFiles, LastNewlineIsTheLastOne) {
  EXPECT_EQ(newline_in("one\ntwo\nthr", 0, 11), 7);
  EXPECT_EQ(newline_in("\n", 0, 1), 0);
}

TEST_F(LocalFiles, LastNewlineIsInTheRangeOrNone) {
  EXPECT_EQ(newline_in("one\ntwo\nthr", 4, 7), -1);
  EXPECT_EQ(newline_in("one\ntwo\nthr", 3, 7), 3);
  EXPECT_EQ(newline_in("one\ntwo\nthr", 4, 8), 7);
  EXPECT_EQ(newline_in("", 0, 0), -1);
  EXPECT_EQ(newline_in(std::string(3 * block, 'x'), 0, 3 * block), -1);
}

TEST_F(LocalFiles, LastNewlineIsFoundAtTheEdgesOfBlocks) {
  constexpr int64_t size = 3 * block + 10; /* blocks are counted from the end */
  for (const int64_t place : {int64_t{0}, int64_t{9}, int64_t{10}, block + 9, block + 10, 2 * block + 9, size - 1}) {
    std::string content(size, 'x');
    content[0] = content[static_cast<size_t>(place)] = '\n';
    EXPECT_EQ(newline_in(content, 0, size), place);
  }
}

TEST_F(LocalFiles, LastNewlineIsLookedForFromTheEnd) {
  int reads = 0;
  after_pread = [&reads] { ++reads; };
  EXPECT_EQ(newline_in(std::string(4 * block, 'x') + "\nx", 0, 4 * block + 2), 4 * block);
  EXPECT_EQ(reads, 1);
}

TEST_F(LocalFiles, LastNewlineOfAFileThatShrinksIsInWhatIsLeft) { EXPECT_EQ(newline_in("one\ntwo", 0, 2 * block), 3); }

/* Two that differ behind these bytes alone begin alike. */
TEST_F(LocalFiles, AreKnownByTheirFirst1024Bytes) {
  make("log", std::string(1024, 'a') + "b");
  EXPECT_EQ(look_at("", path("log"))->head, std::string(1024, 'a'));
}
