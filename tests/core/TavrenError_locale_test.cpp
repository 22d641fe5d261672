#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <iomanip>
#include <locale>
#include <sstream>

#include "core/counted_errors.h"
#include "core/error_lines.h"

using testing::ElementsAre;

/* The host's locale and its streams' flags are its own; what crosses the daemon's interface does not follow them. */
namespace {

/* Digits are grouped by a hyphen, so a reader of numbers takes it for no sign. */
struct GroupedDigits : std::numpunct<char> {
  char do_thousands_sep() const override { return '-'; }
  std::string do_grouping() const override { return "\1"; }
};

/* The program's locale for the length of a scope. */
class GroupingLocale {
 public:
  GroupingLocale() : before(std::locale::global(std::locale(std::locale(), new GroupedDigits))) {}
  ~GroupingLocale() { std::locale::global(before); }
  GroupingLocale(const GroupingLocale&) = delete;
  GroupingLocale& operator=(const GroupingLocale&) = delete;

 private:
  std::locale before;
};

TEST(SerialisedError, HasPlainNumbersWhateverTheLocale) {
  TavrenError error(TAVREN_E_LOGIN_DENIED, "x", "");
  error.time = 1000;
  const GroupingLocale locale;
  EXPECT_EQ(serialised(error), with_nul_bytes("TavrenError|1000|1|error_line_t|23|1|x|"));
}

TEST(SerialisedError, HasPlainNumbersWhateverTheStreamsFlags) {
  TavrenError error(TAVREN_E_LOGIN_DENIED, "x", "");
  error.time = 1000;
  std::ostringstream text;
  text << std::hex << std::showpos << std::setfill('*') << std::setw(20);
  error.serialize(text);
  EXPECT_EQ(text.str(), with_nul_bytes("TavrenError|1000|1|error_line_t|23|1|x|"));
}

TEST(CountedErrors, AreReadWhateverTheLocale) {
  Errors errors;
  const GroupingLocale locale;
  parse("1|TavrenError|-5|1|error_line_t|-7|1|x|", errors.list);
  ASSERT_EQ(errors.list.size(), 1U);
  EXPECT_EQ(errors.list.front()->time, -5);
  EXPECT_THAT(contents(*errors.list.front()), ElementsAre(LineContent(-7, {"x"})));
}

}  // namespace
