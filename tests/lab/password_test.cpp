#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "lab/lab.h"
#include "support/files.h"

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

namespace {

class Password : public LabTest {
 protected:
  ~Password() override { lab::set_password(lab::value("LAB_PASSWORD")); }
};

TEST_F(Password, LogsInWhateverBytesItHolds) {
  const std::string passwords[] = {"two words ",
                                   " 'single' \"double\"",
                                   "$HOME $(id) `id` $$",
                                   "back\\slash\\n",
                                   "\xe4\xf6\xfc\xff",
                                   "\xc3\xa4\xe2\x82\xac",
                                   "x",
                                   std::string(200, 'p')};
  for (const std::string& password : passwords) {
    lab::set_password(password);
    EXPECT_EQ(outcome_of_login(lab::settings_with(&Settings::password, password)), no_error) << password;
  }
}

class WrongPassword : public LabTest {};

TEST_F(WrongPassword, IsDeniedAtOnceAndSetsTheConnectionStatusToFailed) {
  TavrenHost& host = session(lab::settings_with(&Settings::password, "not the password"));
  EXPECT_EQ(error_of([&] { host.open_connection(); }), login_denied);
  tavren_connection_status_t status = TAVREN_CONNECTION_NONE;
  long when = 0;
  host.get_connection_status(status, when);
  EXPECT_EQ(status, TAVREN_CONNECTION_FAILED);
}

TEST_F(WrongPassword, StandsInNoErrorAndNoLog) {
  const ScopedTunable log("subprocess_log_size", 1000000);
  EXPECT_THAT(outcome_of_login(lab::settings_with(&Settings::password, "never-to-be-seen"), true),
              Not(HasSubstr("never-to-be-seen")));
  const std::string child_log = read_file(lab::value("TAVREN_HOME") + "/tavren_tmp/tavren_child_output.lab");
  EXPECT_THAT(child_log, HasSubstr("archiver@localhost's password: "));
  EXPECT_THAT(child_log, Not(HasSubstr("never-to-be-seen")));
  EXPECT_THAT(lab::system_log(), AllOf(HasSubstr("failed to connect"), Not(HasSubstr("never-to-be-seen"))));
  EXPECT_THAT(lab::console(), AllOf(HasSubstr("unable to communicate"), Not(HasSubstr("never-to-be-seen"))));
}

}  // namespace
