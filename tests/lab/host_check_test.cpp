#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <utility>

#include "lab/lab.h"
#include "support/files.h"

using testing::HasSubstr;
using testing::StartsWith;

namespace {

/* The test of the real archive host, well and ill. */
class HostCheckInTheLab : public LabTest {
 protected:
  std::string test_error() {
    TavrenHost& host = connected_session();
    return error_of([&] { host.test_host(); });
  }

  /* Takes a program away from the archive host. */
  static void remove_program(const std::string& name) {
    write_file(lab::value("LAB") + "/nothing", "");
    lab::change_machine("mount --bind $LAB/nothing /usr/bin/" + name);
  }

  /* Puts a script into the place of a program, which it finds at $real. */
  static void replace_program(const std::string& name, const std::string& script) {
    const std::string real = lab::value("LAB") + "/real_" + name;
    write_file(lab::value("LAB") + "/new_" + name, "#!/bin/sh\nreal=" + real + "\n" + script + "\n");
    lab::change_machine("cp /usr/bin/" + name + " " + real + "; chmod 755 $LAB $LAB/new_*; mount --bind $LAB/new_" +
                        name + " /usr/bin/" + name);
  }

  /* Gives the archive directory a file system with those options. */
  static void limit_space(const std::string& options) {
    lab::change_machine("mount -t tmpfs -o uid=4711,mode=755," + options + " tmpfs $LAB_ARCHIVE");
  }
};

TEST_F(HostCheckInTheLab, PassesAndLeavesNothing) {
  EXPECT_NO_THROW(connected_session().test_host());
  lab::run("[ -z \"$(ls -A $LAB_ARCHIVE)\" ]");
}

TEST_F(HostCheckInTheLab, FailsInAReadOnlyDirectory) {
  lab::run("chmod 555 $LAB_ARCHIVE");
  EXPECT_EQ(test_error(),
            "14\n  - Remote command \"/bin/mkdir -p 'test'\" failed with error code 1\n"
            "  - Command output: \"/bin/mkdir: cannot create directory 'test': Permission denied\"\n");
}

TEST_F(HostCheckInTheLab, FailsWhenTheContentIsAnotherOrTheListingSortedOtherwise) {
  const std::string incorrect = "\" produced incorrect output: 1 line(s) of output\n  - Command output: ";
  replace_program("ls", "exec $real -r \"$@\"");
  EXPECT_EQ(test_error(), "10\n  - Remote command \"/bin/ls -1 test | /usr/bin/head -n 1 " + incorrect +
                              "\"2000-01-01T00:00:01\"\n  - Expected output: \"2000-01-01T00:00:00\"\n");
  replace_program("head", "echo other text");
  EXPECT_EQ(test_error(), "10\n  - Remote command \"/usr/bin/head -n 1 test/2000-01-01T00:00:00" + incorrect +
                              "\"other text\"\n  - Expected output: \"test file\"\n");
}

/* The last step first: with each program less, the test ends one step earlier. */
TEST_F(HostCheckInTheLab, FailsWithoutAnyOfItsPrograms) {
  const std::pair<const char*, const char*> programs[] = {
      {"rm", "/bin/rm -f -r test\" failed with error code 126\n"},
      {"du", "/usr/bin/du -sk test\" failed with error code 126\n"},
      {"head", "/usr/bin/head -n 1 test/2000-01-01T00:00:00\" failed with"},
      {"scp", "scp -q -t 'test/2000-01-01T00:00:00'\" failed"},
      {"mkdir", "/bin/mkdir -p 'test'\" failed with error code 126\n"}};
  for (const auto& [name, error] : programs) {
    remove_program(name);
    EXPECT_THAT(test_error(), StartsWith(std::string("14\n  - Remote command \"") + error));
  }
}

TEST_F(HostCheckInTheLab, FailsWithoutRoomForEitherFile) {
  const std::pair<const char*, const char*> files[] = {{"size=4096", "01"}, {"nr_inodes=2", "00"}};
  for (const auto& [space, second] : files) {
    limit_space(space);
    const std::string error = test_error();
    EXPECT_THAT(error, StartsWith(std::string("14\n  - Remote command \"scp -q -t 'test/2000-01-01T00:00:") + second +
                                  "'\" failed"));
    EXPECT_THAT(error, HasSubstr("No space left on device"));
  }
}

TEST_F(HostCheckInTheLab, SizesLeaveOutWhatCannotBeRead) {
  lab::run(
      "mkdir -m 755 $LAB_ARCHIVE/open $LAB_ARCHIVE/open/in; mkdir -m 000 $LAB_ARCHIVE/open/closed; "
      "head -c 100000 /dev/zero >$LAB_ARCHIVE/open/in/file; head -c 5000 /dev/zero >$LAB_ARCHIVE/log");
  std::map<std::string, int> sizes;
  EXPECT_TRUE(connected_session().get_dir_sizes("*", sizes));
  EXPECT_EQ(sizes.size(), 2U);
  EXPECT_EQ(sizes["log"], 8);
  EXPECT_GE(sizes["open"], 98);
}

}  // namespace
