#ifndef TESTS_PROCESS_LAST_WORDS_H
#define TESTS_PROCESS_LAST_WORDS_H

#include <random>
#include <string>
#include <vector>

/* What the counterpart prints just before it exits: 12 pieces of 1 to 40 bytes, the last one with a newline. */
inline std::vector<std::string> last_words(unsigned int seed) {
  std::minstd_rand random(seed + 1);
  std::vector<std::string> pieces;
  for (int i = 0; i < 12; ++i) {
    std::string piece(1 + random() % 40, static_cast<char>('a' + i));
    if (random() % 3 == 0 || i == 11) piece.back() = '\n';
    pieces.push_back(piece);
  }
  return pieces;
}

#endif
