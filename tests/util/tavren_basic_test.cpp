#include "tavren_basic.h"

#include <ctype.h>
#include <endian.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <locale.h>
#include <stdio.h>
#include <stdlib.h>

#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "support/run_in_child.h"
#include "support/temporary_directory.h"

namespace {

TEST(NumberText, IsReadAndCutToItsRange) {
  const std::pair<const char*, int> numbers[] = {{"42", 42},
                                                 {" 42 ", 42},
                                                 {"-7", -7},
                                                 {"+7", 7},
                                                 {"0x1f", 31},
                                                 {"0X1F", 31},
                                                 {"-0x10", -16},
                                                 {"010", 8},
                                                 {"0", 0},
                                                 {"-0", 0},
                                                 {"\t\n 5 \r\v\f", 5},
                                                 {"2147483647", INT_MAX},
                                                 {"-2147483648", INT_MIN},
                                                 /* Also where a long could hold the number. */
                                                 {"2147483648", INT_MAX},
                                                 {"-2147483649", INT_MIN},
                                                 {"0x100000000", INT_MAX},
                                                 {"9223372036854775808", INT_MAX},
                                                 {"99999999999999999999", INT_MAX},
                                                 {"-99999999999999999999", INT_MIN}};
  for (const auto& [text, number] : numbers) {
    int value = 12345;
    EXPECT_EQ(tavren_cstring_to_int(text, &value), 0) << text;
    EXPECT_EQ(value, number) << text;
  }
}

TEST(NumberText, ThatIsNoneIsRefusedAndStoresNothing) {
  for (const char* text : {"", " ", "abc", "12abc", "1 2", "0x", "08", "-", "1.5", "- 1", "5\xa0"}) {
    int value = 12345;
    EXPECT_EQ(tavren_cstring_to_int(text, &value), -1) << text;
    EXPECT_EQ(value, 12345) << text;
  }
}

using Fields = std::vector<std::string>;

Fields split(std::string text, int separator) {
  char** fields = nullptr;
  const int count = tavren_split_fields(text.data(), separator, &fields);
  const Fields result(fields, fields + count);
  free(fields);
  return result;
}

TEST(SplitFields, KeepsEmptyFields) {
  EXPECT_EQ(split("a,,b,", ','), Fields({"a", "", "b", ""}));
  EXPECT_EQ(split("abc", ','), Fields({"abc"}));
  EXPECT_EQ(split(",", ','), Fields({"", ""}));
}

TEST(SplitFields, OfTheEmptyTextIsNull) {
  char nothing[] = "";
  char* unset = nullptr;
  char** fields = &unset;
  EXPECT_EQ(tavren_split_fields(nothing, ',', &fields), 0);
  EXPECT_EQ(fields, nullptr);
}

TEST(SplitFields, TakesTheLow8BitsOfTheSeparator) {
  EXPECT_EQ(split("a,b", 0x1200 + ','), Fields({"a", "b"}));
  EXPECT_EQ(split("a\xffz", -1), Fields({"a", "z"}));
  EXPECT_EQ(split("a,b", 0x100), Fields({"a,b"})); /* not at the text's end */
}

TEST(SplitFields, KeepsPointersAndTextInOneAllocationOfItsOwn) {
  char text[] = "ab,c";
  char** fields = nullptr;
  ASSERT_EQ(tavren_split_fields(text, ',', &fields), 2);
  EXPECT_EQ(static_cast<void*>(fields[0]), static_cast<void*>(fields + 2));
  EXPECT_EQ(fields[1], fields[0] + 3);
  EXPECT_STREQ(text, "ab,c");
  free(fields);
}

TEST(ParseSpaceLimit, TakesNumbersAndUnlimitedInAnyLetterCaseAndStoresNothingElse) {
  const std::tuple<const char*, int, int> limits[] = {
      {"unlimited", 0, -1},    {"UNLIMITED", 0, -1}, {"uNlImItEd", 0, -1},      {"100", 0, 100},
      {" 0x10 ", 0, 16},       {"", -1, 12345},      {"unlimited ", -1, 12345}, {" unlimited", -1, 12345},
      {"unlimite", -1, 12345}, {"100 MB", -1, 12345}};
  for (const auto& [text, result, stored] : limits) {
    int megabytes = 12345;
    EXPECT_EQ(tavren_parse_space_limit(text, &megabytes), result) << text;
    EXPECT_EQ(megabytes, stored) << text;
  }
}

/* There the small letter of I is another one than i. */
TEST(ParseSpaceLimit, KnowsUnlimitedInATurkishLocale) {
  const TemporaryDirectory locales;
  const std::string byte_order = __BYTE_ORDER == __LITTLE_ENDIAN ? "--little-endian" : "--big-endian";
  const std::string make = "localedef --quiet --no-archive " + byte_order + " -i tr_TR -f ISO-8859-9 ";
  ASSERT_EQ(system((make + locales.path("tr_TR")).c_str()), 0);
  const Outcome outcome = run_in_child([&] {
    setenv("LOCPATH", locales.path().c_str(), 1);
    if (setlocale(LC_ALL, "tr_TR") == nullptr || tolower('I') == 'i') fputs("not Turkish ", stdout);
    int megabytes = 0;
    const int result = tavren_parse_space_limit("UNLIMITED", &megabytes);
    printf("%d %d", result, megabytes);
  });
  EXPECT_EQ(outcome.out, "0 -1");
}

}  // namespace
