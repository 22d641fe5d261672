#include "TavrenError.h"

#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stddef.h>

#include <type_traits>

#include "core/error_lines.h"

using testing::AllOf;
using testing::ElementsAre;
using testing::Ge;
using testing::IsEmpty;
using testing::Le;

namespace {

using Arguments = std::vector<std::string>;

LineContent new_line(const std::string& arg1, const std::string& arg2) {
  return take(TavrenError::new_error_line(TAVREN_E_OUTPUT, arg1, arg2));
}

TEST(ErrorCode, IsASigned32BitInteger) {
  using Number = std::underlying_type_t<tavren_error_code_t>;
  EXPECT_TRUE(std::is_signed_v<Number>);
  EXPECT_EQ(sizeof(tavren_error_code_t), 4U);
}

TEST(ErrorCode, OfAnErrorIsItsFirstLines) {
  TavrenError error;
  error.add_line(TAVREN_E_FILE_OPEN, "/a/b", "2");
  error.add_first_line(TAVREN_E_SYSCALL, "open", "2");
  EXPECT_EQ(error.get_ecode(), TAVREN_E_SYSCALL);
}

TEST(ErrorCode, OfAnErrorStartsAtZeroWithoutLines) {
  const TavrenError error;
  EXPECT_THAT(error.lines, IsEmpty());
  EXPECT_EQ(error.get_ecode(), 0);
}

TEST(ErrorObject, HasNoVirtualOperations) {
  EXPECT_FALSE(std::is_polymorphic_v<TavrenError>);
  EXPECT_FALSE(std::is_polymorphic_v<TavrenError::error_line_t>);
}

/* Programs have the places of the public members compiled in. */
TEST(ErrorObject, HoldsItsTimeAndThenItsLines) {
  const TavrenError error;
  const auto* begin = reinterpret_cast<const char*>(&error);
  EXPECT_EQ(reinterpret_cast<const char*>(&error.time) - begin, 0);
  EXPECT_EQ(reinterpret_cast<const char*>(&error.lines) - begin, static_cast<ptrdiff_t>(sizeof error.time));
  EXPECT_EQ(sizeof error, sizeof error.time + sizeof error.lines);
}

TEST(ErrorObject, IsStampedWithTheCurrentTime) {
  const time_t before = time(nullptr);
  const TavrenError empty;
  const TavrenError one_line(TAVREN_E_OUTPUT, "x", "");
  const time_t after = time(nullptr);
  EXPECT_THAT(empty.time, AllOf(Ge(before), Le(after)));
  EXPECT_THAT(one_line.time, AllOf(Ge(before), Le(after)));
}

TEST(ErrorObject, MadeFromACodeHasThatOneLine) {
  const TavrenError error(TAVREN_E_FILE_READ, "/a/b", "5");
  EXPECT_THAT(contents(error), ElementsAre(LineContent(6, {"/a/b", "5"})));
}

TEST(ErrorObject, AddsLinesAtTheEndAndAtTheFront) {
  TavrenError error(TAVREN_E_OUTPUT, "first", "");
  error.add_line(TAVREN_E_OUTPUT, "last", "");
  error.add_first_line(TAVREN_E_LOGIN_DENIED, "", "");
  EXPECT_THAT(contents(error), ElementsAre(LineContent(23, {}), LineContent(12, {"first"}), LineContent(12, {"last"})));
}

TEST(CopiedError, KeepsTimeAndLinesInOrder) {
  TavrenError error(TAVREN_E_FILE_OPEN, "/a/b", "2");
  error.add_line(TAVREN_E_HOST_KEY_MISMATCH, "", "");
  error.time = 1000;
  const TavrenError copy(error);
  EXPECT_EQ(copy.time, 1000);
  EXPECT_EQ(contents(copy), contents(error));
}

TEST(CopiedError, SharesNothingWithItsOriginal) {
  TavrenError error(TAVREN_E_OUTPUT, "before", "");
  const TavrenError copy(error);
  error.lines.front()->args[0] = "after";
  EXPECT_THAT(contents(copy), ElementsAre(LineContent(12, {"before"})));
}

TEST(CopiedError, AssignedToAnEmptyOneReturnsTheObjectItself) {
  const TavrenError error(TAVREN_E_OUTPUT, "x", "");
  TavrenError copy;
  EXPECT_EQ(&(copy = error), &copy);
  EXPECT_EQ(contents(copy), contents(error));
}

TEST(CopiedError, ThrownByValueArrivesWhole) {
  try {
    TavrenError error(TAVREN_E_OUTPUT, "x", "");
    error.time = 1000;
    throw error;
  } catch (const TavrenError& caught) {
    EXPECT_EQ(caught.time, 1000);
    EXPECT_THAT(contents(caught), ElementsAre(LineContent(12, {"x"})));
  }
}

TEST(ErrorLine, HoldsItsMembersInOrder) {
  using Line = TavrenError::error_line_t;
  static_assert(std::is_standard_layout_v<Line>);
  EXPECT_EQ(offsetof(Line, code), 0U);
  EXPECT_LT(offsetof(Line, code), offsetof(Line, args));
  EXPECT_LT(offsetof(Line, args), offsetof(Line, num_args));
  EXPECT_EQ(sizeof(Line::num_args), 4U);
}

TEST(ErrorLine, OfTwoEmptyArgumentsHasNone) {
  const std::unique_ptr<TavrenError::error_line_t> line(TavrenError::new_error_line(TAVREN_E_OUTPUT, "", ""));
  EXPECT_EQ(line->num_args, 0);
  EXPECT_EQ(line->args, nullptr);
}

TEST(ErrorLine, KeepsItsCodeAndItsArgumentsButForAnEmptySecondOne) {
  EXPECT_EQ(take(TavrenError::new_error_line(TAVREN_E_SYSCALL, "open", "13")), LineContent(24, {"open", "13"}));
  EXPECT_EQ(new_line("", "x").second, Arguments({"", "x"}));
  EXPECT_EQ(new_line("x", "").second, Arguments({"x"}));
}

TEST(DuplicatedLine, IsADeepCopy) {
  const std::unique_ptr<TavrenError::error_line_t> line(TavrenError::new_error_line(TAVREN_E_SYSCALL, "open", "13"));
  const std::unique_ptr<TavrenError::error_line_t> copy(TavrenError::duplicate_line(line.get()));
  line->args[0] = "read";
  EXPECT_EQ(content(copy.get()), LineContent(24, {"open", "13"}));
}

TEST(DuplicatedLine, WithoutArgumentsHasNone) {
  const std::unique_ptr<TavrenError::error_line_t> line(TavrenError::new_error_line(TAVREN_E_OUTPUT, "", ""));
  EXPECT_EQ(take(TavrenError::duplicate_line(line.get())), LineContent(12, {}));
}

/* Every bar stands for a NUL byte. */
TEST(ErrorLine, HasNulBytesOfItsArgumentsEscaped) {
  for (const auto& [argument, escaped] : {std::pair{"|", "\\0"},
                                          {"|abc", "\\0abc"},
                                          {"abc|", "abc\\0"},
                                          {"a|bcdef", "a\\0cdef"},
                                          {"x||y", "x\\0y"},
                                          {"ab|cd|e", "ab\\0\\0"},
                                          {"||", "\\0\\0"},
                                          {"|a|bcdef", "\\0a\\0ef"},
                                          {"a\\0b", "a\\0b"}}) {
    EXPECT_EQ(new_line(with_nul_bytes(argument), "").second, Arguments({escaped}));
    EXPECT_EQ(new_line("x", with_nul_bytes(argument)).second, Arguments({"x", escaped}));
  }
}

/* Called through a pointer, so that the compiler does not rely on its never returning. */
void (*const volatile throw_error)(std::string, int) = tavren_throw_syscall_error;

/* Returns the lines of the error that is thrown, none when the call returns. */
std::vector<LineContent> thrown(const std::string& call, int error) {
  try {
    throw_error(call, error);
  } catch (const TavrenError& caught) {
    return contents(caught);
  }
  return {};
}

TEST(SystemCallError, NamesTheCallAndTheNumberWhichIsErrnosForMinusOne) {
  errno = 13;
  for (const auto& [error, shown] : {std::pair{2, "2"}, {-1, "13"}, {0, "0"}}) {
    EXPECT_THAT(thrown("open", error), ElementsAre(LineContent(24, {"open", shown})));
  }
}

}  // namespace
