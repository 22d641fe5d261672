#ifndef TESTS_SUPPORT_RUN_IN_CHILD_H
#define TESTS_SUPPORT_RUN_IN_CHILD_H

#include <functional>
#include <string>

/* How a child process ended and what it wrote. */
struct Outcome {
  int wait_status; /* as waitpid has it */
  std::string out; /* descriptor 1 */
  std::string err; /* descriptor 2 */

  bool exited_with(int status) const;
  bool killed_by(int signal_number) const;
};

/*
 * Runs action in a child process, with input on descriptor 0 (at end of file after it), and waits for it. A child
 * whose action returns exits with status 0, without exit handlers.
 */
Outcome run_in_child(const std::function<void()>& action, const std::string& input = "");

/* What a failed assertion shows: the diagnostic, its line number replaced by LINE. */
std::string without_line_number(const std::string& diagnostic);

/* The whole diagnostic of a failed assertion in source, with LINE for the line number. */
std::string assertion_diagnostic(const std::string& source, const std::string& expression);

/*
 * Runs action in a child process and checks that it aborts with exactly the diagnostic of that assertion.
 */
void expect_assertion(const std::string& source, const std::string& expression, const std::function<void()>& action);

#endif
