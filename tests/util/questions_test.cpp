#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <thread>

#include "support/run_in_child.h"
#include "tavren_share.h"

namespace {

constexpr char hint[] = "Please enter 'yes', 'no', 'y', or 'n'.\n";

/* Asks in a child whose standard input holds those lines; the result follows the hints on the standard error. */
Outcome ask(const std::string& input, int assume_yes = 0, int assume_no = 0) {
  return run_in_child([&] { fprintf(stderr, "%d", tavren_yes_or_no("Sure? ", assume_yes, assume_no)); }, input);
}

TEST(Question, IsAnsweredInAnyLetterCase) {
  for (const char* yes : {"yes\n", "y\n", "Y\n", "YES\n", "yEs\n", "yes"}) EXPECT_EQ(ask(yes).err, "1") << yes;
  for (const char* no : {"no\n", "n\n", "N\n", "NO\n", "nO\n", "n"}) EXPECT_EQ(ask(no).err, "0") << no;
}

TEST(Question, BringsAHintOnceAndIsAskedAgainWhenTheAnswerIsNeither) {
  for (const std::string neither : {"maybe", "", " yes", "yes ", "ye", "yess", "1", "yes and 20 more bytes"}) {
    const Outcome outcome = ask(neither + "\nY\n");
    EXPECT_EQ(outcome.err, std::string(hint) + "1") << neither;
    EXPECT_EQ(outcome.out, "Sure? \nSure? \n") << neither;
  }
}

TEST(Question, IsRepeatedAsOftenAsItTakes) {
  EXPECT_EQ(ask("a\nb\nc\nn\n").err, std::string(hint) + hint + hint + "0");
}

TEST(Question, EndsWithTheInputWithoutAHintAlsoInALine) {
  const Outcome outcome = ask("");
  EXPECT_EQ(outcome.err, "-1");
  EXPECT_EQ(outcome.out, "Sure? \n");
  EXPECT_EQ(ask("maybe").err, "-1");
}

TEST(Question, EndsWhenTheInputCannotBeRead) {
  const Outcome outcome = run_in_child([] {
    close(STDIN_FILENO);
    fprintf(stderr, "%d", tavren_yes_or_no("Sure? ", 0, 0));
  });
  EXPECT_EQ(outcome.err, "-1");
}

TEST(Question, IsRepeatedAlthoughAnEarlierReadingFailed) {
  const Outcome outcome = run_in_child(
      [] {
        const int input = dup(STDIN_FILENO);
        close(STDIN_FILENO);
        if (getchar() != EOF || ferror(stdin) == 0) abort();
        dup2(input, STDIN_FILENO);
        fprintf(stderr, "%d", tavren_yes_or_no("Sure? ", 0, 0));
      },
      "maybe\nno\n");
  EXPECT_EQ(outcome.err, std::string(hint) + "0");
}

/* Whoever shares a terminal may have made it non-blocking for all. */
class QuestionOnANonBlockingInput : public testing::Test {
 protected:
  /* Asks with that input, non-blocking, on the way once the question was asked; before looks at it earlier. */
  static Outcome ask_and_answer(const std::string& answer, const std::function<void()>& before) {
    return run_in_child([&] {
      int question[2], input[2];
      if (pipe(question) != 0 || pipe2(input, O_NONBLOCK) != 0) abort();
      dup2(input[0], STDIN_FILENO);
      before();
      const int real_output = dup(STDOUT_FILENO);
      dup2(question[1], STDOUT_FILENO);
      std::thread person([&] {
        char asked[7];
        if (read(question[0], asked, sizeof asked) == -1) abort();
        if (write(input[1], answer.data(), answer.size()) == -1) abort();
        close(input[1]);
      });
      fprintf(stderr, "%d", tavren_yes_or_no("Sure? ", 0, 0));
      person.join();
      dup2(real_output, STDOUT_FILENO);
    });
  }
};

TEST_F(QuestionOnANonBlockingInput, WaitsForTheAnswerAndEndsWithTheInput) {
  EXPECT_EQ(ask_and_answer("yes\n", [] {}).err, "1");
  EXPECT_EQ(ask_and_answer("", [] {}).err, "-1");
}

TEST_F(QuestionOnANonBlockingInput, IsAskedAlthoughAnEarlierReadingFoundNothing) {
  const auto read_too_early = [] {
    if (getchar() != EOF || ferror(stdin) == 0) abort();
  };
  EXPECT_EQ(ask_and_answer("maybe\nno\n", read_too_early).err, std::string(hint) + "0");
}

TEST(Question, MayBeAnsweredInAdvance) {
  const Outcome yes = ask("n\n", 2, 0);
  EXPECT_EQ(yes.out + yes.err, "Sure? yes\n1");
  const Outcome no = ask("y\n", 0, -1);
  EXPECT_EQ(no.out + no.err, "Sure? no\n0");
}

TEST(Question, AnsweredBothWaysInAdvanceIsAYes) { EXPECT_EQ(ask("", 1, 1).out, "Sure? yes\n"); }

TEST(Question, TakesItsPromptForNoFormat) {
  const Outcome outcome = run_in_child([] { tavren_yes_or_no("100%s ", 1, 0); });
  EXPECT_EQ(outcome.out, "100%s yes\n");
}

/* Reads a line of at most size - 1 characters into a larger buffer full of x. */
struct Line {
  int count = 0;
  char buffer[40];

  explicit Line(int size, int hide = 0) {
    memset(buffer, 'x', sizeof buffer);
    count = tavren_read_input("Name: ", buffer, size, hide);
  }
};

/* Returns the count and the line that a child has read. */
std::string line_of(const std::string& input, int size) {
  return run_in_child(
             [&] {
               const Line line(size);
               fprintf(stderr, "%d %s", line.count, line.buffer);
             },
             input)
      .err;
}

TEST(ReadInput, StoresALineWithoutItsNewline) {
  EXPECT_EQ(line_of("abc\n", 20), "3 abc");
  EXPECT_EQ(line_of("abc", 20), "3 abc");
  EXPECT_EQ(line_of("\nabc\n", 20), "0 ");
  EXPECT_EQ(line_of("", 20), "0 ");
}

TEST(ReadInput, CutsALongLineAndReturnsItsWholeLength) {
  EXPECT_EQ(line_of(std::string(30, 'a') + "\n", 20), "30 " + std::string(19, 'a'));
  EXPECT_EQ(line_of(std::string(19, 'a') + "\n", 20), "19 " + std::string(19, 'a'));
  EXPECT_EQ(line_of("abc\n", 1), "3 ");
}

TEST(ReadInput, FillsTheRestOfTheBufferWithZeroBytesAndNothingBeyondIt) {
  const Outcome outcome = run_in_child(
      [] {
        const Line line(20);
        fwrite(line.buffer, 1, sizeof line.buffer, stderr);
      },
      "abc\n");
  EXPECT_EQ(outcome.err, "abc" + std::string(17, '\0') + std::string(20, 'x'));
}

TEST(ReadInput, LeavesTheNextLineForTheNextCall) {
  const Outcome outcome = run_in_child(
      [] {
        const Line first(20), second(20);
        fprintf(stderr, "%s, %s", first.buffer, second.buffer);
      },
      std::string(30, 'a') + "\nnext\n");
  EXPECT_EQ(outcome.err, std::string(19, 'a') + ", next");
}

TEST(ReadInput, WritesItsPromptAndEndsTheLineWhenTheInputIsNoTerminal) {
  for (const int hide : {0, 1}) {
    const Outcome outcome = run_in_child([&] { const Line line(20, hide); }, "abc\n");
    EXPECT_EQ(outcome.out, "Name: \n");
  }
}

TEST(ReadInput, TakesItsPromptForNoFormat) {
  const Outcome outcome = run_in_child([] {
    char buffer[4];
    tavren_read_input("100%s ", buffer, sizeof buffer, 0);
  });
  EXPECT_EQ(outcome.out, "100%s \n");
}

/* A stream whose first read is interrupted by a signal, as one without SA_RESTART does it. */
ssize_t interrupted_once(void* cookie, char* buffer, size_t size) {
  auto* const step = static_cast<int*>(cookie);
  switch ((*step)++) {
    case 0:
      errno = EINTR;
      return -1;
    case 1:
      return snprintf(buffer, size, "abc\n");
    default:
      return 0;
  }
}

TEST(ReadInput, GoesOnAfterASignal) {
  const Outcome outcome = run_in_child([] {
    int step = 0;
    stdin = fopencookie(&step, "r", {interrupted_once, nullptr, nullptr, nullptr});
    const Line line(20);
    fprintf(stderr, "%d %s", line.count, line.buffer);
  });
  EXPECT_EQ(outcome.err, "3 abc");
}

}  // namespace
