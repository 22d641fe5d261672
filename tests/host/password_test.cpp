#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "host/login_fixture.h"
#include "support/files.h"
#include "support/named.h"
#include "support/recorded_system.h"
#include "support/wiped_texts.h"
#include "tavren_assert.h"
#include "tavren_basic.h"

namespace {

using Password = Named<std::string>;

std::string all_bytes() {
  std::string bytes;
  for (int byte = 1; byte < 256; ++byte) {
    if (byte != '\n') bytes += static_cast<char>(byte);
  }
  return bytes;
}

class PasswordBytes : public LoginTest, public testing::WithParamInterface<Password> {};
class PasswordSecrecy : public LoginTest {};

}  // namespace

TEST_P(PasswordBytes, ArriveUnchanged) {
  settings.password = GetParam().value;
  open(dialogue.login());
  EXPECT_EQ(client->taken("password"), GetParam().value + "\n");
}

INSTANTIATE_TEST_SUITE_P(, PasswordBytes,
                         testing::Values(Password{"OneByte", "x"}, Password{"None", ""},
                                         Password{"TwoHundred", std::string(200, 'y')},
                                         Password{"Blanks", "  two  words  "}, Password{"Quotes", "'\"`'"},
                                         Password{"Dollar", "$HOME$(id)${x}"}, Password{"Backslash", "\\n\\\\0\\"},
                                         Password{"EightBits", "p\xc3\xa4ss\xff\x80\x81"},
                                         Password{"EveryByte", all_bytes()}),
                         by_name);

/* Of two pieces the client could throw away one, together with what else was typed before it asks. */
TEST_F(PasswordSecrecy, ItIsTypedInOnePiece) {
  recorded_system::record_writes();
  open(dialogue.login());
  const std::vector<std::string> writes = recorded_system::take_writes();
  EXPECT_EQ(std::count(writes.begin(), writes.end(), settings.password + "\n"), 1);
}

TEST_F(PasswordSecrecy, ItsTypedCopyIsWiped) {
  open(dialogue.login());
  EXPECT_EQ(wiped_texts, settings.password + "\n|");
}

TEST_F(PasswordSecrecy, ItIsInNoArgument) {
  open(dialogue.login());
  for (const std::string& argument : client->arguments()) {
    EXPECT_EQ(argument.find(settings.password), std::string::npos) << argument;
  }
}

TEST_F(PasswordSecrecy, ItIsNotInTheLogOfTheChildsOutput) {
  set_tunable("subprocess_log_size", "1000000");
  open(dialogue.login());
  set_tunable("subprocess_log_size", "0");
  const std::string log =
      read_file(std::string(tavren_get_tmp_root()) + "/tavren_child_output." + tavren_get_program_name());
  EXPECT_NE(log.find("SHELL STARTED."), std::string::npos) << log;
  EXPECT_EQ(log.find(settings.password), std::string::npos) << log;
}
