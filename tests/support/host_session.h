#ifndef TESTS_SUPPORT_HOST_SESSION_H
#define TESTS_SUPPORT_HOST_SESSION_H

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>

#include <algorithm>
#include <list>
#include <sstream>
#include <stdexcept>
#include <string>

#include "TavrenHost.h"
#include "TavrenTunables.h"
#include "support/scripted_client.h"
#include "support/settings.h"
#include "support/temporary_directory.h"
#include "tavren_share.h"

inline void set_tunable(const std::string& name, const std::string& value) {
  std::string refusal;
  TavrenTunables::instance().set_tunable(name, value, refusal);
  if (!refusal.empty()) throw std::runtime_error(refusal);
}

/* Makes program, a path without blanks, the text of the command name. */
inline void set_command(const std::string& name, const std::string& program) {
  std::string refusal;
  TavrenHost::set_cmd(name, program, refusal);
  if (!refusal.empty()) throw std::runtime_error(refusal);
}

/* Returns the body of the error that action must throw. */
template <class Action>
std::string error_body(Action action) {
  try {
    action();
  } catch (const TavrenError& error) {
    std::ostringstream body;
    error.print_body(body);
    return body.str();
  }
  ADD_FAILURE() << "no TavrenError was thrown";
  return "";
}

/* Returns the codes of the TavrenError that action throws, line by line, each with its arguments: "4(host) 23()". */
template <class Action>
std::string error_codes(Action action) {
  std::string codes;
  try {
    action();
  } catch (const TavrenError& error) {
    for (const TavrenError::error_line_t* line : error.lines) {
      codes += (codes.empty() ? "" : " ") + std::to_string(line->code) + "(";
      for (int i = 0; i < line->num_args; ++i) codes += (i == 0 ? "" : ", ") + line->args[i];
      codes += ")";
    }
  }
  return codes;
}

/* Waits until the child process pid has ended, and leaves it to be reaped. */
inline void wait_for_exit(pid_t pid) {
  siginfo_t info{};
  if (waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT) != 0) throw std::runtime_error("waitid failed");
}

/* Returns the first count lines of text. */
inline std::string first_lines(const std::string& text, int count) {
  size_t end = 0;
  for (int i = 0; i < count && end < text.size(); ++i) end = std::min(text.find('\n', end), text.size() - 1) + 1;
  return text.substr(0, end);
}

/* Returns the only line of output of a command that must succeed. */
inline std::string output_of(TavrenHost& host, const std::string& command) {
  std::list<std::string> lines;
  host.run_and_check_ecode(command, lines);
  if (lines.size() != 1) throw std::runtime_error(command + ": " + std::to_string(lines.size()) + " lines of output");
  return lines.front();
}

/*
 * Gives the program its private temporary directory, once, in a place of the test's own. Returns its path.
 */
inline std::string private_directory() {
  static const TemporaryDirectory home;
  static const bool ready = [] {
    setenv("TAVREN_HOME", home.path().c_str(), 1);
    std::filesystem::create_directory(home.path("tavren_tmp"));
    char message[TAVREN_MESSAGE_SIZE] = "";
    if (tavren_setup_tmp_dir("test", message) != 0) throw std::runtime_error(message);
    return true;
  }();
  return ready ? tavren_get_tmp_dir() : "";
}

/*
 * A session with the command table and the tunables of a fresh program, but for shorter time-outs: they are still
 * long enough for a busy machine, and a test that fails by one does so soon.
 */
class HostTest : public testing::Test {
 protected:
  HostTest() {
    TavrenHost::reset_cmd_map();
    for (const char* name : {"loopback_login", "subprocess_log_size"}) set_tunable(name, "default");
    for (const char* name : {"ssh_command_timeout", "ssh_connect_timeout", "ssh_shell_start_timeout"}) {
      set_tunable(name, "30");
    }
  }
  ~HostTest() override { host.close_connection(); }

  /* Gives the session its settings, as they stand, and allows it to connect. */
  void enable() {
    host.set_settings(settings.record());
    host.enable();
  }

  Settings settings;
  TavrenHost host{false, false};
};

/* A session whose far side is a local shell in a directory of the test's own. */
class LoopbackTest : public HostTest {
 protected:
  LoopbackTest() {
    set_tunable("loopback_login", "1");
    settings.dir = directory.path();
  }

  void open() {
    enable();
    host.open_connection();
  }

  TemporaryDirectory directory;
};

#endif
