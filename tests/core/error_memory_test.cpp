#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <new>
#include <sstream>
#include <string>

#include "core/counted_errors.h"
#include "core/error_lines.h"
#include "support/failing_memory.h"

using testing::ElementsAre;

namespace {

const std::string long_text(100, 'a');

class ErrorMemory : public testing::Test {
 protected:
  /* A line of the list, its record, the array of its arguments and two texts that are too long to be kept in place. */
  static constexpr int blocks_of_a_line = 5;

  static void add_line(TavrenError& error) { error.add_line(TAVREN_E_FILE_OPEN, long_text, long_text); }

  int added() const { return failing_memory::blocks() - at_start; }

  /* Lets each allocation of action fail in turn, of which nothing may be left then. Returns how many there were. */
  template <class Action>
  int fail_without_a_trace(Action action) {
    for (int failures = 0;; ++failures) {
      const int before = added();
      try {
        const failing_memory::FailAllocation exhausted(failures + 1);
        action();
        return failures;
      } catch (const std::bad_alloc&) {
        EXPECT_EQ(added(), before) << "allocation " << failures + 1;
      }
    }
  }

 private:
  const int at_start = failing_memory::blocks();
};

TEST_F(ErrorMemory, OfALineIsItsEntryItsRecordItsArgumentsAndTheirTexts) {
  TavrenError error;
  const int without_lines = added();
  add_line(error);
  EXPECT_EQ(added() - without_lines, blocks_of_a_line);
}

TEST_F(ErrorMemory, IsReleasedWithTheObject) {
  {
    TavrenError error;
    add_line(error);
    error.add_first_line(TAVREN_E_LOGIN_DENIED, "", "");
    const TavrenError copy(error);
    ASSERT_GT(added(), 2 * blocks_of_a_line);
  }
  EXPECT_EQ(added(), 0);
}

/* Those dangle then, so an object is never destroyed after it. */
TEST_F(ErrorMemory, OfOldLinesIsReleasedButForTheListsEntries) {
  void (*const clearings[])(TavrenError&) = {[](TavrenError& error) { error.clear(); },
                                             [](TavrenError& error) { error = TavrenError(); },
                                             [](TavrenError& error) {
                                               std::istringstream in(with_nul_bytes("TavrenError|1|0|"));
                                               error.deserialize(in);
                                             }};
  for (const auto clearing : clearings) {
    TavrenError error;
    add_line(error);
    add_line(error);
    const int before = added();
    clearing(error);
    EXPECT_EQ(before - added(), 2 * (blocks_of_a_line - 1));
    EXPECT_EQ(error.lines.size(), 2U);
    error.lines.clear();
  }
}

TEST_F(ErrorMemory, OfNewLinesComesBehindTheEntriesOfTheOldOnes) {
  TavrenError error(TAVREN_E_OUTPUT, "old", "");
  error = TavrenError(TAVREN_E_LOGIN_DENIED, "", "");
  ASSERT_EQ(error.lines.size(), 2U);
  error.lines.pop_front();
  EXPECT_THAT(contents(error), ElementsAre(LineContent(23, {})));
  std::istringstream in(with_nul_bytes("TavrenError|1000|1|error_line_t|4|1|h1|"));
  error.deserialize(in);
  ASSERT_EQ(error.lines.size(), 2U);
  error.lines.pop_front();
  EXPECT_THAT(contents(error), ElementsAre(LineContent(4, {"h1"})));
}

TEST_F(ErrorMemory, OfADuplicateIsTheCallersAlone) {
  TavrenError error;
  add_line(error);
  const int before = added();
  TavrenError::error_line_t* const line = TavrenError::duplicate_line(error.lines.front());
  EXPECT_EQ(added() - before, blocks_of_a_line - 1);
  delete line;
  EXPECT_EQ(added(), before);
}

TEST_F(ErrorMemory, OfAnErrorThatCannotBeReadIsReleased) {
  {
    std::istringstream in(
        with_nul_bytes("TavrenError|1|2|error_line_t|12|1|" + long_text + "|error_line_t|12|2|" + long_text + "|b"));
    in.exceptions(std::ios_base::badbit | std::ios_base::failbit | std::ios_base::eofbit);
    EXPECT_THROW(TavrenError error(in), std::ios_base::failure);
  }
  EXPECT_EQ(added(), 0);
}

TEST_F(ErrorMemory, OfCountedErrorsIsThatOfTheListsAlone) {
  {
    Errors errors;
    parse("2|TavrenError|1|1|error_line_t|12|1|x|TavrenError|1|0|", errors.list);
    EXPECT_THROW(parse("2|TavrenError|1|1|error_line_t|12|1|x|", errors.list), std::ios_base::failure);
    ASSERT_EQ(errors.list.size(), 3U);
  }
  EXPECT_EQ(added(), 0);
}

TEST_F(ErrorMemory, OfWhatCannotBeAddedIsReleased) {
  TavrenError error;
  EXPECT_GE(fail_without_a_trace([&] { add_line(error); }), blocks_of_a_line);
  const auto add_first_line = [&] { error.add_first_line(TAVREN_E_FILE_OPEN, long_text, long_text); };
  EXPECT_GE(fail_without_a_trace(add_first_line), blocks_of_a_line);
  const auto read_two = [] {
    Errors errors;
    parse("2|TavrenError|1|1|error_line_t|12|1|" + long_text + "|TavrenError|1|0|", errors.list);
  };
  EXPECT_GE(fail_without_a_trace(read_two), blocks_of_a_line);
}

}  // namespace
