#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <tuple>
#include <utility>
#include <vector>

#include "process/children.h"

using namespace std::string_literals;
using testing::ElementsAre;

namespace {

/* A child whose whole output is given, in the notation of printf(1). */
TavrenProcess printing(const std::string& format) { return TavrenProcess("/usr/bin/printf", {format}, false); }

std::list<std::string> number_list(int first, int last) {
  std::list<std::string> list;
  for (int i = first; i <= last; ++i) list.push_back(std::to_string(i));
  return list;
}

}  // namespace

TEST(ReadLine, TakesOneLineAtATimeWithoutTheCarriageReturnsBeforeItsEnd) {
  const std::pair<const char*, std::vector<std::string>> outputs[] = {
      {"first\\nsecond\\nthird\\n", {"first", "second", "third"}},
      {"none\\none\\r\\nabc\\r\\r\\nmany\\r\\r\\r\\r\\r\\n", {"none", "one", "abc", "many"}},
      {"\\r\\n\\r\\r\\n\\nend\\n", {"", "", "", "end"}},
      {"a\\rb\\r\\r c\\r\\n\\rd\\n", {"a\rb\r\r c", "\rd"}},
      {"\\000a\\000\\377\\200\\033[1m\\t \\n", {"\0a\0\xff\x80\x1b[1m\t "s}}};
  for (const auto& [output, lines] : outputs) {
    TavrenProcess child = printing(output);
    for (const std::string& line : lines) EXPECT_EQ(next_line(child), line) << output;
  }
}

TEST(ReadLine, TakesALineLongerThanOneRead) {
  TavrenProcess child = shell("head -c 50000 /dev/zero | tr '\\0' x; echo; echo next");
  EXPECT_EQ(next_line(child), std::string(50000, 'x'));
  EXPECT_EQ(next_line(child), "next");
}

TEST(ReadLine, JoinsALineThatComesInPieces) {
  TavrenProcess child = shell("echo ready; for i in 1 2 3; do printf $i; read -r go; done; echo");
  ASSERT_EQ(next_line(child), "ready");
  std::string line;
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(result_of([&] { child.read_line(line, past_deadline(), ""); }), "TavrenTimeout");
    child.send("\n", patience);
  }
  EXPECT_EQ(next_line(child), "123");
}

TEST(ReadLine, SplitBetweenCarriageReturnAndNewlineIsOneLineEnd) {
  TavrenProcess child = shell("printf 'ready\\nline\\r'; read -r go; printf '\\nnext\\n'");
  ASSERT_EQ(next_line(child), "ready");
  child.send("\n", patience);
  EXPECT_EQ(next_line(child), "line");
  EXPECT_EQ(next_line(child), "next");
}

TEST(RecentLines, AreTheLinesTakenOldestFirst) {
  TavrenProcess child = printing("first\\r\\n\\nthird\\nfourth\\n");
  for (int i = 0; i < 3; ++i) next_line(child);
  EXPECT_THAT(child.get_recent_lines(), ElementsAre("first", "", "third"));
}

TEST(RecentLines, HoldTwentyAndLoseTheOldestToTheTwentyFirst) {
  TavrenProcess child = shell("seq 1 21");
  for (int i = 0; i < 20; ++i) next_line(child);
  EXPECT_EQ(child.get_recent_lines(), number_list(1, 20));
  next_line(child);
  EXPECT_EQ(child.get_recent_lines(), number_list(2, 21));
}

TEST(RecentLines, HoldWhatExpectAndSkippingTook) {
  TavrenProcess child = printing("a\\nb\\nc\\nprompt: ");
  std::list<std::string> lines;
  child.expect("b", lines, patient_deadline());
  child.read_until_line_starts_with("prompt", patient_deadline());
  EXPECT_THAT(child.get_recent_lines(), ElementsAre("a", "b", "c"));
}

TEST(RecentLines, AreNotTouchedByReadByte) {
  TavrenProcess child = printing("a\\nb\\n");
  EXPECT_EQ(next_bytes(child, 4), "a\nb\n");
  EXPECT_TRUE(child.get_recent_lines().empty());
}

TEST(ReadByte, ReturnsEachByteAsAPositiveNumber) {
  TavrenProcess child = counterpart({"flood", "512"});
  for (int i = 0; i < 512; ++i) ASSERT_EQ(child.read_byte(patient_deadline()), i % 256);
}

TEST(ReadByte, TakesItsByteFromTheLineThatFollows) {
  TavrenProcess child = printing("abc\\r\\ndef\\n");
  EXPECT_EQ(child.read_byte(patient_deadline()), 'a');
  EXPECT_EQ(next_line(child), "bc");
  EXPECT_EQ(next_bytes(child, 4), "def\n");
}

TEST(ReadByte, WaitsForTheNextByte) {
  TavrenProcess child("/bin/cat", {}, false);
  for (const char byte : {'a', '\n', '\0', 'z'}) {
    child.send(std::string(1, byte), patience);
    EXPECT_EQ(child.read_byte(patient_deadline()), byte);
  }
}

TEST(Expect, AppendsEachLineUpToTheOneWithTheTextToWhatTheListHeld) {
  using Lines = std::list<std::string>;
  const std::tuple<const char*, Lines, Lines, const char*> outcomes[] = {
      {"the text", {}, {"first", "second", "here is the text."}, "next"},
      {"second", {"second of old"}, {"second of old", "first", "second"}, "here is the text."},
      {"", {}, {"first"}, "second"}};
  for (const auto& [text, held, expected, next] : outcomes) {
    TavrenProcess child = printing("first\\nsecond\\nhere is the text.\\nnext\\n");
    Lines lines = held;
    child.expect(text, lines, patient_deadline());
    EXPECT_EQ(lines, expected);
    EXPECT_EQ(next_line(child), next);
  }
}

TEST(Expect, IsNotMetByAnUnterminatedPrompt) {
  TavrenProcess child = shell("printf 'line\\nprompt: '; read -r go");
  std::list<std::string> lines;
  EXPECT_EQ(result_of([&] { child.expect("prompt", lines, past_deadline() + 2); }), "TavrenTimeout");
  EXPECT_EQ(next_bytes(child, 8), "prompt: ");
}

TEST(Expect, KeepsTheLinesTakenBeforeATimeout) {
  TavrenProcess child = shell("printf 'first\\nsecond\\n'; read -r go; echo text");
  std::list<std::string> lines;
  while (lines.size() < 2) ASSERT_EQ(result_of([&] { child.expect("text", lines, past_deadline()); }), "TavrenTimeout");
  child.send("\n", patience);
  child.expect("text", lines, patient_deadline());
  EXPECT_THAT(lines, ElementsAre("first", "second", "text"));
}

TEST(Expect, EndsWithTheOutput) {
  TavrenProcess child = printing("first\\nsecond\\n");
  std::list<std::string> lines;
  EXPECT_EQ(result_of([&] { child.expect("text", lines, patient_deadline()); }),
            "13(/usr/bin/printf) 12(first) 12(second)");
  EXPECT_THAT(lines, ElementsAre("first", "second"));
}
