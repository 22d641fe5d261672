/* Lines of the size program, against a plain model. */
#include "TavrenHost.h"
#include "fuzz/disk_usage_model.h"
#include "fuzz/fuzz.h"

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string line = Input(data, size).rest();
  const DiskUsageModel expected(line);
  std::string name = "untouched";
  int kibibytes = 0;
  const int result = TavrenHost::parse_du_output_line(line, name, kibibytes);
  MUST(result == (expected.kibibytes ? 0 : -1));
  MUST(kibibytes == expected.kibibytes.value_or(0));
  MUST(name == (expected.kibibytes ? expected.name : "untouched"));
  return 0;
}
