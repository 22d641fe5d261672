#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <tuple>
#include <utility>

#include "host/measured_time.h"
#include "host/transfer_fixture.h"

namespace {

constexpr char first_file[] = "test/2000-01-01T00:00:00";
constexpr char second_file[] = "test/2000-01-01T00:00:01";

/* The test of an archive host, whose directory is the test's own. */
class HostCheck : public TransferTest {
 protected:
  std::string test_error() {
    return error_body([this] { host.test_host(); });
  }
  bool left(const std::string& name) const { return std::filesystem::exists(directory.path(name)); }
};

TEST_F(HostCheck, PassesOnAHostThatIsWellAndLeavesNothing) {
  EXPECT_NO_THROW(host.test_host());
  EXPECT_TRUE(std::filesystem::is_empty(directory.path()));
}

TEST_F(HostCheck, PassesWhereATestDirectoryWasLeftBehind) {
  std::filesystem::create_directory(directory.path("test"));
  write_file(directory.path(first_file), "old");
  EXPECT_NO_THROW(host.test_host());
  EXPECT_FALSE(left("test"));
}

TEST_F(HostCheck, TakesItsStepsInOrder) {
  recorded_system::record_writes();
  host.test_host();
  std::string written;
  for (const std::string& piece : recorded_system::take_writes()) written += piece;
  size_t position = 0;
  for (const char* step :
       {"; /bin/mkdir -p 'test'\n", "scp -q -t 'test/2000-01-01T00:00:00'", "C0644 10 2000-01-01T00:00:00\ntest file\n",
        "scp -q -t 'test/2000-01-01T00:00:01'", "C0644 10 2000-01-01T00:00:01\ntest file\n",
        "; /usr/bin/head -n 1 test/2000-01-01T00:00:00\n", "; /bin/ls -1 test | /usr/bin/head -n 1 \n",
        "; /usr/bin/du -sk test\n", "; /bin/rm -f -r test\n"}) {
    position = written.find(step, position);
    ASSERT_NE(position, std::string::npos) << step << "in\n" << written;
  }
}

TEST_F(HostCheck, FailsWhenNoDirectoryCanBeMade) {
  set_command("mkdir", "false");
  EXPECT_EQ(test_error(), "  - Remote command \"false 'test'\" failed with error code 1\n");
  EXPECT_FALSE(left("test"));
}

TEST_F(HostCheck, FailsWhenEitherFileCannotBeSent) {
  const std::string no_room = "printf '\\001No space left on device\\n'\nread -r line\n";
  for (const auto& [unless, refused, there] :
       {std::tuple{"", first_file, "test"},
        {"case $1 in *00) exec scp -q -t \"$1\";; esac\n", second_file, first_file}}) {
    use_sink(unless + no_room);
    EXPECT_EQ(test_error(), "  - Remote command \"" + sink_command(refused) +
                                "\" failed with error code 1\n  - Command output: \"No space left on device\"\n");
    EXPECT_TRUE(left(there));
    start_over();
  }
}

TEST_F(HostCheck, FailsWhenTheFileReadsOtherwise) {
  set_command("head", "echo");
  EXPECT_EQ(test_error(),
            "  - Remote command \"echo test/2000-01-01T00:00:00\" produced incorrect output: 1 line(s) of output\n"
            "  - Command output: \"test/2000-01-01T00:00:00\"\n"
            "  - Expected output: \"test file\"\n");
}

TEST_F(HostCheck, FailsWhenThereIsNoProgramToReadTheFile) {
  set_command("head", "no-such-program");
  EXPECT_EQ(first_lines(test_error(), 1),
            "  - Remote command \"no-such-program test/2000-01-01T00:00:00\" failed with error code 127\n");
}

TEST_F(HostCheck, FailsWhenTheListingIsSortedOtherwise) {
  set_command("ls", "/bin/ls -1r");
  EXPECT_EQ(test_error(),
            "  - Remote command \"/bin/ls -1r test | /usr/bin/head -n 1 \" produced incorrect output: 1 line(s) of "
            "output\n"
            "  - Command output: \"2000-01-01T00:00:01\"\n"
            "  - Expected output: \"2000-01-01T00:00:00\"\n");
  EXPECT_TRUE(left(second_file));
}

TEST_F(HostCheck, FailsWhenTheDirectoryCannotBeRemovedAndBeforeWhenSizesCannotBeMeasured) {
  for (const auto& [command, sent] : {std::pair{"rm", "false -r test"}, {"du", "false test"}}) {
    set_command(command, "false");
    EXPECT_EQ(test_error(), std::string("  - Remote command \"") + sent + "\" failed with error code 1\n");
    EXPECT_TRUE(left(second_file));
  }
}

/* A size program that says nothing more. */
class HostCheckTime : public HostCheck, protected MeasuredTime {};

TEST_F(HostCheckTime, SizesAreMeasuredWithinTheTimeOfACommand) {
  const ScriptedClient du(": >$dir/silence; exec sleep 100", "du");
  set_command("du", du.path());
  start_measuring(du.path("silence"));
  EXPECT_EQ(test_error(), "  - Timeout occurred while running remote command: \"" + du.path() + " test\"\n");
  EXPECT_EQ(passed(), all_of(command_time));
}

}  // namespace
