#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

#include "core/counted_errors.h"
#include "core/error_lines.h"
#include "support/files.h"
#include "support/run_in_child.h"

using testing::ElementsAre;
using testing::IsEmpty;

/* Throughout, a bar stands for a NUL byte. */
namespace {

std::istringstream stream(const std::string& text) { return std::istringstream(with_nul_bytes(text)); }

constexpr char sample[] = "TavrenError|1000|1|error_line_t|4|1|h1|";

TEST(SerialisedError, IsMadeOfItemsThatEndInANulByte) {
  TavrenError error(TAVREN_E_SSH_START, "h1", "");
  error.time = 1000;
  EXPECT_EQ(serialised(error), with_nul_bytes(sample));
}

TEST(SerialisedError, WithoutLinesEndsAfterTheirNumber) {
  TavrenError error;
  error.time = -5;
  EXPECT_EQ(serialised(error), with_nul_bytes("TavrenError|-5|0|"));
}

TEST(SerialisedError, HoldsItsLinesInOrder) {
  TavrenError error(TAVREN_E_LOGIN_DENIED, "", "");
  error.add_line(static_cast<tavren_error_code_t>(-7), "", "b");
  error.time = 1;
  EXPECT_EQ(serialised(error), with_nul_bytes("TavrenError|1|2|error_line_t|23|0|error_line_t|-7|2||b|"));
}

TEST(SerialisedError, KeepsTheEscapedFormOfANulByte) {
  TavrenError error(TAVREN_E_OUTPUT, with_nul_bytes("abc|"), "");
  error.time = 1;
  EXPECT_EQ(serialised(error), with_nul_bytes("TavrenError|1|1|error_line_t|12|1|abc\\0|"));
}

TEST(ErrorReadBack, IntoAnObjectWithLinesReleasesThemAndLeavesTheirEntries) {
  alignas(TavrenError) unsigned char storage[sizeof(TavrenError)];
  auto* error = new (storage) TavrenError(TAVREN_E_OUTPUT, "old", "");
  std::istringstream in = stream(sample);
  error->deserialize(in);
  ASSERT_EQ(error->lines.size(), 2U);
  error->lines.pop_front(); /* dangles; without a release it would be a leak */
  EXPECT_THAT(contents(*error), ElementsAre(LineContent(4, {"h1"})));
  error->~TavrenError();
}

TEST(ErrorReadBack, HasTheTextsTimeNotTheClocks) {
  std::istringstream in = stream(sample);
  EXPECT_EQ(TavrenError(in).time, 1000);
}

TEST(ErrorReadBack, PrintsLikeItsOriginal) {
  TavrenError error(TAVREN_E_SSH_START, "h1", "");
  error.add_line(TAVREN_E_SYSCALL, "open", "13");
  std::istringstream in(serialised(error));
  EXPECT_EQ(printed(TavrenError(in)), printed(error));
}

TEST(ErrorReadBack, SerialisesToTheSameBytes) {
  for (const char* text :
       {"TavrenError|0|0|", "TavrenError|-1|3|error_line_t|18|2||x|error_line_t|-26|0|error_line_t|5|1| |",
        "TavrenError|2147483647|1|error_line_t|2147483647|2|\n\t |\\0|"}) {
    std::istringstream in = stream(text);
    EXPECT_EQ(serialised(TavrenError(in)), with_nul_bytes(text));
  }
}

TEST(ErrorReadBack, HoldsTheLargestAndSmallestTimeOfTheTarget) {
  for (const time_t time : {std::numeric_limits<time_t>::min(), std::numeric_limits<time_t>::max()}) {
    std::istringstream in = stream("TavrenError|" + std::to_string(time) + "|0|");
    EXPECT_EQ(TavrenError(in).time, time);
  }
}

TEST(ErrorReadBack, LeavesABackslashAndAZeroAsTheyAre) {
  std::istringstream in = stream("TavrenError|1|1|error_line_t|12|1|a\\0b|");
  EXPECT_THAT(contents(TavrenError(in)), ElementsAre(LineContent(12, {"a\\0b"})));
}

TEST(ErrorReadBack, FillsAnObjectThatWasMadeEmpty) {
  TavrenError error;
  std::istringstream in = stream(sample);
  error.deserialize(in);
  EXPECT_THAT(contents(error), ElementsAre(LineContent(4, {"h1"})));
}

TEST(LineReadBack, BelongsToTheCallerAndEndsWhereTheNextOneBegins) {
  std::istringstream in = stream("error_line_t|5|2|/a/b|2|error_line_t|23|0|");
  EXPECT_EQ(take(TavrenError::deserialize_line(in)), LineContent(5, {"/a/b", "2"}));
  EXPECT_EQ(take(TavrenError::deserialize_line(in)), LineContent(23, {}));
}

TEST(LineReadBack, TakesAsManyArgumentsAsTheTextCarries) {
  std::istringstream in = stream("error_line_t|12|3|a|b|c|");
  EXPECT_EQ(take(TavrenError::deserialize_line(in)), LineContent(12, {"a", "b", "c"}));
}

TEST(LineReadBack, WithThreeArgumentsShowsTheFirstTwo) {
  std::istringstream in = stream("TavrenError|1|1|error_line_t|5|3|a|b|c|");
  EXPECT_EQ(body_of(TavrenError(in)), "  - Failed to open file a, ecode=b\n");
}

TEST(LineReadBack, WithThreeArgumentsIsCopiedWhole) {
  std::istringstream in = stream("TavrenError|1|1|error_line_t|5|3|a|b|c|");
  const TavrenError error(in);
  const LineContent whole(5, {"a", "b", "c"});
  EXPECT_EQ(take(TavrenError::duplicate_line(error.lines.front())), whole);
  const TavrenError copy(error);
  EXPECT_THAT(contents(copy), ElementsAre(whole));
}

TEST(CountedErrors, OfNoErrorsGiveNone) {
  Errors errors;
  parse("0|", errors.list);
  EXPECT_THAT(errors.list, IsEmpty());
}

TEST(CountedErrors, OfANegativeNumberGiveNone) {
  Errors errors;
  parse("-1|", errors.list);
  EXPECT_THAT(errors.list, IsEmpty());
}

TEST(CountedErrors, OfAnEmptyBufferWithoutBytesThrowTheStreamsFailure) {
  Errors errors;
  tavren_bytes_t bytes{};
  EXPECT_THROW(TavrenError::tavren_bytes_to_errors(bytes, errors.list), std::ios_base::failure);
}

TEST(CountedErrors, AreAppendedInOrder) {
  Errors errors;
  errors.list.push_back(new TavrenError(TAVREN_E_OUTPUT, "was there", ""));
  parse("2|" + std::string(sample) + "TavrenError|7|0|", errors.list);
  ASSERT_EQ(errors.list.size(), 3U);
  EXPECT_EQ(errors.list.front()->get_ecode(), TAVREN_E_OUTPUT);
  EXPECT_EQ((*std::next(errors.list.begin()))->time, 1000);
  EXPECT_EQ(errors.list.back()->time, 7);
}

TEST(CountedErrors, EndWhereTheLengthSays) {
  Errors errors;
  std::string content = with_nul_bytes("0|x");
  tavren_bytes_t bytes{};
  bytes.data.data_len = 2;
  bytes.data.data_val = content.data();
  TavrenError::tavren_bytes_to_errors(bytes, errors.list);
  EXPECT_THAT(errors.list, IsEmpty());
}

TEST(CountedErrors, MayBeFollowedByWhiteSpace) {
  Errors errors;
  parse("0| \n", errors.list);
  EXPECT_THAT(errors.list, IsEmpty());
}

TEST(CountedErrors, WithoutANumberThrowTheStreamsFailure) {
  for (const char* text : {"", "x|", "1"}) {
    Errors errors;
    EXPECT_THROW(parse(text, errors.list), std::ios_base::failure) << text;
  }
}

TEST(CountedErrors, ThatEndEarlyKeepTheErrorsBeforeTheEnd) {
  for (const char* end : {"", "TavrenError|", "TavrenError|x", "TavrenError|7", "TavrenError|7|1", "TavrenError|7|1|",
                          "TavrenError|7|1|error_line_t|", "TavrenError|7|1|error_line_t|12|1|"}) {
    Errors errors;
    EXPECT_THROW(parse("2|" + std::string(sample) + end, errors.list), std::ios_base::failure) << end;
    ASSERT_EQ(errors.list.size(), 1U) << end;
    EXPECT_EQ(errors.list.front()->time, 1000);
  }
}

TEST(CountedErrors, WithoutANulByteBehindTheirNumberFailAnAssertion) {
  expect_assertion("TavrenError", "c == '\\0'", [] {
    std::list<TavrenError*> errors;
    parse("0x", errors);
  });
}

TEST(CountedErrors, WithSomethingBehindThemFailAnAssertion) {
  expect_assertion("TavrenError", "in.eof()", [] {
    std::list<TavrenError*> errors;
    parse("1|" + std::string(sample) + "x", errors);
  });
}

struct Malformed {
  std::string text, expression;
};

class MalformedError : public testing::TestWithParam<Malformed> {};

TEST_P(MalformedError, FailsAnAssertion) {
  expect_assertion("TavrenError", GetParam().expression, [] {
    std::istringstream in = stream(GetParam().text);
    const TavrenError error(in);
  });
}

INSTANTIATE_TEST_SUITE_P(
    Each, MalformedError,
    testing::Values(Malformed{"", R"(s == "TavrenError")"}, Malformed{"tavrenerror|1|0|", R"(s == "TavrenError")"},
                    Malformed{"TavrenError", R"(sep == '\0')"}, Malformed{"TavrenError|x|0|", R"(sep == '\0')"},
                    Malformed{"TavrenError|1x0|", R"(sep == '\0')"}, Malformed{"TavrenError|1|", R"(sep == '\0')"},
                    Malformed{"TavrenError|1|0x", R"(sep == '\0')"}, Malformed{"TavrenError|1|x|", R"(sep == '\0')"},
                    Malformed{"TavrenError|1|99999999999999999999|", R"(sep == '\0')"},
                    Malformed{"TavrenError|1|1|", R"(s == "error_line_t")"},
                    Malformed{"TavrenError|1|1|error_line|4|0|", R"(s == "error_line_t")"},
                    Malformed{"TavrenError|1|1|error_line_t|x|0|", R"(sep == '\0')"},
                    Malformed{"TavrenError|1|1|error_line_t|4x0|", R"(sep == '\0')"},
                    Malformed{"TavrenError|1|1|error_line_t|4|x|", R"(sep == '\0')"},
                    Malformed{"TavrenError|1|1|error_line_t|4|0x", R"(sep == '\0')"},
                    Malformed{"TavrenError|1|2|error_line_t|4|1|h", "in.good()"},
                    Malformed{"TavrenError|1|1|error_line_t|4|2|h|", "in.good()"}));

class LineNumber : public testing::TestWithParam<Malformed> {};

TEST_P(LineNumber, OfADiagnosticIsItsAssertions) {
  const Outcome outcome = run_in_child([] {
    std::list<TavrenError*> errors;
    parse(GetParam().text, errors);
  });
  const std::string& expression = GetParam().expression;
  const int line = line_of(SOURCES "/core/TavrenError.cpp", "TAVREN_ASSERT(\"TavrenError\", " + expression + ")");
  EXPECT_EQ(outcome.err,
            "\nASSERTION ERROR (TavrenError:" + std::to_string(line) + ")\nassertion failed: " + expression + "\n");
}

INSTANTIATE_TEST_SUITE_P(Each, LineNumber,
                         testing::Values(Malformed{"0x", R"(c == '\0')"}, Malformed{"0|x", "in.eof()"},
                                         Malformed{"1|x|", R"(s == "TavrenError")"}));

TEST(MalformedLine, OfAStreamThatIsNotGoodFailsAnAssertion) {
  expect_assertion("TavrenError", "in.good()", [] {
    std::istringstream in = stream("error_line_t|4|0|");
    in.setstate(std::ios_base::failbit);
    delete TavrenError::deserialize_line(in);
  });
}

TEST(MalformedLine, WithAHugeNumberOfArgumentsAsksForNoMemoryForThem) {
  expect_assertion("TavrenError", "in.good()", [] {
    std::istringstream in = stream("error_line_t|4|2147483647|a|");
    delete TavrenError::deserialize_line(in);
  });
}

}  // namespace
