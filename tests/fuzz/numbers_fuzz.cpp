/* Numbers and space limits from text, against a plain model. */
#include "fuzz/fuzz.h"
#include "fuzz/number_model.h"
#include "tavren_basic.h"
#include "tavren_util.h"

namespace {

constexpr int untouched = 1234567;

std::string lower_case(std::string text) {
  for (char& c : text) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  return text;
}

void check(const std::optional<int>& expected, int result, int value) {
  MUST(result == (expected ? 0 : -1));
  MUST(value == expected.value_or(untouched));
}

/* What was read says itself again in a text that reads the same. */
void check_text_of(int value) {
  const std::string text = tavren_int_to_string(value);
  MUST(number_model::number(text) == value);
  int again = untouched;
  MUST(tavren_cstring_to_int(text.c_str(), &again) == 0);
  MUST(again == value);

  char buffer[TAVREN_FORMAT_SIZE];
  const std::string limit = value == TAVREN_SPACE_UNLIMITED ? "Unlimited" : text + " MB";
  MUST(tavren_format_space_limit(value, buffer) == static_cast<int>(limit.size()));
  MUST(limit == buffer);
  const int length = tavren_format_space_used(value, buffer);
  MUST(length == static_cast<int>(strlen(buffer)));
  MUST(value >= -3 && value <= -1 ? strstr(buffer, " MB") == nullptr : limit == buffer);
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text = up_to_nul(Input(data, size).rest());
  CString s(text);
  const std::optional<int> expected = number_model::number(text);

  int value = untouched;
  const int result = tavren_cstring_to_int(s.get(), &value);
  check(expected, result, value);
  if (expected) check_text_of(*expected);

  value = untouched;
  const bool unlimited = lower_case(text) == "unlimited";
  const int limit_result = tavren_parse_space_limit(s.get(), &value);
  check(unlimited ? TAVREN_SPACE_UNLIMITED : expected, limit_result, value);
  MUST(text == s.get());
  return 0;
}
