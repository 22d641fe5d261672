#ifndef TESTS_FUZZ_PLAIN_SHELL_H
#define TESTS_FUZZ_PLAIN_SHELL_H

#include "fuzz/number_model.h"
#include "fuzz/plain_child.h"
#include "fuzz/plain_error.h"

/* A failed assertion that is expected. */
struct PlainAssertion {
  std::string expression;
};

/*
 * What TavrenHost must make of a played far shell that runs commands, told straight from its contract. It throws
 * PlainError, PlainAssertion and PlainChild::Timeout where the session throws a TavrenError, fails an assertion and
 * throws a TavrenTimeout.
 */
class PlainShell {
 public:
  using Lines = std::list<std::string>;

  PlainShell(const played_child::Play& play, int seconds) : child(play), timeout(seconds) {}

  const PlainChild& its_child() const { return child; }
  void close() { child.stop(2); }

  void run_line(const std::string& command, std::string* output) {
    const long deadline = child.after(timeout);
    within_time(17, command, [&] {
      child.send(command + "\n", timeout);
      if (output != nullptr) child.read_line(*output, deadline, {});
    });
  }

  void run_command(const std::string& command, int& status, Lines& lines, int seconds) {
    if (!running.empty()) throw PlainAssertion{"running_command.size() == 0"};
    const long deadline = child.after(seconds);
    within_time(17, command, [&] {
      child.send("echo " + quoted(marker_of(command)) + "; " + command + "\necho '** EXIT CODE: '$?\n", seconds);
      wait_for_line(marker_of(command), deadline);
      try {
        child.expect("** EXIT CODE: ", lines, deadline);
      } catch (const PlainChild::Excessive&) {
        throw PlainError(16, command);
      }
    });
    const std::string text = lines.back().substr(14);
    lines.pop_back();
    const std::optional<int> number = number_model::number(text);
    if (!number) throw PlainError(11, text);
    status = *number;
  }

  void run_and_check_ecode(const std::string& command, Lines& lines) {
    int status = 0;
    run_command(command, status, lines, timeout);
    if (status == 0) return;
    PlainError error(14, command, std::to_string(status));
    for (int i = 0; i < 5 && !lines.empty(); ++i) {
      error.add(15, lines.front());
      lines.pop_front();
    }
    throw error;
  }

  void run_and_check_ecode(const std::string& command) {
    Lines ignored;
    run_and_check_ecode(command, ignored);
  }

  void run_and_expect_line(const std::string& command, const std::string& expected) {
    Lines lines;
    run_and_check_ecode(command, lines);
    if (lines == Lines{expected}) return;
    throw PlainError(10, command, std::to_string(lines.size())).add_all(15, lines).add(3, expected);
  }

  /* Puts the child's failures as the session reports them. */
  template <class Action>
  static void as_error(const std::string& program, Action action) {
    try {
      action();
    } catch (const Done&) {
    } catch (const PlainChild::Exited& exited) {
      throw PlainError(13, program).add_all(12, exited.last_lines);
    } catch (const PlainChild::Excessive& excessive) {
      throw PlainError(25, program, std::to_string(excessive.bytes));
    } catch (const PlainChild::NoChild&) {
      throw PlainAssertion{"to_child != -1 && child_pid != -1"};
    }
  }

  static std::string quoted(const std::string& text) {
    std::string result = "'";
    for (const char c : text) result += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return result + "'";
  }
  static std::string path_of(const std::string& path) { return quoted((path.substr(0, 1) == "-" ? "./" : "") + path); }

  /* The line that a shell makes of the command's marker: no echo changes it. */
  static std::string marker_of(const std::string& command) {
    std::string marker = "** RUNNING " + command;
    const size_t last = marker.find_last_not_of('\r');
    for (size_t i = 0; i < marker.size(); ++i) {
      if (marker[i] == '\\' || marker[i] == '\n' || i > last) marker[i] = '?';
    }
    return marker;
  }

 protected:
  struct Done {}; /* what ended is what was wanted */

  template <class Action>
  void within_time(int code, const std::string& what, Action action) {
    try {
      as_error("/usr/bin/ssh", action);
    } catch (const PlainChild::Timeout&) {
      throw PlainError(code, what);
    }
  }

  void read_line(std::string& line, long deadline, const std::vector<std::string>& prompts, bool& is_prompt) {
    if (child.is_past(deadline)) throw PlainChild::Timeout();
    is_prompt = child.read_line(line, deadline, prompts);
  }

  void wait_for_line(const std::string& expected, long deadline) {
    std::string line;
    bool ignored = false;
    do {
      read_line(line, deadline, {}, ignored);
    } while (line != expected);
  }

  PlainChild child;
  int timeout;
  std::string running; /* the command of the transfer in progress */
};

#endif
