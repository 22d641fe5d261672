#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>
#include <utmp.h>

#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "tavren_basic.h"
#include "tools/ctl_fixture.h"

namespace {

using testing::HasSubstr;
using testing::Not;

/* "tavren_ctl watch" on a terminal of its own. */
class Watch : public TavrenCtl {
 protected:
  static constexpr int patience_ms = 30000; /* which only a test that hangs waits for */
  static constexpr char frame_start[] = "\x1b[H\x1b[J";

  Watch() {
    archives("512\n3\n17", "-1\n5\n6");
    has_limits("1000", "-1");
  }
  ~Watch() override {
    if (program != -1) {
      kill(program, SIGKILL);
      waitpid(program, nullptr, 0);
    }
    for (const int fd : {master, slave}) {
      if (fd != -1) close(fd);
    }
  }

  void watch_on_a_screen(unsigned short columns = 80, unsigned short rows = 24) {
    const winsize size = {rows, columns, 0, 0};
    if (openpty(&master, &slave, nullptr, nullptr, &size) != 0) throw std::runtime_error("openpty");
    fcntl(master, F_SETFD, FD_CLOEXEC);
    before = settings();
    program = fork();
    if (program == 0) {
      login_tty(slave);
      setenv("TERM", "xterm", 1);
      execl(TAVREN_CTL, TAVREN_CTL, "watch", nullptr);
      _exit(127);
    }
  }

  void watch_into_a_pipe() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("pipe2");
    master = ends[0];
    program = fork();
    if (program == 0) {
      dup2(ends[1], STDOUT_FILENO);
      execl(TAVREN_CTL, TAVREN_CTL, "watch", nullptr);
      _exit(127);
    }
    close(ends[1]);
  }

  termios settings() const {
    termios now{};
    tcgetattr(slave, &now);
    return now;
  }

  bool has_its_old_settings() const {
    const termios now = settings();
    return now.c_iflag == before.c_iflag && now.c_oflag == before.c_oflag && now.c_cflag == before.c_cflag &&
           now.c_lflag == before.c_lflag && memcmp(now.c_cc, before.c_cc, sizeof now.c_cc) == 0;
  }

  /* Reads on. Returns whether something came. */
  bool read_more() {
    pollfd input = {master, POLLIN, 0};
    if (poll(&input, 1, patience_ms) != 1) return false;
    char piece[4096];
    const ssize_t length = read(master, piece, sizeof piece);
    if (length > 0) shown.append(piece, static_cast<size_t>(length));
    return length > 0;
  }

  /* Waits until what has been shown since the last call has that text, and is taken up to the text's end. */
  void expect_shown(const std::string& text) {
    while (shown.find(text) == std::string::npos) {
      if (!read_more()) {
        FAIL() << "in vain: " << text << "\nshown: " << shown;
      }
    }
    shown.erase(0, shown.find(text) + text.size());
  }

  /* Returns the lines of the next whole screen. */
  std::vector<std::string> next_screen() {
    expect_shown(frame_start);
    while (shown.find(frame_start) == std::string::npos && read_more()) {
    }
    std::istringstream frame(shown.substr(0, shown.find(frame_start)));
    std::vector<std::string> lines;
    for (std::string line; std::getline(frame, line);) {
      lines.push_back(line.substr(0, line.find('\r')));
    }
    return lines;
  }

  void type(const std::string& keys) const {
    ASSERT_EQ(write(master, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
  }

  /* Waits for the program's end. Returns its wait status. */
  int end() {
    int status = -1;
    waitpid(program, &status, 0);
    program = -1;
    return status;
  }

  int master = -1;
  int slave = -1;
  pid_t program = -1;
  termios before{};
  std::string shown;
};

TEST_F(Watch, DrawsTheStatusAnewEachSecond) {
  watch_on_a_screen();
  expect_shown("512 of 1000 MB");
  archives("513\n4\n18", "-1\n5\n6");
  expect_shown(std::string(frame_start));
  expect_shown("513 of 1000 MB");
  expect_shown("4 waiting, 18 archived");
}

TEST_F(Watch, EndsWithTheKeyQ) {
  watch_on_a_screen();
  expect_shown("logs:");
  type("xq");
  const int status = end();
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
}

TEST_F(Watch, TakesKeysAtOnceAndGivesTheTerminalBack) {
  watch_on_a_screen();
  expect_shown("logs:");
  EXPECT_EQ(settings().c_lflag & static_cast<tcflag_t>(ICANON | ECHO), 0U);
  type("q");
  end();
  EXPECT_TRUE(has_its_old_settings());
}

TEST_F(Watch, GivesTheTerminalBackWhenItIsInterrupted) {
  watch_on_a_screen();
  expect_shown("logs:");
  type("\x03");
  const int status = end();
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGINT) << status;
  EXPECT_TRUE(has_its_old_settings());
}

TEST_F(Watch, GivesTheTerminalBackWhenItIsToEnd) {
  for (const int signal_number : {SIGTERM, SIGHUP, SIGQUIT}) {
    watch_on_a_screen();
    expect_shown("logs:");
    kill(program, signal_number);
    const int status = end();
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == signal_number) << status;
    EXPECT_TRUE(has_its_old_settings()) << signal_number;
    close(master);
    close(slave);
    shown.clear();
  }
  master = slave = -1;
}

TEST_F(Watch, GivesTheTerminalBackWhileItIsStopped) {
  watch_on_a_screen();
  expect_shown("logs:");
  type("\x1a");
  int status = 0;
  ASSERT_EQ(waitpid(program, &status, WUNTRACED), program);
  ASSERT_TRUE(WIFSTOPPED(status)) << status;
  EXPECT_TRUE(has_its_old_settings());
  kill(program, SIGCONT);
  shown.clear();
  expect_shown("logs:");
  EXPECT_EQ(settings().c_lflag & static_cast<tcflag_t>(ICANON | ECHO), 0U);
  type("q");
  end();
  EXPECT_TRUE(has_its_old_settings());
}

TEST_F(Watch, HasRoomOnANarrowAndLowScreen) {
  watch_on_a_screen(40, 10);
  const std::vector<std::string> lines = next_screen();
  ASSERT_EQ(lines.size(), 9U);
  EXPECT_THAT(lines[0], testing::EndsWith(", q ends"));
  EXPECT_EQ(lines[5], "audit:      512 of 1000 MB [#####-----]");
  EXPECT_EQ(lines[8], "            5 waiting, 6 archived");
}

TEST_F(Watch, CutsWhatDoesNotFit) {
  watch_on_a_screen(12, 3);
  const std::vector<std::string> lines = next_screen();
  ASSERT_EQ(lines.size(), 3U);
  EXPECT_EQ(lines[0].size(), 12U);
  EXPECT_EQ(lines[1], "Archiving:  ");
  EXPECT_EQ(lines[2], "Daemon:     ");
}

TEST_F(Watch, HasALongBarOnAWideScreen) {
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
  watch_on_a_screen();
  expect_shown("logs:");
  stop(SIGKILL);
  expect_shown("tavren_ctl: Archiving API error: ");
  start();
  expect_shown("logs:");
  type("q");
  EXPECT_EQ(end(), 0);
}

TEST_F(Watch, WithoutATerminalPrintsEachStatusInPlainLines) {
  watch_into_a_pipe();
  const std::string end_of_a_status = "            5 waiting, 6 archived\n\n";
  while (shown.find(end_of_a_status, shown.find(end_of_a_status) + 1) == std::string::npos && read_more()) {
  }
  EXPECT_THAT(shown, HasSubstr("audit:      512 of 1000 MB\n            3 waiting, 17 archived\nlogs:       not"));
  EXPECT_THAT(shown, HasSubstr(end_of_a_status + "20"));
  EXPECT_THAT(shown, Not(HasSubstr("\x1b")));
  kill(program, SIGTERM);
  EXPECT_EQ(end(), SIGTERM);
}

}  // namespace
