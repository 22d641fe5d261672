#include "tavren_util.h"

std::string tavren_int_to_string(int value) { return std::to_string(value); }

std::string tavren_pad_end(const std::string& s, int width) {
  std::string padded = s;
  if (width > 0 && s.size() < static_cast<size_t>(width)) padded.resize(static_cast<size_t>(width), ' ');
  return padded;
}

std::string tavren_basename(const std::string& path) {
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}
