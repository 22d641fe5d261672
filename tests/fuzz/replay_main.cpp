/*
 * The main function of the targets where there is no fuzzer: runs every input of the corpora that it is given.
 */
#include <stdio.h>

#include <filesystem>
#include <memory>
#include <set>
#include <string>

#include "fuzz/fuzz.h"
#include "support/files.h"

namespace {

void replay(const std::string& path) {
  const std::string content = read_file(path);
  /* In memory of exactly that size, for the address sanitizer. */
  const auto bytes = std::make_unique<uint8_t[]>(content.size());
  std::copy(content.begin(), content.end(), bytes.get());
  LLVMFuzzerTestOneInput(bytes.get(), content.size());
}

}  // namespace

int main(int argc, char** argv) {
  std::set<std::string> paths;
  for (int i = 1; i < argc; ++i) {
    if (std::filesystem::is_directory(argv[i])) {
      for (const auto& entry : std::filesystem::directory_iterator(argv[i])) paths.insert(entry.path());
    } else {
      paths.insert(argv[i]);
    }
  }
  if (paths.empty()) {
    fprintf(stderr, "There is nothing to replay.\n");
    return 1;
  }
  for (const std::string& path : paths) {
    /* Said before, so that the last one said is the one that ends the process. */
    fprintf(stderr, "%s\n", path.c_str());
    replay(path);
  }
  fprintf(stderr, "%zu inputs\n", paths.size());
  return 0;
}
