/* Texts taken apart at a separator, padded, and paths cut, against what they must add up to. */
#include <vector>

#include "fuzz/fuzz.h"
#include "tavren_basic.h"
#include "tavren_util.h"

namespace {

std::vector<std::string> split(const std::string& text, char separator) {
  std::vector<std::string> fields = {""};
  if (text.empty()) return {};
  for (const char c : text) {
    if (c == separator) {
      fields.emplace_back();
    } else {
      fields.back() += c;
    }
  }
  return fields;
}

void check_fields(const std::string& text, int separator) {
  CString s(text);
  char** fields = reinterpret_cast<char**>(s.get());
  const int count = tavren_split_fields(s.get(), separator, &fields);
  MUST(text == s.get());
  /* A separator of zero is in no C string. */
  const std::vector<std::string> expected = split(text, static_cast<char>(separator));
  MUST(count == static_cast<int>(expected.size()));
  MUST((fields == nullptr) == text.empty());
  for (int i = 0; i < count; ++i) MUST(expected[static_cast<size_t>(i)] == fields[i]);
  free(fields);
}

void check_padding(const std::string& text, int width) {
  const std::string padded = tavren_pad_end(text, width);
  MUST(padded.size() == std::max(text.size(), static_cast<size_t>(std::max(width, 0))));
  MUST(padded.substr(0, text.size()) == text);
  MUST(padded.find_first_not_of(' ', text.size()) == std::string::npos);
}

void check_base_name(const std::string& path) {
  const std::string name = tavren_basename(path);
  MUST(name.find('/') == std::string::npos);
  MUST(path.size() >= name.size() && path.substr(path.size() - name.size()) == name);
  MUST(name.size() == path.size() || path[path.size() - name.size() - 1] == '/');
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  const int low_bits = input.byte();
  const int separator = low_bits | (input.byte() - 128) * 256;
  const int width = input.byte() - 16;
  const std::string text = input.rest();
  check_fields(up_to_nul(text), separator);
  check_padding(text, width);
  check_base_name(text);
  return 0;
}
