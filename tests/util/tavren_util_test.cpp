#include "tavren_util.h"

#include <gtest/gtest.h>
#include <limits.h>

namespace {

TEST(IntToString, IsTheDecimalText) {
  EXPECT_EQ(tavren_int_to_string(0), "0");
  EXPECT_EQ(tavren_int_to_string(-7), "-7");
  EXPECT_EQ(tavren_int_to_string(INT_MAX), "2147483647");
  EXPECT_EQ(tavren_int_to_string(INT_MIN), "-2147483648");
}

TEST(PadEnd, FillsWithBlanksUpToTheWidthAndLeavesLongerTexts) {
  EXPECT_EQ(tavren_pad_end("ab", 5), "ab   ");
  EXPECT_EQ(tavren_pad_end("", 2), "  ");
  for (const int width : {3, 2, 0, -1}) EXPECT_EQ(tavren_pad_end("abc", width), "abc") << width;
  EXPECT_EQ(tavren_pad_end("", INT_MIN), "");
}

TEST(Basename, IsThePartAfterTheLastSlash) {
  EXPECT_EQ(tavren_basename("/a/b"), "b");
  EXPECT_EQ(tavren_basename("a/b/c.d"), "c.d");
  EXPECT_EQ(tavren_basename("/a"), "a");
}

TEST(Basename, WithoutASlashIsTheWholeAndAfterOneAtTheEndEmpty) {
  EXPECT_EQ(tavren_basename("abc"), "abc");
  EXPECT_EQ(tavren_basename(""), "");
  EXPECT_EQ(tavren_basename("/a/b/"), "");
  EXPECT_EQ(tavren_basename("/"), "");
}

}  // namespace
