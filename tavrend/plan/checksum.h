#ifndef TAVREND_PLAN_CHECKSUM_H
#define TAVREND_PLAN_CHECKSUM_H

#include <stdint.h>

#include <string_view>

/* Returns the 64-bit FNV-1a checksum of bytes: the same on every machine, because state files move between them. */
constexpr uint64_t checksum(std::string_view bytes) {
  uint64_t sum = 0xCBF29CE484222325;
  for (const char c : bytes) sum = (sum ^ static_cast<unsigned char>(c)) * 0x100000001B3;
  return sum;
}

#endif
