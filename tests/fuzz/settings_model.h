#ifndef TESTS_FUZZ_SETTINGS_MODEL_H
#define TESTS_FUZZ_SETTINGS_MODEL_H

#include <string>
#include <utility>
#include <vector>

/* The lines name=value of which a text consists, up to the first one that is none, read byte by byte. */
namespace settings_model {

using Settings = std::vector<std::pair<std::string, std::string>>;

inline Settings settings_of(const std::string& text) {
  Settings settings;
  std::string name, value;
  bool in_name = true;
  for (const char c : text) {
    if (in_name) {
      if (c == '\n') return settings;
      if (c == '=') {
        in_name = false;
      } else {
        name += c;
      }
    } else if (c == '\n') {
      settings.emplace_back(name, value);
      name.clear();
      value.clear();
      in_name = true;
    } else {
      value += c;
    }
  }
  return settings;
}

inline std::string padded(std::string text, size_t width) {
  while (text.size() < width) text += ' ';
  return text;
}

}  // namespace settings_model

#endif
