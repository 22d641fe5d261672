#include <gtest/gtest.h>

#include <tuple>

#include "process/children.h"

namespace {

const std::string prompt = "archiver@archive's password: ";

/* Prints ready and, with it, the first part; the second one after a line of input. */
TavrenProcess in_two_parts(const std::string& first, const std::string& second) {
  return TavrenProcess(
      "/bin/sh", {"-c", "printf 'ready\\n%s' \"$1\"; read -r go; printf %s \"$2\"; read -r go", "sh", first, second},
      false);
}

bool finds_prompt(TavrenProcess& child, const std::string& prefix) {
  std::string line;
  return child.read_line(line, patient_deadline(), prefix);
}

/* Lets the prompt arrive in two parts, split at every byte, and takes in the first before the second is sent. */
void expect_found_at_every_split(const std::string& output) {
  for (size_t split = 0; split <= output.size(); ++split) {
    TavrenProcess child = in_two_parts(output.substr(0, split), output.substr(split));
    ASSERT_EQ(next_line(child), "ready");
    std::string line;
    const std::string early = result_of([&] { child.read_line(line, past_deadline(), prompt); });
    ASSERT_EQ(early, split == output.size() ? "done" : "TavrenTimeout") << split;
    child.send("\n", patience);
    ASSERT_TRUE(finds_prompt(child, prompt)) << split;
    ASSERT_EQ(next_bytes(child, output.size()), output) << split;
    child.stop(0);
  }
}

/* A child that prints output and waits. */
TavrenProcess prompting(const std::string& output) {
  return TavrenProcess("/bin/sh", {"-c", "printf %s \"$1\"; read -r go", "sh", output}, false);
}

}  // namespace

TEST(Prefix, IsFoundAtEverySplitOfItsBytesAndOfCarriageReturnsBeforeThem) {
  for (const char* returns : {"", "\r", "\r\r\r"}) expect_found_at_every_split(returns + prompt);
}

TEST(Prefix, StaysUnread) {
  TavrenProcess child = prompting("\r" + prompt + "and more");
  EXPECT_TRUE(finds_prompt(child, prompt));
  EXPECT_TRUE(finds_prompt(child, prompt));
  EXPECT_EQ(next_bytes(child, 1 + prompt.size()), "\r" + prompt);
}

TEST(Prefix, LeavesLineAndRecentLinesAlone) {
  TavrenProcess child = prompting(prompt);
  std::string line = "old text";
  ASSERT_TRUE(child.read_line(line, patient_deadline(), prompt));
  EXPECT_EQ(line, "old text");
  EXPECT_TRUE(child.get_recent_lines().empty());
}

TEST(Prefix, ComesAfterTheLinesBeforeIt) {
  TavrenProcess child = prompting("line\n" + prompt);
  std::string line;
  EXPECT_FALSE(child.read_line(line, patient_deadline(), prompt));
  EXPECT_EQ(line, "line");
  EXPECT_TRUE(child.read_line(line, patient_deadline(), prompt));
}

TEST(Prefix, AtTheFrontWinsOverALineBehindIt) {
  TavrenProcess child = prompting(prompt + "and a line\n");
  EXPECT_TRUE(finds_prompt(child, prompt));
  EXPECT_EQ(next_line(child), prompt + "and a line");
}

/* It may hold a newline, and be like a line of output. */
TEST(Prefix, IsFoundAtTheFrontBehindNothingButCarriageReturns) {
  const std::string question = "Are you sure you want to continue connecting";
  const std::tuple<std::string, std::string, bool> outputs[] = {{prompt, "\r" + prompt + "\r\n", true},
                                                                {prompt, "a " + prompt + "\nend\n", false},
                                                                {prompt, "a\r" + prompt + "\nend\n", false},
                                                                {prompt, " " + prompt + "\nend\n", false},
                                                                {"", "line\n", false},
                                                                {"\rprompt", "\rprompt", true},
                                                                {"\rprompt", "\r\r\rprompt", true},
                                                                {"\r\r", "\r\r\rline\n", true},
                                                                {"\r\rprompt", "\rprompt\n", false},
                                                                {"first\nsec", "first\nsecond\n", true},
                                                                {question, question + " (yes/no)? ", true}};
  for (const auto& [prefix, output, found] : outputs) {
    TavrenProcess child = prompting(output);
    EXPECT_EQ(finds_prompt(child, prefix), found) << testing::PrintToString(output);
  }
}

TEST(ReadUntilLineStartsWith, DropsTheLinesBeforeThePrefix) {
  TavrenProcess child = prompting("first\nsecond " + prompt + "\n\r\n" + prompt);
  child.read_until_line_starts_with(prompt, patient_deadline());
  EXPECT_EQ(next_bytes(child, prompt.size()), prompt);
}

TEST(ReadUntilLineStartsWith, StopsAtTheFirstOfTwo) {
  TavrenProcess child = prompting("line\n> first\n> second\n");
  child.read_until_line_starts_with(">", patient_deadline());
  EXPECT_EQ(next_line(child), "> first");
}

TEST(ReadUntilLineStartsWith, TakesNothingThatIsThereAlready) {
  TavrenProcess child = prompting(prompt);
  child.read_until_line_starts_with(prompt, patient_deadline());
  child.read_until_line_starts_with(prompt, past_deadline());
  EXPECT_EQ(next_bytes(child, prompt.size()), prompt);
}

TEST(ReadUntilLineStartsWith, WithoutAPrefixEndsWithTheOutput) {
  TavrenProcess child("/usr/bin/printf", {"first\\nsecond\\nunfinished"}, false);
  EXPECT_EQ(result_of([&] { child.read_until_line_starts_with("", 2147483647); }),
            "13(/usr/bin/printf) 12(first) 12(second)");
}
