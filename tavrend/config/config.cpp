#include "config/config.h"

#include <errno.h>
#include <ini.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <memory>
#include <set>

#include "plan/schedule.h"

namespace {

constexpr size_t longest_name = 32;
constexpr char tested_directory[] = "test";        /* in the archive */
constexpr char byte_order_mark[] = "\xEF\xBB\xBF"; /* which some editors put in front */

/* What becomes of a file while it is read line by line: the library that parses it does not say which line it is at. */
struct Reading {
  FILE* file = nullptr;
  int line = 0;
  std::vector<Section> sections;
  std::set<std::string> keys; /* of the last section */
  int error_line = 0;         /* of the first error; 0: none */
  std::string error;
};

void fail(Reading& reading, const std::string& reason) {
  if (reading.error_line != 0) return;
  reading.error_line = reading.line;
  reading.error = reason;
}

std::string quoted(const std::string& text) { return "\"" + text + "\""; }

bool is_section_name(const std::string& name) {
  const auto is_allowed = [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_' || c == '-';
  };
  return !name.empty() && name.size() <= longest_name && std::all_of(name.begin(), name.end(), is_allowed);
}

/* What has been read of a section must be whole before the next one begins. */
void finish_section(Reading& reading) {
  if (reading.sections.empty()) return;
  const Section& section = reading.sections.back();
  if (section.files.empty() && section.follow.empty()) {
    fail(reading, "section " + quoted(section.name) + " has neither \"files\" nor \"follow\"");
  } else if (!section.files.empty() && !section.follow.empty()) {
    fail(reading, "section " + quoted(section.name) + " has both \"files\" and \"follow\"");
  }
}

void begin_section(Reading& reading, const std::string& name) {
  finish_section(reading);
  const auto has_name = [&name](const Section& section) { return section.name == name; };
  if (!is_section_name(name)) {
    fail(reading, quoted(name) + " is no name of a section: up to 32 of a-z, 0-9, \"_\" and \"-\"");
  } else if (name == tested_directory) {
    fail(reading, quoted(name) + " is no name of a section: a test of the archive host removes that directory");
  } else if (std::any_of(reading.sections.begin(), reading.sections.end(), has_name)) {
    fail(reading, "section " + quoted(name) + " is there twice");
  }
  reading.sections.emplace_back();
  reading.sections.back().name = name;
  reading.keys.clear();
}

/* Hands the parser the next line. Sections without keys, and the same name twice, show only here. */
char* next_line(char* buffer, int size, void* user) {
  Reading& reading = *static_cast<Reading*>(user);
  if (fgets(buffer, size, reading.file) == nullptr) return nullptr;
  ++reading.line;
  if (strchr(buffer, '\n') == nullptr && feof(reading.file) == 0) {
    fail(reading, "the line is too long, or has a NUL byte in it");
    return nullptr;
  }
  const bool is_marked = reading.line == 1 && strncmp(buffer, byte_order_mark, strlen(byte_order_mark)) == 0;
  const char* const text = buffer + (is_marked ? strlen(byte_order_mark) : 0);
  const char* const start = text + strspn(text, " \t");
  const char* const end = strchr(start, ']');
  if (*start == '[' && end != nullptr) begin_section(reading, std::string(start + 1, end));
  return buffer;
}

bool is_absolute(const std::string& path) { return !path.empty() && path[0] == '/'; }

/* Returns whether value is one that key may have; section gets it. */
bool set(Section& section, const std::string& key, const std::string& value) {
  if (key == "files" || key == "follow") {
    (key == "files" ? section.files : section.follow) = value;
    return is_absolute(value) && value.back() != '/';
  }
  if (key == "compartment") {
    section.compartment = value == "audit" ? audit_compartment : logs_compartment;
    return value == "audit" || value == "logs";
  }
  if (key == "interval") {
    section.interval = parse_interval(value);
    return section.interval != 0;
  }
  section.compress = value == "zstd";
  return value == "zstd" || value == "none";
}

const char* expectation_of(const std::string& key, const std::string& value) {
  if (key == "files" || key == "follow") {
    return is_absolute(value) ? "a file's path, which no slash ends" : "an absolute path";
  }
  if (key == "compartment") return "\"audit\" or \"logs\"";
  if (key == "interval") return "a number of seconds, or with s, min, h, d; from 1 s to 365 d";
  return "\"zstd\" or \"none\"";
}

int take_value(void* user, const char* section_name, const char* key_text, const char* value_text) {
  Reading& reading = *static_cast<Reading*>(user);
  const std::string key = key_text;
  const std::string value = value_text;
  static const std::set<std::string> keys = {"files", "follow", "compartment", "interval", "compress"};
  if (section_name[0] == '\0' || reading.sections.empty()) {
    fail(reading, quoted(key) + " stands before the first section");
  } else if (keys.count(key) == 0) {
    fail(reading, "there is no key " + quoted(key));
  } else if (!reading.keys.insert(key).second) {
    fail(reading, quoted(key) + " is there twice");
  } else if (!set(reading.sections.back(), key, value)) {
    fail(reading, quoted(value) + " is nothing for " + quoted(key) + ": " + expectation_of(key, value));
  }
  return 1;
}

struct Close {
  void operator()(FILE* file) const { fclose(file); }
};

}  // namespace

std::vector<Section> read_config(const std::string& path) {
  const std::unique_ptr<FILE, Close> file(fopen(path.c_str(), "re"));
  if (file == nullptr) throw ConfigError(path + ": " + strerror(errno));
  Reading reading;
  reading.file = file.get();
  ini_max_line = 8192;
  const int line = ini_parse_stream(next_line, &reading, take_value, &reading);
  if (ferror(file.get()) != 0) throw ConfigError(path + ": " + strerror(errno));
  if (line < 0) throw ConfigError(path + ": " + strerror(ENOMEM)); /* whose sections are not all there */
  finish_section(reading);
  if (line > 0 && (reading.error_line == 0 || line < reading.error_line)) {
    reading.error_line = line;
    reading.error = "this is neither a section nor a key with its value";
  }
  if (reading.error_line != 0) {
    throw ConfigError(path + ":" + std::to_string(reading.error_line) + ": " + reading.error);
  }
  return reading.sections;
}

std::string task_of(const Section& section) { return "LogTypeTask." + section.name; }
