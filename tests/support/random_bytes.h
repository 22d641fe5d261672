#ifndef TESTS_SUPPORT_RANDOM_BYTES_H
#define TESTS_SUPPORT_RANDOM_BYTES_H

#include <stdint.h>
#include <string.h>

#include <random>
#include <string>

/* Bytes of all values, the same for the same size and seed. Made in words, for what makes hundreds of megabytes. */
inline std::string random_bytes(size_t size, uint64_t seed) {
  std::mt19937_64 generator(seed);
  std::string bytes(size + sizeof(uint64_t), '\0');
  for (size_t i = 0; i < size; i += sizeof(uint64_t)) {
    const uint64_t word = generator();
    memcpy(&bytes[i], &word, sizeof word);
  }
  bytes.resize(size);
  return bytes;
}

#endif
