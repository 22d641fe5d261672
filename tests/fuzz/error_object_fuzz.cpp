/*
 * Errors: read from any text, where they must read the same when written again, and made from any arguments, whose
 * NUL bytes are escaped as they have always been.
 */
#include "fuzz/escaped.h"
#include "fuzz/serialised.h"

namespace {

void read(const std::string& text) {
  std::istringstream in(text);
  try {
    const TavrenError error(in);
    serialised::check_says(error, SerialisedModel(text).error());
    serialised::check_round_trip(error);
  } catch (const FailedAssertion& failed) {
    MUST(serialised::is_stated(failed));
    MUST(serialised::is_malformed([&text] { SerialisedModel(text).error(); }));
  }
}

void build(Input input) {
  TavrenError error;
  MUST(error.get_ecode() == TAVREN_E_NONE);
  SerialisedModel::Error expected;
  while (!input.is_empty() && expected.lines.size() < 30) {
    const bool first = input.flag();
    const int code = static_cast<int8_t>(input.byte());
    const std::string arg1 = input.text();
    const std::string arg2 = input.text();
    if (first) {
      error.add_first_line(static_cast<tavren_error_code_t>(code), arg1, arg2);
      expected.lines.emplace(expected.lines.begin(), code, arguments_of(arg1, arg2));
    } else {
      error.add_line(static_cast<tavren_error_code_t>(code), arg1, arg2);
      expected.lines.emplace_back(code, arguments_of(arg1, arg2));
    }
  }
  expected.time = error.time;
  serialised::check_says(error, expected);
  serialised::check_round_trip(error);
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  if (input.flag()) {
    build(input);
  } else {
    read(input.rest());
  }
  return 0;
}
