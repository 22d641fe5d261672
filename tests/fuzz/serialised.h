#ifndef TESTS_FUZZ_SERIALISED_H
#define TESTS_FUZZ_SERIALISED_H

#include <locale>
#include <sstream>
#include <string>

#include "TavrenError.h"
#include "fuzz/fuzz.h"
#include "fuzz/serialised_model.h"

/* What the targets for errors check of each error that they have been given. */
namespace serialised {

/* The assertions that a malformed text is stated to fail. */
inline bool is_stated(const FailedAssertion& failed) {
  return failed.is_one_of(
      {"s == \"TavrenError\"", "sep == '\\0'", "in.good()", "s == \"error_line_t\"", "c == '\\0'", "in.eof()"});
}

inline std::string form_of(const TavrenError& error) {
  std::ostringstream out;
  out.imbue(std::locale::classic());
  error.serialize(out);
  return out.str();
}

/* Whether reading as the model does finds a text malformed. */
template <class Read>
bool is_malformed(Read read) {
  try {
    read();
    return false;
  } catch (const SerialisedModel::Malformed&) {
    return true;
  }
}

/* What the error says, as the model has it. */
inline SerialisedModel::Error content_of(const TavrenError& error) {
  SerialisedModel::Error content{error.time, {}};
  for (const TavrenError::error_line_t* line : error.lines) {
    content.lines.emplace_back(line->code, std::vector<std::string>(line->args, line->args + line->num_args));
  }
  return content;
}

inline void check_says(const TavrenError& error, const SerialisedModel::Error& expected) {
  const SerialisedModel::Error content = content_of(error);
  MUST(content.time == expected.time && content.lines == expected.lines);
}

inline void check_same(const TavrenError& a, const TavrenError& b) { check_says(a, content_of(b)); }

/* Prints the error, line by line as it must be: two blanks, a hyphen, a blank, at most 1023 bytes, a newline. */
inline void check_print(const TavrenError& error) {
  std::string expected;
  for (const TavrenError::error_line_t* line : error.lines) {
    std::ostringstream one;
    TavrenError::print_line(line, one);
    const std::string text = one.str();
    MUST(text.size() > 5 && text.size() <= 4 + 1023 + 1);
    MUST(text.substr(0, 4) == "  - " && text.back() == '\n');
    MUST(text.find('\0') == std::string::npos);
    expected += text;
  }
  std::ostringstream body;
  error.print_body(body);
  MUST(body.str() == expected);
  std::ostringstream whole;
  error.print(whole);
  MUST(whole.str().size() >= expected.size());
  MUST(whole.str().substr(whole.str().size() - expected.size()) == expected);
}

/* What the error says in its serialised form is the error, and says the same again. */
inline void check_round_trip(const TavrenError& error) {
  const std::string form = form_of(error);
  std::istringstream in(form);
  const TavrenError again(in);
  MUST(in.peek() == std::istringstream::traits_type::eof());
  check_same(error, again);
  MUST(form_of(again) == form);
  check_same(error, TavrenError(error));
  check_print(error);
  MUST(error.get_ecode() == (error.lines.empty() ? TAVREN_E_NONE : error.lines.front()->code));
}

}  // namespace serialised

#endif
