#include <gtest/gtest.h>

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

/* Returns whether prefix is found in such a child's output, before its first line. */
bool is_found(const std::string& prefix, const std::string& output) {
  TavrenProcess child = prompting(output);
  return finds_prompt(child, prefix);
}

}  // namespace

TEST(Prefix, IsFoundAtEverySplitOfItsBytes) { expect_found_at_every_split(prompt); }

TEST(Prefix, IsFoundAtEverySplitBehindACarriageReturn) { expect_found_at_every_split("\r" + prompt); }

TEST(Prefix, IsFoundAtEverySplitBehindSeveralCarriageReturns) { expect_found_at_every_split("\r\r\r" + prompt); }

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

TEST(Prefix, BehindACarriageReturnWinsOverALineBehindIt) { EXPECT_TRUE(is_found(prompt, "\r" + prompt + "\r\n")); }

TEST(Prefix, InsideALineIsNone) { EXPECT_FALSE(is_found(prompt, "a " + prompt + "\nend\n")); }

TEST(Prefix, BehindACarriageReturnInsideALineIsNone) { EXPECT_FALSE(is_found(prompt, "a\r" + prompt + "\nend\n")); }

TEST(Prefix, BehindABlankIsNone) { EXPECT_FALSE(is_found(prompt, " " + prompt + "\nend\n")); }

TEST(Prefix, ThatIsEmptyIsNeverFound) { EXPECT_FALSE(is_found("", "line\n")); }

TEST(Prefix, MayBeginWithACarriageReturnItself) { EXPECT_TRUE(is_found("\rprompt", "\rprompt")); }

TEST(Prefix, ThatBeginsWithACarriageReturnIsFoundBehindMoreOfThem) {
  EXPECT_TRUE(is_found("\rprompt", "\r\r\rprompt"));
}

TEST(Prefix, ThatBeginsWithMoreCarriageReturnsThanTheOutputIsNotFound) {
  EXPECT_FALSE(is_found("\r\rprompt", "\rprompt\n"));
}

TEST(Prefix, MayBeCarriageReturnsAlone) { EXPECT_TRUE(is_found("\r\r", "\r\r\rline\n")); }

TEST(Prefix, MayHoldANewline) { EXPECT_TRUE(is_found("first\nsec", "first\nsecond\n")); }

TEST(Prefix, LikeALineOfOutputIsFoundBeforeItsLineEnds) {
  EXPECT_TRUE(is_found("Are you sure you want to continue connecting",
                       "Are you sure you want to continue connecting (yes/no/[fingerprint])? "));
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
