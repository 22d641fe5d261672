#ifndef TESTS_FUZZ_DISK_USAGE_MODEL_H
#define TESTS_FUZZ_DISK_USAGE_MODEL_H

#include <stddef.h>

#include <optional>
#include <string>

#include "fuzz/number_model.h"

/* A line of the size program, as the library reads it: a number before the first tab and a name behind it. */
struct DiskUsageModel {
  std::optional<int> kibibytes; /* none: the line is none of the size program's */
  std::string name;             /* without the slash and the point at its end */

  explicit DiskUsageModel(const std::string& line) {
    const size_t tab = line.find('\t');
    if (tab == std::string::npos) return;
    kibibytes = number_model::number(line.substr(0, tab));
    name = line.substr(tab + 1);
    if (name.size() >= 2 && name.substr(name.size() - 2) == "/.") name.resize(name.size() - 2);
  }
};

#endif
