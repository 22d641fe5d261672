#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "host/transfer_fixture.h"

namespace {

using Sizes = std::map<std::string, int>;

std::string parsed(const std::string& line) {
  std::string name = "untouched";
  int size = -7;
  const int result = TavrenHost::parse_du_output_line(line, name, size);
  return std::to_string(result) + " " + std::to_string(size) + " " + name;
}

TEST(DiskUsageLine, IsASizeATabAndAName) {
  EXPECT_EQ(parsed("12\tlogs"), "0 12 logs");
  EXPECT_EQ(parsed("12\t"), "0 12 ");
  EXPECT_EQ(parsed("12\t two  words \xc3\xa4\xff"), "0 12  two  words \xc3\xa4\xff");
  EXPECT_EQ(parsed("12\ta\tb"), "0 12 a\tb"); /* the size ends at the first tab */
}

TEST(DiskUsageLine, LosesTheSlashAndThePointAtItsEnd) {
  EXPECT_EQ(parsed("12\tlogs/."), "0 12 logs");
  EXPECT_EQ(parsed("12\t/."), "0 12 ");
}

TEST(DiskUsageLine, KeepsOtherEnds) {
  for (const std::string name : {"logs/", "logs.", ".", "logs/..", "logs/./x"}) {
    EXPECT_EQ(parsed("12\t" + name), "0 12 " + name);
  }
}

TEST(DiskUsageLine, WithoutATabOrANumberBeforeItIsNone) {
  for (const char* line : {"12 logs", "12K\tlogs", "\tlogs", ""}) EXPECT_EQ(parsed(line), "-1 -7 untouched") << line;
}

class DirectorySizes : public TransferTest {
 protected:
  DirectorySizes() { set_tunable("ssh_du_command_timeout", "30"); }

  void make(const std::string& path, size_t kibibytes) const {
    std::filesystem::create_directories(std::filesystem::path(directory.path(path)).parent_path());
    write_file(directory.path(path), std::string(kibibytes * 1024, 'x'));
  }

  /* What the real program says of path. */
  int measured(const std::string& path) {
    return std::stoi(output_of(host, "du -sk " + TavrenHost::quote_for_shell(path)));
  }

  Sizes sizes;
};

TEST_F(DirectorySizes, AreThoseOfWhatThePatternMatches) {
  make("a/x", 100);
  make("b/x", 7);
  make("other/x", 1);
  EXPECT_TRUE(host.get_dir_sizes("[ab]", sizes));
  EXPECT_EQ(sizes, (Sizes{{"a", measured("a")}, {"b", measured("b")}}));
  EXPECT_GE(sizes["a"], 100);
}

TEST_F(DirectorySizes, OfAPatternThatEndsInASlashAndAPointAreNamedWithoutThem) {
  make("a/x", 1);
  EXPECT_TRUE(host.get_dir_sizes("*/.", sizes));
  EXPECT_EQ(sizes, (Sizes{{"a", measured("a")}}));
}

TEST_F(DirectorySizes, OfOddNamesAreFound) {
  make("two  words", 1);
  make("\xc3\xa4\xff", 1);
  make("it's", 1);
  make("a\tb", 1);
  EXPECT_TRUE(host.get_dir_sizes("*", sizes));
  EXPECT_EQ(sizes.size(), 4U);
  for (const char* name : {"two  words", "\xc3\xa4\xff", "it's", "a\tb"}) EXPECT_EQ(sizes.count(name), 1U) << name;
}

/* The program prints the newline as it is: the name is cut there, and the rest is a line that is skipped. */
TEST_F(DirectorySizes, OfANameWithANewlineAreNamedByItsFirstLine) {
  make("first\nsecond", 1);
  EXPECT_TRUE(host.get_dir_sizes("*", sizes));
  EXPECT_EQ(sizes.size(), 1U);
  EXPECT_EQ(sizes.count("first"), 1U);
}

TEST_F(DirectorySizes, OfALaterLineReplaceThoseOfAnEarlierOneAndThoseThatAreThere) {
  sizes = {{"b", 1}, {"old", 2}};
  set_command("du", "printf '1\\ta\\n2\\tb\\n3\\ta\\n' #");
  EXPECT_TRUE(host.get_dir_sizes("*", sizes));
  EXPECT_EQ(sizes, (Sizes{{"a", 3}, {"b", 2}, {"old", 2}}));
}

TEST_F(DirectorySizes, OfNothingAreNoneAndNoError) {
  EXPECT_FALSE(host.get_dir_sizes("no-such-*", sizes));
  EXPECT_EQ(sizes, Sizes{});
}

TEST_F(DirectorySizes, AreTakenWhateverTheStatus) {
  set_command("du", "printf 'du: cannot read\\n4\\ta\\n'; (exit 126) #");
  EXPECT_TRUE(host.get_dir_sizes("*", sizes));
  EXPECT_EQ(sizes, (Sizes{{"a", 4}}));
  EXPECT_TRUE(recorded_system::take_console().empty());
}

TEST_F(DirectorySizes, WithoutAProgramToMeasureAreAFailedCommand) {
  set_command("du", "printf 'one\\ntwo\\nthree\\nfour\\nfive\\nsix\\n'; (exit 127) #");
  EXPECT_EQ(
      error_body([this] { host.get_dir_sizes("*", sizes); }),
      "  - Remote command \"printf 'one\\ntwo\\nthree\\nfour\\nfive\\nsix\\n'; (exit 127) # *\" failed with error code "
      "127\n"
      "  - Command output: \"one\"\n  - Command output: \"two\"\n  - Command output: \"three\"\n"
      "  - Command output: \"four\"\n  - Command output: \"five\"\n  - Command output: \"six\"\n");
  EXPECT_EQ(recorded_system::take_console(),
            std::vector<std::string>{"\nWARNING: Log Archiving unable to communicate with archive host \n"});
}

TEST_F(DirectorySizes, WithAProgramThatIsNotThereAreAFailedCommand) {
  set_command("du", "/no/such/du");
  EXPECT_EQ(error_body([this] { host.get_dir_sizes("*", sizes); }),
            "  - Remote command \"/no/such/du *\" failed with error code 127\n"
            "  - Command output: \"/bin/sh: 3: /no/such/du: not found\"\n");
}

/* Long before the time of another command is over, the program would have ended. */
TEST_F(DirectorySizes, MayTakeTheirOwnTime) {
  set_tunable("ssh_du_command_timeout", "1");
  set_tunable("ssh_command_timeout", "1000");
  set_command("du", "sleep 30 #");
  EXPECT_EQ(error_body([this] { host.get_dir_sizes("*", sizes); }),
            "  - Timeout occurred while running remote command: \"sleep 30 # *\"\n");
}

}  // namespace
