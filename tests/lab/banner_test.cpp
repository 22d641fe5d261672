#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <unistd.h>

#include <filesystem>
#include <utility>

#include "lab/lab.h"
#include "support/files.h"
#include "support/named.h"
#include "tavren_basic.h"

using testing::AllOf;
using testing::AnyOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using testing::StrEq;

namespace {

constexpr int timeout = 4; /* seconds */

constexpr char password[] = "never-to-be-seen";

/* What this program writes to its standard output and error stream while it lives goes into a file. */
class ProgramOutput {
 public:
  ProgramOutput() {
    fflush(nullptr);
    const int file = open(path().c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    for (const int fd : {STDOUT_FILENO, STDERR_FILENO}) {
      saved[fd - 1] = fcntl(fd, F_DUPFD_CLOEXEC, 3);
      dup2(file, fd);
    }
    close(file);
  }

  ~ProgramOutput() {
    fflush(nullptr);
    for (const int fd : {STDOUT_FILENO, STDERR_FILENO}) {
      dup2(saved[fd - 1], fd);
      close(saved[fd - 1]);
    }
  }

  ProgramOutput(const ProgramOutput&) = delete;
  ProgramOutput& operator=(const ProgramOutput&) = delete;

  static std::string path() { return lab::value("LAB") + "/program-output"; }

 private:
  int saved[2];
};

/*
 * A banner is the host's own text, shown before the login: it may hold anything. Whatever becomes of the login, the
 * password is seen nowhere.
 */
class Banner : public LabTest {
 protected:
  Banner() : child_log("subprocess_log_size", 1000000) {
    lab::set_password(password);
    lab::configure_sshd("Banner " + lab::value("LAB") + "/banner");
  }

  /* Shows line in a banner, logs in and works there; returns what became of it. */
  std::string log_in_past(const std::string& line, const std::string& key) {
    write_file(lab::value("LAB") + "/banner", "Welcome.\n" + line + "\nBehave.\n");
    const ScopedTunable connect("ssh_connect_timeout", timeout);
    const ScopedTunable start("ssh_shell_start_timeout", timeout);
    Settings settings = lab::settings();
    settings.host_key = key;
    settings.password = password;

    const int started = tavren_get_uptime();
    const std::string outcome = outcome_of_work(session(settings, true));
    EXPECT_LE(tavren_get_uptime() - started, 2 * (timeout + 1) + 10);
    expect_no_password_in(outcome);
    return outcome;
  }

 private:
  static std::string outcome_of_work(TavrenHost& host) {
    const ProgramOutput captured;
    return error_of([&host] {
      host.open_connection();
      host.run_and_expect_line("echo works", "works");
      host.send_data("x", 1, "file", 0644);
    });
  }

  static void expect_no_password_in(const std::string& outcome) {
    const std::string log = lab::value("TAVREN_HOME") + "/tavren_tmp/tavren_child_output.lab";
    const std::string child_output = read_file(log);
    std::filesystem::resize_file(log, 0); /* so that the next one shows the next login */
    EXPECT_THAT(child_output, HasSubstr("archiver@localhost"));
    for (const std::string& text : {outcome, child_output, lab::system_log(), lab::console()}) {
      EXPECT_THAT(text, Not(HasSubstr(password)));
    }
    EXPECT_EQ(read_file(ProgramOutput::path()), "");
  }

  const ScopedTunable child_log;
};

/* Lines, and what comes of them with a key. */
constexpr std::pair<const char*, const char*> texts[] = {
    {"Authorised access only.", no_error},
    {"Are you sure you want to continue connecting (yes/no)? ", no_error},
    {"SHELL STARTED.", no_error},
    {"Permission denied, please try again.", no_error},
    {"** RUNNING cd '/home/archiver/archive'", no_error},
    {"** EXIT CODE: 7", no_error},
    {"_TAV/REN_ BEGIN", no_error},
    {"_TAV/REN_ END", no_error},
    /* With a key these are the client's word that the host is not the one expected. */
    {"WARNING: REMOTE HOST IDENTIFICATION HAS CHANGED!", key_mismatch},
    {"Host key verification failed.", key_mismatch},
    {"The authenticity of host 'x' can't be established.", key_mismatch},
    {"Add correct host key in x", key_mismatch},
};

class BannerOfOneLine : public Banner {};

TEST_F(BannerOfOneLine, DoesNotMatterWithoutAKeyAndHasItsOneOutcomeWithOne) {
  for (const auto& [line, outcome_with_key] : texts) {
    SCOPED_TRACE(line);
    EXPECT_EQ(log_in_past(line, ""), no_error);
    EXPECT_EQ(log_in_past(line, lab::value("LAB_HOST_KEY")), outcome_with_key);
  }
}

/* Without a key or, if the parameter says so, with the host's. */
class BannerWithThePrompt : public Banner, public testing::WithParamInterface<Named<bool>> {
 protected:
  std::string log_in_past_lines(const std::string& lines) {
    return log_in_past(lines, GetParam().value ? lab::value("LAB_HOST_KEY") : "");
  }
};

constexpr char prompt[] = "archiver@localhost's password: ";
constexpr char start_timeout[] =
    "4\n  - Failed to start secure shell session on localhost\n"
    "  - Timeout occurred while waiting for shell to start on localhost\n";

std::string shown(const std::string& line) { return "  - Output: \"" + line + "\"\n"; }

/*
 * The password is typed while the client still shows the banner, of which the terminal cannot hold so much, and the
 * client throws away what was typed before it asks.
 */
TEST_P(BannerWithThePrompt, BeforeALongTextIsATimeoutThatShowsTheLastLines) {
  std::string lines = prompt, last_lines;
  for (int i = 0; i < 10000; ++i) lines += "\nNobody reads this far.";
  for (int i = 0; i < 19; ++i) last_lines += shown("Nobody reads this far.");
  EXPECT_EQ(log_in_past_lines(lines), start_timeout + last_lines + shown("Behave."));
}

/* The client may ask before the password is typed or after it, or throw a part of it away while it is typed. */
TEST_P(BannerWithThePrompt, BeforeAShortTextEndsInALoginOrANamedError) {
  EXPECT_THAT(log_in_past_lines(prompt),
              AnyOf(StrEq(no_error), StrEq(login_denied),
                    AllOf(StartsWith(start_timeout), EndsWith(shown("Welcome.") + shown(prompt) + shown("Behave.")))));
}

constexpr Named<bool> with_and_without[] = {{"WithAKey", true}, {"WithoutAKey", false}};
INSTANTIATE_TEST_SUITE_P(, BannerWithThePrompt, testing::ValuesIn(with_and_without), by_name);

}  // namespace
