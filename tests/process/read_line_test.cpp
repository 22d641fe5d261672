#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "process/children.h"

using namespace std::string_literals;
using testing::ElementsAre;

namespace {

/* A child whose whole output is given, in the notation of printf(1). */
TavrenProcess printing(const std::string& format) { return TavrenProcess("/usr/bin/printf", {format}, false); }

std::string numbers(int first, int last) {
  return "i=" + std::to_string(first) + "; while [ $i -le " + std::to_string(last) + " ]; do echo $i; i=$((i+1)); done";
}

std::list<std::string> number_list(int first, int last) {
  std::list<std::string> list;
  for (int i = first; i <= last; ++i) list.push_back(std::to_string(i));
  return list;
}

}  // namespace

TEST(ReadLine, TakesOneLineAtATime) {
  TavrenProcess child = printing("first\\nsecond\\nthird\\n");
  for (const char* line : {"first", "second", "third"}) EXPECT_EQ(next_line(child), line);
}

TEST(ReadLine, ReturnsFalseForALine) {
  TavrenProcess child = printing("line\\n");
  std::string line = "old text";
  EXPECT_FALSE(child.read_line(line, patient_deadline(), "prompt"));
  EXPECT_EQ(line, "line");
}

TEST(ReadLine, DropsAllCarriageReturnsBeforeTheLineEnd) {
  TavrenProcess child = printing("none\\none\\r\\nabc\\r\\r\\nmany\\r\\r\\r\\r\\r\\n");
  for (const char* line : {"none", "one", "abc", "many"}) EXPECT_EQ(next_line(child), line);
}

TEST(ReadLine, CarriageReturnsAndANewlineAloneAreAnEmptyLine) {
  TavrenProcess child = printing("\\r\\n\\r\\r\\n\\nend\\n");
  for (const char* line : {"", "", "", "end"}) EXPECT_EQ(next_line(child), line);
}

TEST(ReadLine, KeepsACarriageReturnInsideALine) {
  TavrenProcess child = printing("a\\rb\\r\\r c\\r\\n\\rd\\n");
  EXPECT_EQ(next_line(child), "a\rb\r\r c");
  EXPECT_EQ(next_line(child), "\rd");
}

TEST(ReadLine, KeepsEveryOtherByte) {
  TavrenProcess child = printing("\\000a\\000\\377\\200\\033[1m\\t \\n");
  EXPECT_EQ(next_line(child), "\0a\0\xff\x80\x1b[1m\t "s);
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

TEST(RecentLines, HoldTwenty) {
  TavrenProcess child = shell(numbers(1, 21));
  for (int i = 0; i < 20; ++i) next_line(child);
  EXPECT_EQ(child.get_recent_lines(), number_list(1, 20));
}

TEST(RecentLines, LoseTheOldestToTheTwentyFirst) {
  TavrenProcess child = shell(numbers(1, 21));
  for (int i = 0; i < 21; ++i) next_line(child);
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

TEST(Expect, AppendsEachLineUpToTheOneWithTheText) {
  TavrenProcess child = printing("first\\nsecond\\nhere is the text.\\nnext\\n");
  std::list<std::string> lines;
  child.expect("the text", lines, patient_deadline());
  EXPECT_THAT(lines, ElementsAre("first", "second", "here is the text."));
  EXPECT_EQ(next_line(child), "next");
}

TEST(Expect, KeepsWhatTheListHeld) {
  TavrenProcess child = printing("first\\ntext\\n");
  std::list<std::string> lines = {"text of old"};
  child.expect("text", lines, patient_deadline());
  EXPECT_THAT(lines, ElementsAre("text of old", "first", "text"));
}

TEST(Expect, IsMetByAnyLineWhenTheTextIsEmpty) {
  TavrenProcess child = printing("first\\nsecond\\n");
  std::list<std::string> lines;
  child.expect("", lines, patient_deadline());
  EXPECT_THAT(lines, ElementsAre("first"));
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
