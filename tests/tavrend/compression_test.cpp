#include "sources/compression.h"

#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <random>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "support/files.h"
#include "support/run_in_child.h"
#include "support/temporary_directory.h"
#include "tavrend/changing_files.h"

using changing_files::after_pread;
using testing::ElementsAre;

namespace {

class Compression : public testing::Test {
 protected:
  ~Compression() override { changing_files::stop(); }

  std::string path(const std::string& name) const { return directory.path(name); }
  void make(const std::string& content) const { write_file(path("log"), content); }

  OpenFile compressed(int64_t first, int64_t length) const {
    return compress(OpenFile("", path("log")), path("log"), first, length, directory.path(), [] {});
  }

  /* What the program that everybody has makes of the result. */
  std::string plain(const OpenFile& result) const {
    const std::string name = "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(result.descriptor());
    const std::string command = "zstd -dc <" + name + " >" + path("plain");
    return system(command.c_str()) == 0 ? read_file(path("plain")) : "zstd has failed";
  }

  std::vector<std::string> names() const {
    std::vector<std::string> all;
    for (const auto& entry : std::filesystem::directory_iterator(directory.path()))
      all.push_back(entry.path().filename());
    return all;
  }

  static std::string noise(size_t size) {
    std::minstd_rand random(4711);
    std::string text(size, '\0');
    std::generate(text.begin(), text.end(), [&random] { return static_cast<char>(random() >> 8); });
    return text;
  }

  static long threads() {
    const std::filesystem::directory_iterator all("/proc/self/task");
    return std::distance(begin(all), end(all));
  }

  /* Compresses that many bytes. Returns how many threads there were beside those of before, at most. */
  long most_more_threads(int64_t length) const {
    make(noise(static_cast<size_t>(length)));
    const long before = threads();
    long most = 0;
    compress(OpenFile("", path("log")), path("log"), 0, length, directory.path(),
             [&most] { most = std::max(most, threads()); });
    return most - before;
  }

  const TemporaryDirectory directory;
};

}  // namespace

TEST_F(Compression, IsUndoneByTheUsualProgram) {
  make("one\ntwo\nthree\n");
  EXPECT_EQ(plain(compressed(0, 14)), "one\ntwo\nthree\n");
  EXPECT_EQ(plain(compressed(4, 4)), "two\n");
}

TEST_F(Compression, OfNothingIsNothing) {
  make("");
  EXPECT_EQ(plain(compressed(0, 0)), "");
}

TEST_F(Compression, GoesOverManyBuffers) {
  const std::string content = noise(1000003);
  make(content);
  EXPECT_EQ(plain(compressed(0, 1000003)), content);
  EXPECT_EQ(plain(compressed(131072, 131072)), content.substr(131072, 131072));
}

TEST_F(Compression, NoticesADamagedResult) {
  const std::string content = noise(100000);
  make(content);
  const OpenFile result = compressed(0, 100000);
  ASSERT_EQ(pwrite(result.descriptor(), "x", 1, 50000), 1);
  EXPECT_NE(plain(result), content);
  EXPECT_EQ(plain(result), "zstd has failed");
}

TEST_F(Compression, EndsBetweenTwoPiecesWhenItsCheckThrows) {
  make(noise(1000000));
  int checks = 0;
  const auto cancel = [&checks] {
    if (++checks == 3) throw std::runtime_error("cancelled");
  };
  EXPECT_THROW(compress(OpenFile("", path("log")), path("log"), 0, 1000000, directory.path(), cancel),
               std::runtime_error);
  EXPECT_EQ(checks, 3);
}

TEST_F(Compression, OfALongFileIsSharedByThreads) { EXPECT_GE(most_more_threads(1000000), 2); }

TEST_F(Compression, OfAShortFileNeedsNoThreads) { EXPECT_LE(most_more_threads(200000), 0); }

TEST_F(Compression, LeavesNoThreadBehindWhenItsCheckThrows) {
  make(noise(1000000));
  const long before = threads();
  const auto cancel_later = [before] {
    if (threads() > before) throw std::runtime_error("cancelled");
  };
  EXPECT_THROW(compress(OpenFile("", path("log")), path("log"), 0, 1000000, directory.path(), cancel_later),
               std::runtime_error);
  /* The kernel shows one for a moment after it was waited for; one that stays is met by the test's time limit. */
  while (threads() > before) sched_yield();
}

TEST_F(Compression, LeavesNoNameBehind) {
  make("text\n");
  const OpenFile result = compressed(0, 5);
  EXPECT_THAT(names(), ElementsAre("log"));
}

TEST_F(Compression, NeedsNoFileSystemThatHasFilesWithoutAName) {
  make("text\n");
  write_file(path("item.tmp"), "what a power cut has left");
  changing_files::has_nameless_files = false;
  const OpenFile result = compressed(0, 5);
  EXPECT_THAT(names(), ElementsAre("log"));
  EXPECT_EQ(plain(result), "text\n");
}

TEST_F(Compression, OfAFileThatShrinksMeanwhileFails) {
  make(noise(1000000));
  after_pread = [this] {
    after_pread = nullptr;
    EXPECT_EQ(truncate(path("log").c_str(), 200000), 0);
  };
  EXPECT_THROW(compressed(0, 1000000), FileChanged);
}

TEST_F(Compression, WithoutADirectoryFails) {
  make("text\n");
  try {
    compress(OpenFile("", path("log")), path("log"), 0, 5, path("none"), [] {});
    FAIL();
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code().value(), ENOENT);
  }
}

TEST_F(Compression, WithoutRoomFails) {
  make(noise(1000000));
  const Outcome outcome = run_in_child([this] {
    signal(SIGXFSZ, SIG_IGN);
    const rlimit room{200000, 200000};
    setrlimit(RLIMIT_FSIZE, &room);
    try {
      compressed(0, 1000000);
    } catch (const std::system_error& error) {
      fputs(error.what(), stdout);
    }
  });
  EXPECT_EQ(outcome.out, "compressing: File too large");
}

TEST_F(Compression, TakesNoMoreMemoryForMore) {
  make("text\n");
  ASSERT_EQ(truncate(path("log").c_str(), 100 * 1024 * 1024), 0);
  const auto peak_kib = [this](int64_t length) {
    return std::stol(run_in_child([&] {
                       compressed(0, length);
                       rusage usage{};
                       getrusage(RUSAGE_SELF, &usage);
                       printf("%ld", usage.ru_maxrss);
                     }).out);
  };
  const long little = peak_kib(10 * 1024 * 1024);
  EXPECT_LT(peak_kib(100 * 1024 * 1024), little + 10 * 1024);
}
