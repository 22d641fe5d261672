#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>

#include <sstream>
#include <string>
#include <vector>

#include "tools/ctl_fixture.h"
#include "tools/program_on_a_terminal.h"

namespace {

using testing::HasSubstr;
using testing::Not;

/* "tavren_ctl watch" on a terminal of its own. */
class Watch : public TavrenCtl, protected ProgramOnATerminal {
 protected:
  static constexpr char frame_start[] = "\x1b[H";

  Watch() {
    archives("512\n3\n17", "-1\n5\n6");
    has_limits("1000", "-1");
  }

  void watch_on_a_screen(unsigned short columns = 80, unsigned short rows = 24) {
    run_on_a_terminal({TAVREN_CTL, "watch"}, columns, rows);
  }

  void watch_until_drawn() {
    watch_on_a_screen();
    expect_shown("logs:");
  }

  /* Returns the lines of the next whole screen. */
  std::vector<std::string> next_screen() {
    expect_shown(frame_start);
    while (shown.find(frame_start) == std::string::npos && read_more()) {
    }
    std::istringstream frame(shown.substr(0, shown.find(frame_start)));
    std::vector<std::string> lines;
    for (std::string line; std::getline(frame, line);) {
      /* Each begins with what clears its place. */
      EXPECT_THAT(line, testing::AnyOf(testing::StartsWith("\x1b[K"), testing::StartsWith("\x1b[J")));
      lines.push_back(line.substr(3, line.find('\r') - 3));
    }
    return lines;
  }
};

TEST_F(Watch, DrawsTheStatusAnewEachSecond) {
  watch_on_a_screen();
  expect_shown("512 of 1000 MB");
  archives("513\n4\n18", "-1\n5\n6");
  expect_shown(std::string(frame_start));
  expect_shown("513 of 1000 MB");
  expect_shown("4 waiting, 18 archived");
}

TEST_F(Watch, TakesKeysAtOnceEndsWithTheKeyQAndGivesTheTerminalBack) {
  watch_until_drawn();
  EXPECT_EQ(settings().c_lflag & static_cast<tcflag_t>(ICANON | ECHO), 0U);
  type("xq");
  EXPECT_EQ(end(), 0);
  EXPECT_TRUE(has_its_old_settings());
}

TEST_F(Watch, GivesTheTerminalBackWhenItIsInterruptedOrToEnd) {
  watch_until_drawn();
  type("\x03");
  expect_end_by(SIGINT);
  for (const int signal_number : {SIGTERM, SIGHUP, SIGQUIT}) {
    watch_until_drawn();
    kill(program, signal_number);
    expect_end_by(signal_number);
  }
}

TEST_F(Watch, GivesTheTerminalBackWhileItIsStopped) {
  run_in_a_shell(TAVREN_CTL " watch");
  expect_shown("logs:");
  type("\x1a");
  expect_shown("Stopped");
  EXPECT_TRUE(has_its_old_settings());
  type("fg\n");
  expect_shown("logs:");
  EXPECT_EQ(settings().c_lflag & static_cast<tcflag_t>(ICANON | ECHO), 0U);
  type("q");
  type("exit $?\n");
  EXPECT_EQ(end(), 0);
  EXPECT_TRUE(has_its_old_settings());
}

TEST_F(Watch, IsNotStoppedWhereNobodyCouldContinueIt) {
  watch_until_drawn();
  type("\x1aq");
  int status = 0;
  ASSERT_EQ(waitpid(program, &status, WUNTRACED), program);
  program = -1;
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
}

/* A terminal that is cleared at once may keep what it showed. */
TEST_F(Watch, NeverClearsTheWholeScreen) {
  watch_until_drawn();
  while (shown.find("logs:") == std::string::npos && read_more()) {
  }
  EXPECT_EQ(shown.find("\x1b[H\x1b[J"), std::string::npos);
  EXPECT_EQ(shown.find("\x1b[2J"), std::string::npos);
}

TEST_F(Watch, TakesAwayWhatALongerScreenHasLeft) {
  watch_on_a_screen();
  expect_shown("\x1b[J            5 waiting");
}

TEST_F(Watch, FitsANarrowALowAndAWideScreen) {
  watch_on_a_screen(40, 10);
  std::vector<std::string> lines = next_screen();
  ASSERT_EQ(lines.size(), 9U);
  EXPECT_THAT(lines[0], testing::EndsWith(", q ends"));
  EXPECT_EQ(lines[5], "audit:      512 of 1000 MB [#####-----]");
  EXPECT_EQ(lines[8], "            5 waiting, 6 archived");
  watch_on_a_screen(12, 3);
  lines = next_screen();
  ASSERT_EQ(lines.size(), 3U);
  EXPECT_EQ(lines[0].size(), 12U);
  EXPECT_EQ(lines[1], "Archiving:  ");
  EXPECT_EQ(lines[2], "Daemon:     ");
  watch_on_a_screen(200, 24);
  EXPECT_EQ(next_screen()[5], "audit:      512 of 1000 MB [" + std::string(25, '#') + std::string(25, '-') + "]");
}

TEST_F(Watch, DrawsAnewWhenTheScreenChanges) {
  watch_on_a_screen(200, 24);
  next_screen();
  const winsize size = {24, 40, 0, 0};
  ASSERT_EQ(ioctl(master, TIOCSWINSZ, &size), 0);
  expect_shown("512 of 1000 MB [#####-----]");
}

TEST_F(Watch, CutsByCharactersAndDrawsNoneThatMoveTheCursor) {
  setenv("LC_ALL", "C.UTF-8", 1);
  answer("get_archive_host", "\x1b[2J\xc3\xa4\xc3\xb6\xc3\xbc\xff.example");
  watch_on_a_screen(24, 24);
  EXPECT_EQ(next_screen()[3], "Target:     u@?[2J\xc3\xa4\xc3\xb6\xc3\xbc?.e");
}

TEST_F(Watch, WaitsForADaemonThatGoesAway) {
  watch_until_drawn();

  stop(SIGKILL);
  expect_shown("tavren_ctl: Archiving API error: ");
  start();
  expect_shown("logs:");
  type("q");
  EXPECT_EQ(end(), 0);
}

TEST_F(Watch, OnATerminalThatCannotMoveItsCursorPrintsPlainLines) {
  kind = "dumb";
  watch_on_a_screen();
  while (shown.find("5 waiting, 6 archived\r\n\r\n20") == std::string::npos &&
         shown.find('\x1b') == std::string::npos && read_more()) {
  }
  EXPECT_THAT(shown, HasSubstr("audit:      512 of 1000 MB\r\n"));
  EXPECT_THAT(shown, Not(HasSubstr("\x1b")));
}

TEST_F(Watch, WithoutATerminalPrintsEachStatusInPlainLines) {
  run_into_a_pipe({TAVREN_CTL, "watch"});
  const std::string end_of_a_status = "            5 waiting, 6 archived\n\n";
  while (shown.find(end_of_a_status, shown.find(end_of_a_status) + 1) == std::string::npos && read_more()) {
  }
  EXPECT_THAT(shown, HasSubstr("audit:      512 of 1000 MB\n            3 waiting, 17 archived\nlogs:       unl"));
  EXPECT_THAT(shown, HasSubstr(end_of_a_status + "20"));
  EXPECT_THAT(shown, Not(HasSubstr("\x1b")));
  kill(program, SIGTERM);
  EXPECT_EQ(end(), SIGTERM);
}

}  // namespace
