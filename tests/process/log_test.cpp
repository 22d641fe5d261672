#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/close_range.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <set>
#include <sstream>

#include "TavrenTunables.h"
#include "process/children.h"
#include "process/observe.h"
#include "support/files.h"
#include "support/run_in_child.h"
#include "support/temporary_directory.h"
#include "tavren_assert.h"

namespace {

const std::string rule = "\n" + std::string(77, '-') + "\n";

void set_limit(const std::string& bytes) {
  std::string error;
  TavrenTunables::instance().set_tunable("subprocess_log_size", bytes, error);
}

/* The log is opened once in a process, so each test has processes of its own for it. */
class ChildOutputLog : public testing::Test {
 protected:
  ChildOutputLog() { std::filesystem::create_directory(home.path("tavren_tmp")); }

  std::string path(const std::string& name = "tavren_child_output.tester") const {
    return home.path("tavren_tmp/" + name);
  }
  bool exists(const std::string& name) const { return std::filesystem::exists(path(name)); }
  std::string current() const { return read_file(path()); }
  std::string previous() const { return read_file(path() + ".0"); }

  /* Puts a directory where the log belongs, and keeps it from being moved away. */
  void make_unwritable() const {
    std::filesystem::create_directory(path());
    write_file(path() + ".0", "");
  }

  /* Runs action in a process with that limit, and returns what it printed. */
  std::string run(const std::string& limit, const std::function<void()>& action) const {
    const Outcome outcome = run_in_child([&] {
      setenv("TAVREN_HOME", home.path().c_str(), 1);
      tavren_set_program_name("/usr/sbin/tester");
      set_limit(limit);
      action();
    });
    EXPECT_TRUE(outcome.exited_with(0)) << outcome.err;
    return outcome.out;
  }

  /* The same for a child that prints pieces of the given sizes, each read, and so logged, as a whole. */
  void log_pieces(const std::string& limit, const std::string& sizes) const {
    run("0", [&] {
      TavrenProcess child = shell("for i in " + sizes +
                                  "; do read -r go; head -c $i /dev/zero | tr '\\0' $(($i % 10)); done; read -r go");
      set_limit(limit);
      std::istringstream list(sizes);
      for (size_t size = 0; list >> size;) {
        child.send("\n", patience);
        next_bytes(child, size);
      }
    });
  }

  static std::string piece(size_t size) { return std::string(size, static_cast<char>('0' + size % 10)); }

 private:
  const TemporaryDirectory home;
};

}  // namespace

TEST_F(ChildOutputLog, IsOffByDefault) {
  run("default", [] {
    TavrenProcess child("/bin/echo", {"line"}, false);
    next_line(child);
  });
  EXPECT_TRUE(std::filesystem::is_empty(std::filesystem::path(path()).parent_path()));
}

TEST_F(ChildOutputLog, BeginsWithABannerThatShowsTheCommandAsPassed) {
  run("10000", [] { TavrenProcess("/bin/true ", {"one", "", "t w o"}, false).stop(0); });
  EXPECT_EQ(current(), rule + "STARTING CHILD: /bin/true  one  t w o\n");
}

TEST_F(ChildOutputLog, BannerOfAProgramWithoutArguments) {
  run("10000", [] { TavrenProcess("/bin/true", {}, false).stop(0); });
  EXPECT_EQ(current(), rule + "STARTING CHILD: /bin/true\n");
}

TEST_F(ChildOutputLog, HoldsTheOutputUnaltered) {
  run("10000", [] {
    TavrenProcess child("/usr/bin/printf", {"\\rline\\r\\n\\000\\377prompt: "}, false);
    all_output(child);
  });
  const std::string output("\rline\r\n\0\xffprompt: ", 17);
  EXPECT_EQ(current(), rule + "STARTING CHILD: /usr/bin/printf \\rline\\r\\n\\000\\377prompt: \n" + output);
}

TEST_F(ChildOutputLog, HoldsNothingThatIsSent) {
  run("10000", [] {
    TavrenProcess child = shell("read -r password; echo ok");
    child.send("secret\n", patience);
    next_line(child);
  });
  EXPECT_EQ(current(), rule + "STARTING CHILD: /bin/sh -c read -r password; echo ok\nok\n");
}

TEST_F(ChildOutputLog, IsSharedByAllChildren) {
  run("10000", [] {
    for (const char* word : {"first", "second"}) {
      TavrenProcess child("/bin/echo", {word}, false);
      next_line(child);
    }
  });
  EXPECT_EQ(current(),
            rule + "STARTING CHILD: /bin/echo first\nfirst\n" + rule + "STARTING CHILD: /bin/echo second\nsecond\n");
}

TEST_F(ChildOutputLog, IsNamedForTheProgramAtTheFirstWrite) {
  run("10000", [] {
    tavren_set_program_name("other");
    TavrenProcess("/bin/true", {}, false).stop(0);
    tavren_set_program_name("third");
    TavrenProcess("/bin/false", {}, false).stop(0);
  });
  EXPECT_EQ(read_file(path("tavren_child_output.other")),
            rule + "STARTING CHILD: /bin/true\n" + rule + "STARTING CHILD: /bin/false\n");
  EXPECT_FALSE(exists("tavren_child_output.third"));
}

TEST_F(ChildOutputLog, RotatesBeforeAPieceThatWouldPassTheLimit) {
  log_pieces("100", "60 50");
  EXPECT_EQ(previous(), piece(60));
  EXPECT_EQ(current(), piece(50));
}

TEST_F(ChildOutputLog, IsFilledUpToTheLimit) {
  log_pieces("100", "60 40");
  EXPECT_EQ(current(), piece(60) + piece(40));
  EXPECT_FALSE(exists("tavren_child_output.tester.0"));
}

TEST_F(ChildOutputLog, RotatesOneByteAfterTheLimit) {
  log_pieces("100", "60 41");
  EXPECT_EQ(previous(), piece(60));
  EXPECT_EQ(current(), piece(41));
}

TEST_F(ChildOutputLog, HoldsAPieceLargerThanTheLimitAsAWhole) {
  log_pieces("100", "20 150 30");
  EXPECT_EQ(previous(), piece(150));
  EXPECT_EQ(current(), piece(30));
}

TEST_F(ChildOutputLog, KeepsTwoGenerations) {
  log_pieces("100", "61 72 83");
  EXPECT_EQ(previous(), piece(72));
  EXPECT_EQ(current(), piece(83));
}

TEST_F(ChildOutputLog, CountsAnewInANewFile) {
  log_pieces("100", "60 50 45");
  EXPECT_EQ(previous(), piece(60));
  EXPECT_EQ(current(), piece(50) + piece(45));
}

TEST_F(ChildOutputLog, WritesTheBannerInSeparatePieces) {
  run("80", [] { TavrenProcess("/bin/true", {"argument"}, false).stop(0); });
  EXPECT_EQ(previous(), rule);
  EXPECT_EQ(current(), "STARTING CHILD: /bin/true argument\n");
}

TEST_F(ChildOutputLog, WritesEachArgumentAsAPieceOfItsOwn) {
  run("30", [] { TavrenProcess("/bin/true", {"argument", "next"}, false).stop(0); });
  EXPECT_EQ(previous(), "STARTING CHILD: /bin/true");
  EXPECT_EQ(current(), " argument next\n");
}

TEST_F(ChildOutputLog, OfAnEarlierRunIsMovedAtTheFirstWrite) {
  write_file(path(), "earlier run");
  write_file(path() + ".0", "still earlier run");
  run("10000", [] { TavrenProcess("/bin/true", {}, false).stop(0); });
  EXPECT_EQ(previous(), "earlier run");
  EXPECT_EQ(current(), rule + "STARTING CHILD: /bin/true\n");
}

TEST_F(ChildOutputLog, OfAnEarlierRunStaysWhileTheLogIsOff) {
  write_file(path(), "earlier run");
  run("0", [] { TavrenProcess("/bin/true", {}, false).stop(0); });
  EXPECT_EQ(current(), "earlier run");
}

TEST_F(ChildOutputLog, StaysOpenOnceOpened) {
  run("0", [this] {
    TavrenProcess child("/bin/cat", {}, false);
    set_limit("1000");
    for (const char* line : {"first", "second"}) {
      child.send(std::string(line) + "\n", patience);
      next_line(child);
      if (exists("tavren_child_output.tester")) std::filesystem::rename(path(), path("elsewhere"));
    }
  });
  EXPECT_EQ(read_file(path("elsewhere")), "first\nsecond\n");
}

TEST_F(ChildOutputLog, HoldsNothingOfWhatIsDroppedAsExcessive) {
  run("0", [] {
    TavrenProcess child("/bin/cat", {"/dev/zero"}, false);
    set_limit("1000000");
    result_of_reading_on(child);
  });
  EXPECT_LE(current().size(), 102400U);
}

TEST_F(ChildOutputLog, MayBeTurnedOnAndOff) {
  run("0", [] {
    TavrenProcess child("/bin/cat", {}, false);
    for (const char* limit : {"0", "1000", "0", "1000"}) {
      set_limit(limit);
      child.send(std::string(limit) + "\n", patience);
      next_line(child);
    }
  });
  EXPECT_EQ(current(), "1000\n1000\n");
}

TEST_F(ChildOutputLog, IsReadableByAllTheUmaskAllows) {
  run("10000", [] {
    umask(027);
    TavrenProcess("/bin/true", {}, false).stop(0);
  });
  struct stat status {};
  ASSERT_EQ(stat(path().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0640U);
}

TEST_F(ChildOutputLog, ReachesNoChild) {
  const std::string output = run("10000", [] {
    close_range(3, ~0U, CLOSE_RANGE_CLOEXEC);
    TavrenProcess first("/bin/true", {}, false);
    TavrenProcess child = shell("echo $$; read -r line");
    const pid_t pid = announced_pid(child);
    printf("%zu", open_descriptors(pid).size());
  });
  EXPECT_EQ(output, "3");
}

TEST_F(ChildOutputLog, TakesNoStandardStreamThatTheHostHasClosed) {
  const std::string output = run("10000", [] {
    const int report = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 100);
    for (const int fd : {0, 1, 2}) close(fd);
    TavrenProcess child("/bin/true", {}, false);
    dprintf(report, "%s", *open_descriptors().begin() > STDERR_FILENO ? "none" : "taken");
  });
  EXPECT_EQ(output, "none");
}

TEST_F(ChildOutputLog, ThatCannotBeOpenedFailsTheConstructionAndLeavesNothing) {
  make_unwritable();
  const std::string output = run("10000", [] {
    const std::set<int> before = open_descriptors();
    printf("%s", result_of([] { TavrenProcess("/bin/true", {}, true).stop(0); }).c_str());
    printf("%s", open_descriptors() == before && !has_children() ? "" : " something left");
  });
  EXPECT_EQ(output, "24(write(log_child_output), 21)");
}

TEST_F(ChildOutputLog, ThatCannotBeOpenedFailsTheRead) {
  make_unwritable();
  const std::string output = run("0", [] {
    TavrenProcess child("/bin/echo", {"line"}, false);
    set_limit("10000");
    printf("%s", result_of([&child] { next_line(child); }).c_str());
  });
  EXPECT_EQ(output, "24(write(log_child_output), 21)");
}

TEST_F(ChildOutputLog, OpensAgainOnceItCan) {
  make_unwritable();
  run("10000", [this] {
    result_of([] { TavrenProcess("/bin/false", {}, false).stop(0); });
    std::filesystem::remove(path());
    TavrenProcess("/bin/true", {}, false).stop(0);
  });
  EXPECT_EQ(current(), rule + "STARTING CHILD: /bin/true\n");
}
