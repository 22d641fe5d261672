#include <algorithm>

#include "TavrenExceptions.h"
#include "TavrenHost.h"
#include "TavrenTunables.h"
#include "core/assertion.h"
#include "process/deadline.h"
#include "tavren_basic.h"
#include "tavren_util.h"

/*
 * Framed commands: what the shell prints for one command stands between a marker line that is echoed before it and a
 * line with its exit status.
 */
namespace {

constexpr char begin_marker[] = "** RUNNING ";
constexpr char status_prefix[] = "** EXIT CODE: ";
constexpr size_t status_prefix_length = sizeof status_prefix - 1;

constexpr size_t failed_command_lines = 5;

/*
 * Returns the marker line for command. The echo of some shells (dash) interprets backslashes, and a marker that holds
 * a newline or ends in carriage returns is never read back as one line, so these bytes become question marks.
 */
std::string marker_for(const std::string& command) {
  std::string marker = begin_marker + command;
  std::replace(marker.begin(), marker.end(), '\\', '?');
  std::replace(marker.begin(), marker.end(), '\n', '?');
  for (size_t i = marker.size(); i > 0 && marker[i - 1] == '\r'; --i) marker[i - 1] = '?';
  return marker;
}

/* Collects the output of command up to the line that carries its exit status. */
void collect_output(TavrenProcess& shell, const std::string& command, std::list<std::string>& lines, long deadline) {
  try {
    shell.expect(status_prefix, lines, deadline);
  } catch (const TavrenError& error) {
    if (error.get_ecode() != TAVREN_E_EXCESSIVE_OUTPUT) throw;
    throw TavrenError(TAVREN_E_COMMAND_EXCESSIVE_OUTPUT, command, "");
  }
}

[[noreturn]] void throw_timeout_of(const std::string& command) {
  throw TavrenError(TAVREN_E_COMMAND_TIMEOUT, command, "");
}

}  // namespace

std::string TavrenHost::quote_for_shell(const std::string& text) {
  std::string quoted;
  quoted.reserve(text.size() + 2);
  quoted += '\'';
  for (const char c : text) {
    if (c == '\'') {
      quoted += "'\\''";
    } else {
      quoted += c;
    }
  }
  quoted += '\'';
  return quoted;
}

/*
 * Reads one line before deadline. read_line looks at the deadline only when it has to wait, so a child that never
 * stops writing would keep a loop of reads going past it.
 */
void TavrenHost::read_line_until_deadline(std::string& line, long deadline) {
  if (seconds_until(deadline) < 1) throw TavrenTimeout();
  child().read_line(line, deadline, "");
}

/* Drops lines until one equals expected: the terminal's echo and left-over output stand before it. */
void TavrenHost::wait_for_line(const std::string& expected, long deadline) {
  std::string line;
  do {
    read_line_until_deadline(line, deadline);
  } while (line != expected);
}

void TavrenHost::run_line(const std::string& command, std::string* output) {
  const int timeout = TavrenTunables::instance().get_ssh_command_timeout();
  const long deadline = deadline_after(timeout);
  try {
    child().send(command + "\n", timeout);
    if (output != nullptr) child().read_line(*output, deadline, "");
  } catch (const TavrenTimeout&) {
    throw_timeout_of(command);
  }
}

void TavrenHost::run_command(const std::string& command, int& status, std::list<std::string>& lines, int timeout) {
  const long deadline = deadline_after(timeout);
  const std::string marker = marker_for(command);
  TAVREN_ASSERT("TavrenHost", process != NULL);
  TAVREN_ASSERT("TavrenHost", running_command.size() == 0);

  try {
    child().send("echo " + quote_for_shell(marker) + "; " + command + "\necho '" + status_prefix + "'$?\n", timeout);
    wait_for_line(marker, deadline);
    collect_output(child(), command, lines, deadline);
  } catch (const TavrenTimeout&) {
    throw_timeout_of(command);
  }

  const std::string text = lines.back().substr(status_prefix_length);
  lines.pop_back();
  if (tavren_cstring_to_int(text.c_str(), &status) != 0) throw TavrenError(TAVREN_E_SHELL_STATUS, text, "");
}

void TavrenHost::run_and_check_ecode(const std::string& command, std::list<std::string>& lines) {
  int status = 0;
  run_command(command, status, lines, TavrenTunables::instance().get_ssh_command_timeout());
  if (status == 0) return;

  TavrenError error(TAVREN_E_COMMAND_FAILED, command, tavren_int_to_string(status));
  console_error_connection(nullptr);
  for (size_t i = 0; i < failed_command_lines && !lines.empty(); ++i) {
    error.add_line(TAVREN_E_COMMAND_OUTPUT, lines.front(), "");
    lines.pop_front();
  }
  throw error;
}

void TavrenHost::run_and_check_ecode(const std::string& command) {
  std::list<std::string> lines;
  run_and_check_ecode(command, lines);
}

void TavrenHost::run_and_expect_line(const std::string& command, const std::string& expected) {
  std::list<std::string> lines;
  run_and_check_ecode(command, lines);
  if (lines.size() == 1 && lines.front() == expected) return;

  TavrenError error(TAVREN_E_INCORRECT_OUTPUT, command, tavren_int_to_string(static_cast<int>(lines.size())));
  for (const std::string& line : lines) error.add_line(TAVREN_E_COMMAND_OUTPUT, line, "");
  error.add_line(TAVREN_E_EXPECTED_OUTPUT, expected, "");
  throw error;
}
