#include <errno.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <stdio.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <iterator>
#include <stdexcept>
#include <string>

#include "support/real_function.h"
#include "tavren_share.h"

namespace {

int interruptions = 0;        /* of the next calls of tcsetattr */
std::string changes;          /* when each call of tcsetattr was to take effect */
int unread_at_restoring = -1; /* bytes of output when the terminal was restored */

}  // namespace

STANDS_BEFORE_THE_REAL_ONE int tcsetattr(int fd, int actions, const termios* settings) noexcept {
  if (actions == TCSANOW) ioctl(STDOUT_FILENO, FIONREAD, &unread_at_restoring);
  changes += actions == TCSAFLUSH ? "flush " : actions == TCSANOW ? "now " : "drain ";
  if (interruptions == 0) {
    return real<int(int, int, const termios*)>("tcsetattr")(fd, actions, settings);
  }
  --interruptions;
  errno = EINTR;
  return -1;
}

namespace {

constexpr int patience_ms = 30000;

void write_all(int fd, const std::string& text) {
  if (write(fd, text.data(), text.size()) != static_cast<ssize_t>(text.size()))
    throw std::runtime_error("write failed");
}

/* Returns whether the two are the same in everything that tcsetattr sets. */
bool same(const termios& a, const termios& b) {
  return a.c_iflag == b.c_iflag && a.c_oflag == b.c_oflag && a.c_cflag == b.c_cflag && a.c_lflag == b.c_lflag &&
         std::equal(std::begin(a.c_cc), std::end(a.c_cc), std::begin(b.c_cc));
}

/* A child that reads a line from a real terminal, whose user is the test. Its output goes into a pipe. */
class TerminalInput : public testing::Test {
 protected:
  TerminalInput() {
    if (openpty(&master, &slave, nullptr, nullptr, nullptr) != 0 || pipe(output) != 0 || pipe(result) != 0) {
      throw std::runtime_error("openpty or pipe failed");
    }
    initial = attributes();
  }
  ~TerminalInput() override {
    if (child > 0) kill(child, SIGKILL), waitpid(child, nullptr, 0);
    for (const int fd : {master, slave, output[0], output[1], result[0], result[1]}) close(fd);
  }

  /* Starts a child at the terminal that does that. */
  void start(const std::function<void()>& action) {
    child = fork();
    if (child == -1) throw std::runtime_error("fork failed");
    if (child > 0) return;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    dup2(slave, STDIN_FILENO);
    dup2(output[1], STDOUT_FILENO);
    changes.clear();
    action();
    dprintf(result[1], "%s;%d;", changes.c_str(), unread_at_restoring);
    fflush(stdout);
    _exit(0);
  }

  /* Starts a child that reads so many lines, the first hidden or not, the others not. */
  void start(int hide, int lines = 1) {
    start([this, hide, lines] {
      for (int i = 0; i < lines; ++i) {
        char buffer[20];
        const int count = tavren_read_input("Password: ", buffer, sizeof buffer, i == 0 ? hide : 0);
        dprintf(result[1], "%d %s;", count, buffer);
      }
    });
  }

  /* Starts a child that asks a question and tells the answer as its line, and waits for the question. */
  void ask_and_wait() {
    start([this] { dprintf(result[1], "%d;", tavren_yes_or_no("Sure? ", 0, 0)); });
    ASSERT_EQ(read_until(output[0], ' '), "Sure? ");
  }

  /* Starts the child and waits for its prompt. */
  void start_and_wait(int hide, int lines = 1) {
    start(hide, lines);
    wait_for_prompt();
  }

  void wait_for_prompt() { ASSERT_EQ(read_until(output[0], ' '), "Password: "); }

  /* Has a child read a hidden line. Returns what line() does. */
  std::string read_hidden(int hide = 1) {
    start_and_wait(hide);
    type("secret\n");
    return line();
  }

  /* Types that and waits until the terminal has it. */
  void type_ahead(const std::string& text) {
    write_all(master, text);
    pollfd ready{slave, POLLIN, 0};
    ASSERT_EQ(poll(&ready, 1, patience_ms), 1);
  }

  void type(const std::string& text) { write_all(master, text); }

  /* Returns the count and the line that the child has read, once it has ended. */
  std::string line() {
    std::string text = read_until(result[0], ';');
    waitpid(child, nullptr, 0);
    child = -1;
    return text;
  }

  /* Returns when each change of the terminal was to take effect; the child's lines must have been taken. */
  std::string changes_of_the_terminal() { return read_until(result[0], ';'); }

  /* Returns how many bytes of output nobody had read when the terminal was restored; behind the changes. */
  int unread_when_restored() { return std::stoi(read_until(result[0], ';')); }

  /* Returns what the child has written after its prompt; it must have ended. */
  std::string rest_of_output() {
    write_all(output[1], "|");
    return read_until(output[0], '|');
  }

  /* Returns what the terminal has shown: the echo of what was typed. */
  std::string shown() {
    write_all(slave, "|");
    return read_until(master, '|');
  }

  termios attributes() {
    termios now{};
    if (tcgetattr(slave, &now) != 0) throw std::runtime_error("tcgetattr failed");
    return now;
  }

  termios initial{};
  int slave = -1;

 private:
  /* Reads up to and with the byte last. */
  static std::string read_until(int fd, char last) {
    std::string text;
    char c = '\0';
    do {
      pollfd ready{fd, POLLIN, 0};
      if (poll(&ready, 1, patience_ms) != 1 || read(fd, &c, 1) != 1) throw std::runtime_error("nothing after: " + text);
      text += c;
    } while (c != last);
    return text;
  }

  int master = -1;
  int output[2] = {-1, -1};
  int result[2] = {-1, -1};
  pid_t child = -1;
};

TEST_F(TerminalInput, HiddenHasNoEchoAndNothingElseChangedWhileTheLineIsRead) {
  start_and_wait(1);
  termios expected = initial;
  expected.c_lflag &= ~static_cast<tcflag_t>(ECHO);
  EXPECT_TRUE(same(attributes(), expected));
  type("secret\n");
  line();
}

TEST_F(TerminalInput, HiddenIsNotShownAndTheTerminalIsFlushedOnceAndRestored) {
  EXPECT_EQ(read_hidden(1), "6 secret;");
  EXPECT_EQ(changes_of_the_terminal(), "flush now ;");
  EXPECT_TRUE(same(attributes(), initial));
}

TEST_F(TerminalInput, HiddenIsNotShownForAnyTrueValueAndTheTerminalIsRestored) {
  EXPECT_EQ(read_hidden(2), "6 secret;");
  EXPECT_EQ(changes_of_the_terminal(), "flush now ;");
  EXPECT_EQ(shown(), "|");
  EXPECT_EQ(rest_of_output(), "\n|");
  EXPECT_TRUE(same(attributes(), initial));
}

TEST_F(TerminalInput, HiddenIsNotShownWhenASignalComesWhileTheEchoIsTurnedOff) {
  interruptions = 1;
  start_and_wait(1);
  interruptions = 0;
  type("secret\n");
  EXPECT_EQ(line(), "6 secret;");
  EXPECT_EQ(shown(), "|");
}

TEST_F(TerminalInput, HiddenRestoresTheTerminalAtTheEndOfTheInput) {
  start_and_wait(1);
  type({static_cast<char>(initial.c_cc[VEOF])});
  EXPECT_EQ(line(), "0 ;");
  EXPECT_TRUE(same(attributes(), initial));
}

TEST_F(TerminalInput, HiddenRestoresTheTerminalBehindItsNewline) {
  start([] {
    setvbuf(stdout, nullptr, _IONBF, 0);
    char buffer[20];
    tavren_read_input("Password: ", buffer, sizeof buffer, 1);
  });
  wait_for_prompt();
  type("secret\n");
  changes_of_the_terminal();
  EXPECT_EQ(unread_when_restored(), 1);
}

TEST_F(TerminalInput, HiddenLeavesATerminalWithoutEchoAsItIs) {
  termios without_echo = initial;
  without_echo.c_lflag &= ~static_cast<tcflag_t>(ECHO);
  tcsetattr(slave, TCSANOW, &without_echo);
  read_hidden();
  EXPECT_TRUE(same(attributes(), without_echo));
}

TEST_F(TerminalInput, HiddenDiscardsWhatWasTypedBeforeThePrompt) {
  type_ahead("typed too early\n");
  EXPECT_EQ(read_hidden(), "6 secret;");
}

TEST_F(TerminalInput, HiddenKeepsWhatIsTypedBehindItsLine) {
  start_and_wait(1, 2);
  type("secret\nnext\n");
  EXPECT_EQ(line(), "6 secret;");
  EXPECT_EQ(line(), "4 next;");
}

TEST_F(TerminalInput, VisibleKeepsWhatWasTypedBeforeThePrompt) {
  type_ahead("early\n");
  start_and_wait(0);
  EXPECT_EQ(line(), "5 early;");
}

TEST_F(TerminalInput, VisibleLeavesTheTerminalAloneAndIsFollowedByNoNewline) {
  start_and_wait(0);
  EXPECT_TRUE(same(attributes(), initial));
  type("name\n");
  EXPECT_EQ(line(), "4 name;");
  EXPECT_EQ(shown(), "name\r\n|");
  EXPECT_EQ(rest_of_output(), "|");
}

TEST_F(TerminalInput, AnswerToAQuestionIsShown) {
  ask_and_wait();
  type("yes\n");
  EXPECT_EQ(line(), "1;");
  EXPECT_EQ(shown(), "yes\r\n|");
}

}  // namespace
