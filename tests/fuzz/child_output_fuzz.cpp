/*
 * A child that says anything in pieces of any size, with pauses, takes input in any way and ends at any time: every
 * operation of TavrenProcess does with it what the plain child does, and takes the same time.
 */
#include <functional>
#include <memory>

#include "TavrenProcess.h"
#include "fuzz/outcome.h"
#include "fuzz/played_input.h"

namespace {

struct Operation {
  int kind;
  int seconds;
  std::string text;
};

/* On the process, or on the plain child, whose clocks show the same. */
template <class Child>
void perform(Child& child, const Operation& operation, long deadline, Results& results) {
  std::string line;
  const std::function<void()> kinds[] = {
      [&] { results.push_back(std::to_string(child.read_byte(deadline))); },
      [&] { results.push_back(child.read_line(line, deadline, {operation.text}) ? "prompt" : "line " + line); },
      [&] { child.expect(operation.text, results, deadline); },
      [&] { child.read_until_line_starts_with({operation.text}, deadline); },
      [&] { child.send(operation.text, operation.seconds); },
      [&] { child.send_eof(operation.seconds); },
      [&] { child.stop(operation.seconds); },
      [&] { child.disable(); }};
  kinds[operation.kind]();
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
    const Outcome expected =
        expected_of("/played", [&](Results& results) { perform(plain, operation, deadline, results); });
    outcome_of([&](Results& results) { perform(*process, operation, deadline, results); }).must_be(expected);
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
