/*
 * A child that says anything in pieces of any size, with pauses, takes input in any way and ends at any time: every
 * operation of TavrenProcess does with it what the plain child does, and takes the same time.
 */
#include <memory>

#include "TavrenError.h"
#include "TavrenExceptions.h"
#include "TavrenProcess.h"
#include "fuzz/escaped.h"
#include "fuzz/plain_child.h"
#include "fuzz/played_input.h"

namespace {

/* How an operation ended, and what it handed out. */
struct Outcome {
  std::string ending = "returned";
  std::list<std::string> texts;

  bool operator==(const Outcome& other) const { return ending == other.ending && texts == other.texts; }
};

struct Operation {
  int kind;
  int seconds;
  std::string text;
};

template <class Action>
Outcome outcome_of_plain(Action action) {
  Outcome outcome;
  try {
    action(outcome.texts);
  } catch (const PlainChild::Timeout&) {
    outcome.ending = "timeout";
  } catch (const PlainChild::Cancelled&) {
    outcome.ending = "cancelled";
  } catch (const PlainChild::NoChild&) {
    outcome.ending = "no child";
  } catch (const PlainChild::Excessive& excessive) {
    outcome.ending = "excessive " + std::to_string(excessive.bytes);
  } catch (const PlainChild::Exited& exited) {
    outcome.ending = "exited";
    for (const std::string& line : exited.last_lines) outcome.ending += "\n" + escaped(line);
  }
  return outcome;
}

/* What an error says, in the same words. */
std::string ending_of(const TavrenError& error) {
  MUST(error.lines.front()->num_args >= 1 && error.lines.front()->args[0] == "/played");
  if (error.get_ecode() == TAVREN_E_EXCESSIVE_OUTPUT) {
    MUST(error.lines.size() == 1 && error.lines.front()->num_args == 2);
    return "excessive " + error.lines.front()->args[1];
  }
  MUST(error.get_ecode() == TAVREN_E_PROGRAM_EXITED);
  std::string ending = "exited";
  for (auto line = std::next(error.lines.begin()); line != error.lines.end(); ++line) {
    MUST((*line)->code == TAVREN_E_OUTPUT && (*line)->num_args <= 1);
    ending += "\n" + ((*line)->num_args == 0 ? "" : (*line)->args[0]);
  }
  return ending;
}

template <class Action>
Outcome outcome_of(Action action) {
  Outcome outcome;
  try {
    action(outcome.texts);
  } catch (const TavrenTimeout&) {
    outcome.ending = "timeout";
  } catch (const TavrenOperationCancelled&) {
    outcome.ending = "cancelled";
  } catch (const FailedAssertion& failed) {
    MUST(failed.is_one_of({"to_child != -1 && child_pid != -1", "child_pid != -1 && master_fd != -1"}));
    outcome.ending = "no child";
  } catch (const TavrenError& error) {
    outcome.ending = ending_of(error);
  }
  return outcome;
}

/* On the process, or on the plain child, whose clocks show the same. */
template <class Child>
void perform(Child& child, const Operation& operation, long deadline, std::list<std::string>& texts) {
  std::string line;
  switch (operation.kind) {
    case 0:
      texts.push_back(std::to_string(child.read_byte(deadline)));
      break;
    case 1:
      texts.push_back(child.read_line(line, deadline, {operation.text}) ? "prompt" : "line " + line);
      break;
    case 2:
      child.expect(operation.text, texts, deadline);
      break;
    case 3:
      child.read_until_line_starts_with({operation.text}, deadline);
      break;
    case 4:
      child.send(operation.text, operation.seconds);
      break;
    case 5:
      child.send_eof(operation.seconds);
      break;
    case 6:
      child.stop(operation.seconds);
      break;
    default:
      child.disable();
  }
}

void check(const Operation& operation, const Outcome& outcome, const Outcome& expected) {
  if (outcome == expected) return;
  fprintf(stderr, "operation %d, %d s, \"%s\": %s, expected: %s\n", operation.kind, operation.seconds,
          operation.text.c_str(), outcome.ending.c_str(), expected.ending.c_str());
  for (const std::string& text : outcome.texts) fprintf(stderr, "  %s\n", text.c_str());
  for (const std::string& text : expected.texts) fprintf(stderr, "  expected: %s\n", text.c_str());
  MUST(outcome == expected);
}

std::vector<Operation> operations_from(Input& input) {
  std::vector<Operation> operations;
  for (int count = input.byte() % 32; count > 0; --count) {
    const int kind = input.byte() % 8;
    const int seconds = input.byte() % 16 - 2;
    const bool has_text = kind >= 1 && kind <= 4;
    operations.push_back({kind, seconds, has_text ? input.text() : ""});
  }
  return operations;
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  played_child::Play play = behaviour_from(input);
  const std::vector<Operation> operations = operations_from(input);
  play.pieces = played_child::pieces_of(input.rest());
  played_child::begin(play);

  auto process = std::make_unique<TavrenProcess>("/played ", std::list<std::string>{"argument"}, false);
  PlainChild plain(play);
  for (const Operation& operation : operations) {
    const long deadline = plain.after(operation.seconds);
    const Outcome expected = outcome_of_plain([&](auto& texts) { perform(plain, operation, deadline, texts); });
    const Outcome outcome = outcome_of([&](auto& texts) { perform(*process, operation, deadline, texts); });
    check(operation, outcome, expected);
    MUST(process->get_recent_lines() == plain.recent_lines());
    MUST(played_child::heard() == plain.heard());
    MUST(played_child::uptime_ms() == plain.now_ms());
  }
  process.reset();
  MUST(played_child::is_gone());
  plain.stop(2);
  MUST(played_child::uptime_ms() == plain.now_ms());
  return 0;
}
