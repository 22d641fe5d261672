#ifndef TESTS_TOOLS_PROGRAM_ON_A_TERMINAL_H
#define TESTS_TOOLS_PROGRAM_ON_A_TERMINAL_H

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>
#include <utmp.h>

#include <stdexcept>
#include <string>
#include <vector>

/*
 * A program that a person at a terminal has started: what it shows, what is typed, and what becomes of the terminal.
 * One at a time; one that still runs at the end is killed.
 */
class ProgramOnATerminal {
 protected:
  static constexpr int patience_ms = 30000; /* which only a test that hangs waits for */

  ~ProgramOnATerminal() { clear(); }

  void run_on_a_terminal(const std::vector<const char*>& command, unsigned short columns = 80,
                         unsigned short rows = 24) {
    clear();
    const winsize size = {rows, columns, 0, 0};
    if (openpty(&master, &slave, nullptr, nullptr, &size) != 0) throw std::runtime_error("openpty");
    fcntl(master, F_SETFD, FD_CLOEXEC);
    before = settings();
    program = fork();
    if (program == 0) {
      login_tty(slave);
      setenv("TERM", kind, 1);
      execute(command);
    }
  }

  /* As a job of a shell, which can stop and continue it. */
  void run_in_a_shell(const std::string& command) {
    run_on_a_terminal({"/bin/bash", "--noediting", "--norc", "-i"});
    type("PS1=; " + command + "\n");
  }

  void run_into_a_pipe(const std::vector<const char*>& command) {
    clear();
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("pipe2");
    master = ends[0];
    program = fork();
    if (program == 0) {
      dup2(ends[1], STDOUT_FILENO);
      execute(command);
    }
    close(ends[1]);
  }

  /* Returns the settings of the terminal, which stays when the program ends. */
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

  /* Waits until what has been shown and not yet been taken has that text, and takes it up to the text's end. */
  void expect_shown(const std::string& text) {
    while (shown.find(text) == std::string::npos) {
      if (!read_more()) {
        FAIL() << "in vain: " << text << "\nshown: " << shown;
      }
    }
    shown.erase(0, shown.find(text) + text.size());
  }

  void type(const std::string& keys) const {
    ASSERT_EQ(write(master, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
  }

  /* Waits for the program's end, which must come by that signal and leave the terminal as it was. */
  void expect_end_by(int signal_number) {
    const int status = end();
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == signal_number) << status;
    EXPECT_TRUE(has_its_old_settings()) << signal_number;
  }

  /* Waits for the program's end. Returns its wait status. */
  int end() {
    int status = -1;
    waitpid(program, &status, 0);
    program = -1;
    return status;
  }

  const char* kind = "xterm"; /* of the terminal */
  int master = -1;
  pid_t program = -1;
  std::string shown;

 private:
  [[noreturn]] static void execute(std::vector<const char*> command) {
    command.push_back(nullptr);
    execv(command[0], const_cast<char* const*>(command.data()));
    _exit(127);
  }

  void clear() {
    if (program != -1) {
      kill(program, SIGKILL);
      end();
    }
    for (int* fd : {&master, &slave}) {
      if (*fd != -1) close(*fd);
      *fd = -1;
    }
    shown.clear();
  }

  int slave = -1;
  termios before{};
};

#endif
