#include <gtest/gtest.h>

#include <string>

#include "support/files.h"
#include "support/host_session.h"
#include "support/named.h"

namespace {

using Text = Named<std::string>;

std::string every_byte() {
  std::string bytes;
  for (int byte = 1; byte < 256; ++byte) bytes += static_cast<char>(byte);
  return bytes;
}

class ShellQuoting : public LoopbackTest, public testing::WithParamInterface<Text> {};

}  // namespace

TEST(QuoteForShell, ReplacesASingleQuoteByFourCharacters) {
  EXPECT_EQ(TavrenHost::quote_for_shell("it's"), "'it'\\''s'");
}

TEST(QuoteForShell, QuotesTheEmptyText) { EXPECT_EQ(TavrenHost::quote_for_shell(""), "''"); }

TEST(QuoteForShell, EscapesNothingElse) { EXPECT_EQ(TavrenHost::quote_for_shell("$a`b\"c\\d\ne"), "'$a`b\"c\\d\ne'"); }

TEST_P(ShellQuoting, IsUndoneByARealShell) {
  write_file(directory.path("text"), GetParam().value);
  open();
  EXPECT_NO_THROW(
      host.run_and_check_ecode("printf %s " + TavrenHost::quote_for_shell(GetParam().value) + " | cmp - text"));
}

INSTANTIATE_TEST_SUITE_P(, ShellQuoting,
                         testing::Values(Text{"Nothing", ""}, Text{"Blanks", "  a  b  "}, Text{"SingleQuote", "it's"},
                                         Text{"OnlySingleQuotes", "''''"}, Text{"DoubleQuotes", "\"a\""},
                                         Text{"Substitution", "$(touch x)`touch x`$HOME${x}"},
                                         Text{"Backslashes", "\\a\\\\b\\"}, Text{"Newlines", "\na\n\nb\n"},
                                         Text{"CarriageReturns", "\ra\r\n\r"}, Text{"Patterns", "*?[a-z]{a,b}~!#"},
                                         Text{"Operators", ";|&<>()"}, Text{"EveryByte", every_byte()}),
                         by_name);
