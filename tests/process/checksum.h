#ifndef TESTS_PROCESS_CHECKSUM_H
#define TESTS_PROCESS_CHECKSUM_H

#include <stddef.h>
#include <stdint.h>

/* The 64-bit FNV-1a sum, which both ends of a stream compute: loss, repetition and exchange of bytes change it. */
class Checksum {
 public:
  void add(const char* data, size_t length) {
    for (size_t i = 0; i < length; ++i) sum = (sum ^ static_cast<unsigned char>(data[i])) * 0x100000001b3U;
  }
  uint64_t value() const { return sum; }

 private:
  uint64_t sum = 0xcbf29ce484222325U;
};

#endif
