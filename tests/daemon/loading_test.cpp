#include <gtest/gtest.h>
#include <signal.h>

#include <sstream>
#include <string>
#include <utility>

#include "TavrenHost.h"
#include "TavrenTunables.h"
#include "daemon/daemon_fixture.h"

namespace {

class Loading : public ApiTest {
 protected:
  std::string tunables_after(const std::string& text) {
    answer("get_tunables", text);
    EXPECT_EQ(tavren_api_load_tunables(&handle), 0);
    return tunables();
  }

  /* Returns the commands that are not the usual ones after that text was loaded. */
  std::string commands_after(const std::string& text) {
    const TavrenHost fills_the_table(false, false);
    const std::string usual = commands();
    answer("get_remote_commands", text);
    EXPECT_EQ(tavren_api_load_remote_commands(&handle), 0);
    std::string changed;
    std::istringstream lines(commands());
    for (std::string line; std::getline(lines, line);) {
      if (("\n" + usual).find("\n" + line + "\n") == std::string::npos) changed += line + "\n";
    }
    return changed;
  }

  static std::string tunables() {
    std::ostringstream out;
    TavrenTunables::instance().print_tunables(out);
    return out.str();
  }

  static std::string commands() {
    std::ostringstream out;
    TavrenHost::print_cmds(out);
    return out.str();
  }
};

/* One text after the other. */
TEST_F(Loading, OfTunablesChangesThoseOfThisProcessThatAreNamed) {
  const std::string long_text(1 << 20, 'x');
  const std::pair<std::string, std::string> texts[] = {
      {"", ""},
      {"ssh_connect_timeout=5", ""},
      {"log_dir_prefix=a=b\nssh_command_timeout=30\n", "log_dir_prefix=a=b\nssh_command_timeout=30\n"},
      {"log_dir_prefix=default\n", "ssh_command_timeout=30\n"},
      {"unknown=1\nssh_command_timeout=x\nssh_connect_timeout=5\nno assignment\nssh_shell_start_timeout=6\n",
       "ssh_command_timeout=30\nssh_connect_timeout=5\n"},
      {"log_dir_prefix=" + long_text + "\n",
       "log_dir_prefix=" + long_text + "\nssh_command_timeout=30\nssh_connect_timeout=5\n"}};
  for (const auto& [text, changed] : texts) EXPECT_TRUE(tunables_after(text) == changed) << text.substr(0, 100);
  EXPECT_EQ(TavrenTunables::instance().get_ssh_command_timeout(), 30);
}

TEST_F(Loading, OfCommandsChangesThoseOfThisProcessThatAreNamed) {
  EXPECT_EQ(commands_after("ls=/bin/ls \nnew=x=y \n"), "ls=/bin/ls \nnew=x=y \n");
  EXPECT_EQ(commands_after("a=b\nno assignment\nc=d\n"), "a=b\n");
}

TEST_F(Loading, ThatFailsChangesNothing) {
  stop(SIGKILL);
  for (const std::string text : {"", "ssh_command_timeout=30\n"}) {
    TavrenTunables::instance().set_tunables(text);
    EXPECT_EQ(tavren_api_load_tunables(&handle), TAVREN_API_E_RPC);
    EXPECT_EQ(tunables(), text);
  }
  for (const std::string text : {"", "ls=/own/ls \nnew=x \n"}) {
    TavrenHost::set_cmds(text);
    EXPECT_EQ(tavren_api_load_remote_commands(&handle), TAVREN_API_E_RPC);
    EXPECT_EQ(commands(), text);
  }
}

class LoadingAndSession : public Loading {
 protected:
  void load(const std::string& more_commands) {
    answer("get_tunables", "loopback_login=1\nssh_command_timeout=33\n");
    answer("get_remote_commands", "cd=true \nls=echo listed by the daemon # \n" + more_commands);
    EXPECT_EQ(tavren_api_load_tunables(&handle), 0);
    EXPECT_EQ(tavren_api_load_remote_commands(&handle), 0);
  }

  static void expect_to_run_with_what_was_loaded(TavrenHost& host) {
    char text[] = "x";
    host.set_settings({text, text, text, text, text, text});
    host.enable();
    host.open_connection();
    EXPECT_NO_THROW(host.run_and_expect_line(TavrenHost::get_cmd("ls"), "listed by the daemon"));
    host.close_connection();
  }
};

/* Its shell is of the table that was there before. */
TEST_F(LoadingAndSession, LetASessionThatIsThereRunWithWhatWasLoaded) {
  TavrenHost host(false, false);
  load("");
  expect_to_run_with_what_was_loaded(host);
}

TEST_F(LoadingAndSession, LetASessionThatIsMadeLaterRunWithWhatWasLoaded) {
  load("sh=/bin/sh \n");
  TavrenHost host(false, false);
  expect_to_run_with_what_was_loaded(host);
}

/* A table that is not empty is not filled by the first session object. */
TEST_F(Loading, OfCommandsBeforeTheFirstSessionAddsNoOthers) {
  answer("get_remote_commands", "ls=/own/ls \n");
  ASSERT_EQ(tavren_api_load_remote_commands(&handle), 0);
  EXPECT_EQ(commands(), "ls=/own/ls \n");
  const TavrenHost first(false, false);
  EXPECT_EQ(commands(), "ls=/own/ls \n");
}

}  // namespace
