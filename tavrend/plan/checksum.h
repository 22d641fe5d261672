#ifndef TAVREND_PLAN_CHECKSUM_H
#define TAVREND_PLAN_CHECKSUM_H

#include <stdint.h>

#include <string_view>

constexpr uint64_t checksum_of_nothing = 0xCBF29CE484222325;

/*
 * Returns the 64-bit FNV-1a checksum of bytes, behind those that have the given one: the same on every machine, because
 * state files move between them.
 */
constexpr uint64_t checksum(std::string_view bytes, uint64_t of_those_before = checksum_of_nothing) {
  uint64_t sum = of_those_before;
  for (const char c : bytes) sum = (sum ^ static_cast<unsigned char>(c)) * 0x100000001B3;
  return sum;
}

#endif
