#include <stdlib.h>

#include <filesystem>
#include <string>

#include "tavrend/procedures_fixture.h"

namespace {

/* The disk of the logs has a place that cannot be read, for a while. */
class BrokenDisk : public Procedure {
 protected:
  void start_with_a_broken_disk(const std::string& configuration) {
    write_file(broken, "");
    setenv("BROKEN_DISK", broken.c_str(), 1);
    setenv("LD_PRELOAD", BROKEN_DISK, 1);
    start(configuration);
    unsetenv("LD_PRELOAD");
    ASSERT_EQ(set_config(), 0);
  }

  void mend_the_disk() const { std::filesystem::remove(broken); }

  const std::string broken = lab::value("LAB") + "/broken";
  const std::string large = many_lines(3000000);
};

}  // namespace

TEST_F(BrokenDisk, InTheMiddleOfAnItemIsReportedAndTheOthersGoOn) {
  append("a.1", large);
  lab::run("touch -d 2026-01-01 " + log("a.1"));
  append("a.2", "small\n");
  start_with_a_broken_disk(closed("a.*"));
  expect_archived("closed", "small\n");
  EXPECT_NE(errors().find("Failed to read from file " + log("a.1") + ", ecode=5"), std::string::npos) << errors();
  mend_the_disk();
  expect_archived("closed", "small\n" + large);
}

TEST_F(BrokenDisk, InTheMiddleOfAPieceLeavesNothingOfItAndLosesNothing) {
  append("messages", large);
  start_with_a_broken_disk("[messages]\nfollow = " + log("messages") + "\ninterval = 1d\n");
  ASSERT_EQ(run_task("LogTypeTask.messages"), 0);
  wait_until("an error", [this] { return errors().find(log("messages") + ", ecode=5") != std::string::npos; });
  wait_until("the end", [] { return sleeping() == 1; });
  EXPECT_EQ(items("messages").size(), 0U);
  append("messages", "more\n");
  mend_the_disk();
  ASSERT_EQ(run_task("LogTypeTask.messages"), 0);
  expect_archived("messages", large + "more\n");
}

TEST_F(BrokenDisk, InTheMiddleOfACompressionIsReportedAndTheOthersGoOn) {
  append("a.1", large);
  lab::run("touch -d 2026-01-01 " + log("a.1"));
  append("a.2", "small\n");
  start_with_a_broken_disk(closed("a.*") + "compress = zstd\n");
  expect_archived("closed", "small\n", plain_archive_of);
  EXPECT_NE(errors().find("Failed to read from file " + log("a.1") + ", ecode=5"), std::string::npos) << errors();
  mend_the_disk();
  expect_archived("closed", "small\n" + large, plain_archive_of);
}
