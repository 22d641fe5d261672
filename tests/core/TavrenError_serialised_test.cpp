#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <limits>
#include <utility>

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

TEST(LineReadBack, BelongsToTheCallerAndEndsWhereTheNextOneBegins) {
  std::istringstream in = stream("error_line_t|5|2|/a/b|2|error_line_t|23|0|");
  EXPECT_EQ(take(TavrenError::deserialize_line(in)), LineContent(5, {"/a/b", "2"}));
  EXPECT_EQ(take(TavrenError::deserialize_line(in)), LineContent(23, {}));
}

TEST(LineReadBack, WithThreeArgumentsKeepsThemAllAndShowsTwo) {
  std::istringstream in = stream("TavrenError|1|1|error_line_t|5|3|a|b|c|");
  const TavrenError error(in);
  const LineContent whole(5, {"a", "b", "c"});
  EXPECT_THAT(contents(error), ElementsAre(whole));
  EXPECT_EQ(take(TavrenError::duplicate_line(error.lines.front())), whole);
  EXPECT_THAT(contents(TavrenError(error)), ElementsAre(whole));
  EXPECT_EQ(body_of(error), "  - Failed to open file a, ecode=b\n");
}

TEST(CountedErrors, OfNoErrorsOrFewerGiveNone) {
  for (const char* text : {"0|", "-1|", "0| \n"}) {
    Errors errors;
    parse(text, errors.list);
    EXPECT_THAT(errors.list, IsEmpty()) << text;
  }
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
  tavren_bytes_t bytes{0, {2, content.data()}};
  TavrenError::tavren_bytes_to_errors(bytes, errors.list);
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

using Malformed = std::pair<const char*, std::string>; /* a text, and the assertion that it fails */

TEST(MalformedError, FailsAnAssertion) {
  const std::string not_an_error = R"(s == "TavrenError")", not_a_line = R"(s == "error_line_t")";
  const std::string no_end = R"(sep == '\0')", no_more = "in.good()";
  for (const auto& [text, expression] : {Malformed{"", not_an_error},
                                         {"tavrenerror|1|0|", not_an_error},
                                         {"TavrenError", no_end},
                                         {"TavrenError|x|0|", no_end},
                                         {"TavrenError|1x0|", no_end},
                                         {"TavrenError|1|", no_end},
                                         {"TavrenError|1|0x", no_end},
                                         {"TavrenError|1|x|", no_end},
                                         {"TavrenError|1|99999999999999999999|", no_end},
                                         {"TavrenError|1|1|", not_a_line},
                                         {"TavrenError|1|1|error_line|4|0|", not_a_line},
                                         {"TavrenError|1|1|error_line_t|x|0|", no_end},
                                         {"TavrenError|1|1|error_line_t|4x0|", no_end},
                                         {"TavrenError|1|1|error_line_t|4|x|", no_end},
                                         {"TavrenError|1|1|error_line_t|4|0x", no_end},
                                         {"TavrenError|1|2|error_line_t|4|1|h", no_more},
                                         {"TavrenError|1|1|error_line_t|4|2|h|", no_more}}) {
    SCOPED_TRACE(text);
    std::istringstream in = stream(text);
    expect_assertion("TavrenError", expression, [&in] { const TavrenError error(in); });
  }
}

TEST(MalformedErrors, FailAnAssertionThatNamesItsLine) {
  const std::string behind = std::string("1|") + sample + "x";
  for (const auto& [text, expression] : {Malformed{"0x", R"(c == '\0')"},
                                         {"0|x", "in.eof()"},
                                         {behind.c_str(), "in.eof()"},
                                         {"1|x|", R"(s == "TavrenError")"}}) {
    SCOPED_TRACE(text);
    const std::string content = text;
    const Outcome outcome = run_in_child([&content] {
      std::list<TavrenError*> errors;
      parse(content, errors);
    });
    const int line = line_of(SOURCES "/core/TavrenError.cpp", "TAVREN_ASSERT(\"TavrenError\", " + expression + ")");
    EXPECT_EQ(outcome.err,
              "\nASSERTION ERROR (TavrenError:" + std::to_string(line) + ")\nassertion failed: " + expression + "\n");
    EXPECT_TRUE(outcome.killed_by(SIGABRT)) << outcome.wait_status;
  }
}

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
