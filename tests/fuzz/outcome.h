#ifndef TESTS_FUZZ_OUTCOME_H
#define TESTS_FUZZ_OUTCOME_H

#include <list>
#include <string>

#include "TavrenExceptions.h"
#include "fuzz/fuzz.h"
#include "fuzz/plain_shell.h"

using Results = std::list<std::string>;

/* How an operation ended, and what it handed out. */
struct Outcome {
  std::string ending = "returned";
  std::list<std::string> words; /* of an error */
  Results results;

  bool operator==(const Outcome& other) const {
    return ending == other.ending && words == other.words && results == other.results;
  }

  /* Checks that this is the expected outcome; shows both when not. */
  void must_be(const Outcome& expected) const {
    if (!(*this == expected)) {
      print("outcome");
      expected.print("expected");
    }
    MUST(*this == expected);
  }

 private:
  void print(const char* title) const {
    fprintf(stderr, "%s: %s\n", title, ending.c_str());
    for (const std::string& text : words) fprintf(stderr, "  %s\n", text.c_str());
    for (const std::string& text : results) fprintf(stderr, "  result: %s\n", text.c_str());
  }
};

/* Performs an action of the library's, which takes a list for what it hands out. */
template <class Action>
Outcome outcome_of(Action action) {
  Outcome outcome;
  try {
    action(outcome.results);
  } catch (const TavrenError& error) {
    outcome.ending = "error";
    outcome.words = words_of(error);
  } catch (const TavrenTimeout&) {
    outcome.ending = "timeout";
  } catch (const TavrenOperationCancelled&) {
    outcome.ending = "cancelled";
  } catch (const FailedAssertion& failed) {
    outcome.ending = failed.expression;
    /* A send and an end of file say in different words that there is no child. */
    if (failed.is_one_of({"child_pid != -1 && master_fd != -1"})) outcome.ending = "to_child != -1 && child_pid != -1";
  }
  return outcome;
}

/* The same with what is expected of a played child that runs program. */
template <class Action>
Outcome expected_of(const std::string& program, Action action) {
  Outcome outcome;
  try {
    PlainShell::as_error(program, [&] { action(outcome.results); });
  } catch (const PlainError& error) {
    outcome.ending = "error";
    outcome.words = words_of(error);
  } catch (const PlainChild::Timeout&) {
    outcome.ending = "timeout";
  } catch (const PlainChild::Cancelled&) {
    outcome.ending = "cancelled";
  } catch (const PlainAssertion& assertion) {
    outcome.ending = assertion.expression;
  }
  return outcome;
}

#endif
