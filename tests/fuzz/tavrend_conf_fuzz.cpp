/*
 * The daemon's configuration file: what is read of it keeps the rules, and reads the same when it is written down
 * again; what is wrong with it has a line of the file.
 */
#include <algorithm>
#include <set>
#include <vector>

#include "config/config.h"
#include "fuzz/fuzz.h"
#include "plan/schedule.h"
#include "support/files.h"
#include "support/temporary_directory.h"

namespace {

bool is_path(const std::string& text) { return !text.empty() && text.front() == '/' && text.back() != '/'; }

bool is_name(const std::string& text) {
  return !text.empty() && text.size() <= 32 && text != "test" &&
         text.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789_-") == std::string::npos;
}

void check_rules(const std::vector<Section>& sections) {
  std::set<std::string> names;
  for (const Section& section : sections) {
    MUST(is_name(section.name) && names.insert(section.name).second);
    MUST(section.files.empty() != section.follow.empty());
    MUST(is_path(section.files.empty() ? section.follow : section.files));
    MUST(section.interval >= 1 && section.interval <= 31536000);
    MUST(section.compartment == audit_compartment || section.compartment == logs_compartment);
  }
}

std::string written(const std::vector<Section>& sections) {
  std::string text;
  for (const Section& section : sections) {
    text += "[" + section.name + "]\n";
    text += section.files.empty() ? "follow = " + section.follow : "files = " + section.files;
    text += std::string("\ncompartment = ") + (section.compartment == audit_compartment ? "audit" : "logs");
    text += "\ninterval = " + std::to_string(section.interval) + "s\n";
    text += std::string("compress = ") + (section.compress ? "zstd" : "none") + "\n";
  }
  return text;
}

void check_reason(const std::string& reason, const std::string& path, const std::string& text) {
  MUST(reason.rfind(path + ":", 0) == 0);
  char* end = nullptr;
  const long line = strtol(reason.c_str() + path.size() + 1, &end, 10);
  const long lines = std::count(text.begin(), text.end(), '\n') + 1;
  MUST(line >= 0 && line <= lines);
  MUST(strncmp(end, ": ", 2) == 0 && end[2] != '\0');
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const TemporaryDirectory directory;
  const std::string path = directory.path("tavrend.conf");
  const std::string text(reinterpret_cast<const char*>(data), size);
  write_file(path, text);
  std::vector<Section> sections;
  try {
    sections = read_config(path);
  } catch (const ConfigError& error) {
    check_reason(error.what(), path, text);
    return 0;
  }
  check_rules(sections);
  write_file(path, written(sections));
  MUST(written(read_config(path)) == written(sections));
  return 0;
}
