/* Lines of the size program, against a plain model. */
#include "TavrenHost.h"
#include "fuzz/fuzz.h"
#include "fuzz/number_model.h"

namespace {

/* Returns what stands before the first tab, and in name what stands behind it. */
std::optional<std::string> before_tab(const std::string& line, std::string& name) {
  for (size_t i = 0; i < line.size(); ++i) {
    if (line[i] != '\t') continue;
    name = line.substr(i + 1);
    return line.substr(0, i);
  }
  return std::nullopt;
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string line = Input(data, size).rest();
  std::string expected_name;
  const std::optional<std::string> number = before_tab(line, expected_name);
  const std::optional<int> expected_size = number ? number_model::number(*number) : std::nullopt;
  const size_t length = expected_name.size();
  if (length >= 2 && expected_name[length - 2] == '/' && expected_name[length - 1] == '.') {
    expected_name.resize(length - 2);
  }

  std::string name = "untouched";
  int kibibytes = 0;
  const int result = TavrenHost::parse_du_output_line(line, name, kibibytes);
  MUST(result == (expected_size ? 0 : -1));
  if (expected_size) MUST(kibibytes == *expected_size && name == expected_name);
  if (!expected_size) MUST(name == "untouched");
  return 0;
}
