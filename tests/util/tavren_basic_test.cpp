#include "tavren_basic.h"

#include <ctype.h>
#include <endian.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <locale.h>
#include <stdio.h>
#include <stdlib.h>

#include <string>
#include <vector>

#include "support/run_in_child.h"
#include "support/temporary_directory.h"

namespace {

struct Number {
  std::string text;
  int value;
};

class NumberText : public testing::TestWithParam<Number> {};

TEST_P(NumberText, IsRead) {
  int value = 12345;
  EXPECT_EQ(tavren_cstring_to_int(GetParam().text.c_str(), &value), 0);
  EXPECT_EQ(value, GetParam().value);
}

INSTANTIATE_TEST_SUITE_P(Each, NumberText,
                         testing::Values(Number{"42", 42}, Number{" 42 ", 42}, Number{"-7", -7}, Number{"+7", 7},
                                         Number{"0x1f", 31}, Number{"0X1F", 31}, Number{"-0x10", -16}, Number{"010", 8},
                                         Number{"0", 0}, Number{"-0", 0}, Number{"\t\n 5 \r\v\f", 5},
                                         Number{"2147483647", INT_MAX}, Number{"-2147483648", INT_MIN}));

/* Also where a long could hold the number. */
INSTANTIATE_TEST_SUITE_P(BeyondTheRange, NumberText,
                         testing::Values(Number{"2147483648", INT_MAX}, Number{"-2147483649", INT_MIN},
                                         Number{"0x100000000", INT_MAX}, Number{"9223372036854775808", INT_MAX},
                                         Number{"99999999999999999999", INT_MAX},
                                         Number{"-99999999999999999999", INT_MIN}));

class NoNumberText : public testing::TestWithParam<std::string> {};

TEST_P(NoNumberText, IsRefusedAndStoresNothing) {
  int value = 12345;
  EXPECT_EQ(tavren_cstring_to_int(GetParam().c_str(), &value), -1);
  EXPECT_EQ(value, 12345);
}

INSTANTIATE_TEST_SUITE_P(Each, NoNumberText,
                         testing::Values("", " ", "abc", "12abc", "1 2", "0x", "08", "-", "1.5", "- 1", "5\xa0"));

struct Split {
  int count;
  std::vector<std::string> fields;
};

Split split(std::string text, int separator) {
  char** fields = nullptr;
  const int count = tavren_split_fields(text.data(), separator, &fields);
  Split result{count, std::vector<std::string>(fields, fields + count)};
  free(fields);
  return result;
}

using Fields = std::vector<std::string>;

TEST(SplitFields, KeepsEmptyFields) {
  const Split result = split("a,,b,", ',');
  EXPECT_EQ(result.count, 4);
  EXPECT_EQ(result.fields, Fields({"a", "", "b", ""}));
}

TEST(SplitFields, OfATextWithoutSeparatorsIsTheText) { EXPECT_EQ(split("abc", ',').fields, Fields({"abc"})); }

TEST(SplitFields, OfASeparatorAloneIsTwoEmptyFields) { EXPECT_EQ(split(",", ',').fields, Fields({"", ""})); }

TEST(SplitFields, OfTheEmptyTextIsNull) {
  char nothing[] = "";
  char* unset = nullptr;
  char** fields = &unset;
  EXPECT_EQ(tavren_split_fields(nothing, ',', &fields), 0);
  EXPECT_EQ(fields, nullptr);
}

TEST(SplitFields, TakesTheLow8BitsOfTheSeparator) {
  EXPECT_EQ(split("a,b", 0x1200 + ',').fields, Fields({"a", "b"}));
  EXPECT_EQ(split("a\xffz", -1).fields, Fields({"a", "z"}));
}

TEST(SplitFields, DoesNotSplitAtTheTextsEnd) { EXPECT_EQ(split("a,b", 0x100).fields, Fields({"a,b"})); }

TEST(SplitFields, LeavesItsArgumentAlone) {
  char text[] = "a,b";
  char** fields = nullptr;
  tavren_split_fields(text, ',', &fields);
  EXPECT_STREQ(text, "a,b");
  free(fields);
}

TEST(SplitFields, KeepsPointersAndTextInOneAllocation) {
  char text[] = "ab,c";
  char** fields = nullptr;
  ASSERT_EQ(tavren_split_fields(text, ',', &fields), 2);
  EXPECT_EQ(static_cast<void*>(fields[0]), static_cast<void*>(fields + 2));
  EXPECT_EQ(fields[1], fields[0] + 3);
  free(fields);
}

TEST(ParseSpaceLimit, KnowsUnlimitedInAnyLetterCase) {
  for (const char* text : {"unlimited", "UNLIMITED", "uNlImItEd"}) {
    int megabytes = 0;
    EXPECT_EQ(tavren_parse_space_limit(text, &megabytes), 0) << text;
    EXPECT_EQ(megabytes, -1) << text;
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

TEST(ParseSpaceLimit, ReadsNumbers) {
  int megabytes = 0;
  EXPECT_EQ(tavren_parse_space_limit("100", &megabytes), 0);
  EXPECT_EQ(megabytes, 100);
  EXPECT_EQ(tavren_parse_space_limit(" 0x10 ", &megabytes), 0);
  EXPECT_EQ(megabytes, 16);
}

TEST(ParseSpaceLimit, RefusesAnythingElseAndStoresNothing) {
  for (const char* text : {"", "unlimited ", " unlimited", "unlimite", "100 MB"}) {
    int megabytes = 12345;
    EXPECT_EQ(tavren_parse_space_limit(text, &megabytes), -1) << text;
    EXPECT_EQ(megabytes, 12345) << text;
  }
}

}  // namespace
