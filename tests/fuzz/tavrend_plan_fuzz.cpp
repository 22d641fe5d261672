/*
 * Weeks of a machine and its logs, in which what happens is drawn from the input: what the plan archives, against
 * all that was ever written.
 */
#include "fuzz/fuzz.h"
#include "plan/checksum.h"
#include "tavrend/simulated_weeks.h"

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  const std::string trouble = simulated::trouble_of(simulated::Chance(checksum(bytes), bytes), 20);
  if (!trouble.empty()) fprintf(stderr, "%s\n", trouble.c_str());
  MUST(trouble.empty());
  return 0;
}
