#ifndef SRC_CORE_NAME_VALUE_LINES_H
#define SRC_CORE_NAME_VALUE_LINES_H

#include <string>

/*
 * Calls apply(name, value) for each line name=value of text: the form in which tunables and remote commands travel.
 * The first "=" splits, nothing is trimmed. A line without "=", or a last line without its newline, ends the work,
 * because what follows it cannot be trusted to be whole.
 */
template <class Apply>
void for_each_name_and_value(const std::string& text, Apply apply) {
  for (size_t position = 0; position < text.size();) {
    const size_t equals = text.find('=', position);
    const size_t newline = text.find('\n', position);
    if (equals == std::string::npos || newline == std::string::npos || equals > newline) return;
    apply(text.substr(position, equals - position), text.substr(equals + 1, newline - equals - 1));
    position = newline + 1;
  }
}

#endif
