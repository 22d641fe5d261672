#ifndef TESTS_PROCESS_LOG_FIXTURE_H
#define TESTS_PROCESS_LOG_FIXTURE_H

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "TavrenTunables.h"
#include "process/children.h"
#include "support/files.h"
#include "support/run_in_child.h"
#include "support/temporary_directory.h"
#include "tavren_assert.h"

/* What comes before each child in the log. */
inline const std::string rule = "\n" + std::string(77, '-') + "\n";

inline void set_limit(const std::string& bytes) {
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

  /* Puts something where the log before belongs that no file can replace. */
  void make_unmovable() const { std::filesystem::create_directories(path() + ".0/kept"); }

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

  /* Expects the log before, and the log, to be the pieces of these sizes, and takes both away; 0 is no log before. */
  void expect_pieces(size_t of_previous, const std::vector<size_t>& of_current) const {
    std::string pieces;
    for (const size_t size : of_current) pieces += piece(size);
    EXPECT_EQ(current(), pieces);
    EXPECT_EQ(exists("tavren_child_output.tester.0") ? previous() : "", piece(of_previous));
    std::filesystem::remove(path());
    std::filesystem::remove(path() + ".0");
  }

  static std::string piece(size_t size) { return std::string(size, static_cast<char>('0' + size % 10)); }

 private:
  const TemporaryDirectory home;
};

#endif
