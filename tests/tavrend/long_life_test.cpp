#include <algorithm>
#include <iostream>

#include "endurance/endurance.h"
#include "tavrend/procedures_fixture.h"

/*
 * A daemon that has much to do for long: what it holds does not grow with it.
 */
namespace {

class DaemonsLongLife : public Procedure {
 protected:
  static std::ptrdiff_t descriptors_in(const std::string& process) {
    const std::filesystem::directory_iterator all(process + "/fd");
    return std::distance(begin(all), end(all));
  }

  /* What the daemon holds while it waits. */
  Footprint footprint() const {
    const std::string process = "/proc/" + std::to_string(daemon);
    /* It closes the last caller's connection a moment later than the caller. */
    std::ptrdiff_t fewest = descriptors_in(process);
    for (int look = 0; look < 20; ++look) {
      usleep(50000);
      fewest = std::min(fewest, descriptors_in(process));
    }
    std::ptrdiff_t children = 0;
    for (const auto& thread : std::filesystem::directory_iterator(process + "/task")) {
      std::ifstream list(thread.path() / "children");
      children += std::distance(std::istream_iterator<int>(list), std::istream_iterator<int>());
    }
    long pages = 0;
    std::ifstream(process + "/statm") >> pages >> pages;
    return {fewest, children, pages * (sysconf(_SC_PAGESIZE) / 1024)};
  }

  size_t database_size() const { return static_cast<size_t>(std::filesystem::file_size(state + "/tavrend.db")); }

  void archive(const std::string& section, const std::string& written) {
    ASSERT_EQ(run_task("LogTypeTask." + section), 0);
    wait_until("a round", [&] { return sleeping() == 1 && archive_of(section).size() == written.size(); });
  }
};

}  // namespace

/* Each round has a session of its own. Two rotated files are there at any time. */
TEST_F(DaemonsLongLife, HoldsNoMoreAfterManySessions) {
  const int rounds = repetitions(20, 2000);
  start("[messages]\nfollow = " + log("messages") + "\ninterval = 365d\n");
  ASSERT_EQ(set_config(), 0);
  std::string written;
  Footprint early{};
  size_t early_size = 0;
  for (int round = 1; round <= rounds; ++round) {
    const std::string line = "round " + std::to_string(round) + "\n";
    append("messages", line);
    written += line;
    archive("messages", written);
    if (round % 5 == 0) {
      lab::run("cd " + logs + " && ! mv messages.1 messages.2 2>&1 | grep -v 'No such' && mv messages messages.1");
    }
    if (round == std::max(rounds / 10, 10)) {
      early = footprint();
      early_size = database_size();
    }
  }
  expect_archived("messages", written);
  expect_no_growth(early, footprint());
  std::cout << rounds << " sessions, the database from " << early_size << " to " << database_size() << " bytes\n";
  EXPECT_LE(database_size(), early_size + static_cast<size_t>(rounds) * 100);
  EXPECT_EQ(errors(), "");
}

/* 50 MB in twenty thousand files where scripts/endurance asks for them. */
TEST_F(DaemonsLongLife, ArchivesManySmallFilesOnce) {
  const int count = repetitions(100, 20000);
  constexpr size_t size = 2500;
  const std::string content = many_lines(size).substr(0, size);
  for (int i = 0; i < count; ++i) append("small." + std::to_string(i), std::to_string(i) + content);
  start("[closed]\nfiles = " + log("small.*") + "\ninterval = 365d\n");
  const size_t empty_size = database_size();
  ASSERT_EQ(set_config(), 0);
  ASSERT_EQ(run_task("LogTypeTask.closed"), 0);
  Footprint early{};
  const int early_count = std::max(count / 10, 20);
  wait_until(
      "the first files", [&] { return archived_since_the_start(1) >= early_count; }, 7200);
  early = footprint();
  wait_until(
      "all files", [&] { return archived_since_the_start(1) == count && sleeping() == 1; }, 7200);
  Footprint late = footprint();
  /* Early there was a session. */
  EXPECT_EQ(late.children, 0);
  late.children = early.children;
  late.descriptors = std::max(early.descriptors, late.descriptors);
  expect_no_growth(early, late, noise_of_a_thread + count / 4);
  EXPECT_EQ(items("closed").size(), static_cast<size_t>(count));
  for (const std::string& name : items("closed")) {
    const std::string number = name.substr(name.rfind('.') + 1);
    ASSERT_EQ(read_file(lab::archived("closed/" + name)), number + content);
  }
  std::cout << count << " files in one session, the database from " << empty_size << " to " << database_size()
            << " bytes\n";
  EXPECT_LE(database_size(), empty_size + static_cast<size_t>(count) * 150 + 20000);
  EXPECT_EQ(errors(), "");
}
