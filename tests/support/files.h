#ifndef TESTS_SUPPORT_FILES_H
#define TESTS_SUPPORT_FILES_H

#include <algorithm>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

/* Returns everything that is left in a stream. Not by iterators, which cost a call for each byte. */
inline std::string content_of(const std::istream& in) {
  std::ostringstream content;
  content << in.rdbuf();
  return content.str();
}

/* Returns everything in the file path; an unreadable one is a failure of the test. */
inline std::string read_file(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw std::runtime_error("cannot read " + path);
  return content_of(in);
}

/* Returns the number of the first line of the file path that contains part. */
inline int line_of(const std::string& path, const std::string& part) {
  const std::string text = read_file(path);
  const size_t position = text.find(part);
  if (position == std::string::npos) throw std::runtime_error(path + " has no " + part);
  return 1 + static_cast<int>(std::count(text.data(), text.data() + position, '\n'));
}

inline void write_file(const std::string& path, const std::string& content) {
  std::ofstream out(path, std::ios::binary);
  if (!(out << content << std::flush)) throw std::runtime_error("cannot write " + path);
}

#endif
