#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "host/login_fixture.h"
#include "support/files.h"
#include "support/recorded_system.h"
#include "support/wiped_texts.h"
#include "tavren_assert.h"
#include "tavren_basic.h"

namespace {

std::string all_bytes() {
  std::string bytes;
  for (int byte = 1; byte < 256; ++byte) {
    if (byte != '\n') bytes += static_cast<char>(byte);
  }
  return bytes;
}

class PasswordBytes : public LoginTest {};
class PasswordSecrecy : public LoginTest {};

}  // namespace

TEST_F(PasswordBytes, ArriveUnchanged) {
  const std::string passwords[] = {"x",
                                   "",
                                   std::string(200, 'y'),
                                   "  two  words  ",
                                   "'\"`'",
                                   "$HOME$(id)${x}",
                                   "\\n\\\\0\\",
                                   "p\xc3\xa4ss\xff\x80\x81",
                                   all_bytes()};
  for (const std::string& password : passwords) {
    SCOPED_TRACE(password);
    settings.password = password;
    open(dialogue.login());
    EXPECT_EQ(client->taken("password"), password + "\n");
    start_over();
  }
}

/* Of two pieces the client could throw away one, together with what else was typed before it asks. */
TEST_F(PasswordSecrecy, ItIsTypedInOnePieceWhoseCopyIsWipedAndIsInNoArgument) {
  recorded_system::record_writes();
  open(dialogue.login());
  const std::vector<std::string> writes = recorded_system::take_writes();
  EXPECT_EQ(std::count(writes.begin(), writes.end(), settings.password + "\n"), 1);
  EXPECT_EQ(wiped_texts, settings.password + "\n|");
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
