#include <gtest/gtest.h>

#include <string>

#include "support/files.h"
#include "support/host_session.h"

TEST(QuoteForShell, ReplacesASingleQuoteByFourCharactersAndEscapesNothingElse) {
  EXPECT_EQ(TavrenHost::quote_for_shell("it's"), "'it'\\''s'");
  EXPECT_EQ(TavrenHost::quote_for_shell(""), "''");
  EXPECT_EQ(TavrenHost::quote_for_shell("$a`b\"c\\d\ne"), "'$a`b\"c\\d\ne'");
}

using ShellQuoting = LoopbackTest;

TEST_F(ShellQuoting, IsUndoneByARealShell) {
  std::string every_byte;
  for (int byte = 1; byte < 256; ++byte) every_byte += static_cast<char>(byte);
  const std::string texts[] = {"",           "  a  b  ",
                               "it's",       "''''",
                               "\"a\"",      "$(touch x)`touch x`$HOME${x}",
                               "\\a\\\\b\\", "\na\n\nb\n",
                               "\ra\r\n\r",  "*?[a-z]{a,b}~!#",
                               ";|&<>()",    every_byte};
  open();
  for (const std::string& text : texts) {
    SCOPED_TRACE(text);
    write_file(directory.path("text"), text);
    EXPECT_NO_THROW(host.run_and_check_ecode("printf %s " + TavrenHost::quote_for_shell(text) + " | cmp - text"));
  }
}
