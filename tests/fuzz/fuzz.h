#ifndef TESTS_FUZZ_FUZZ_H
#define TESTS_FUZZ_FUZZ_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <initializer_list>
#include <string>

/*
 * What the fuzz targets share. A target is one function that takes any bytes, lets the library work on them and
 * compares the outcome with what it must be. It returns when all is well and ends the process when not.
 */
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

/* Ends the process, which the fuzzer takes for a finding, unless condition holds. */
#define MUST(condition)                                                                   \
  do {                                                                                    \
    if (!(condition)) {                                                                   \
      fprintf(stderr, "%s:%d: this does not hold: %s\n", __FILE__, __LINE__, #condition); \
      abort();                                                                            \
    }                                                                                     \
  } while (false)

/*
 * A failed assertion of the library, which the targets' own _tavren_assert throws in the place of ending the process:
 * for many inputs it is the stated outcome.
 */
struct FailedAssertion {
  std::string expression;

  bool is_one_of(std::initializer_list<const char*> stated) const {
    return std::find(stated.begin(), stated.end(), expression) != stated.end();
  }
};

/* The bytes of one input, taken from the front. Behind their end there are zeros and empty texts. */
class Input {
 public:
  Input(const uint8_t* data, size_t size) : bytes(reinterpret_cast<const char*>(data), size) {}

  bool is_empty() const { return position == bytes.size(); }
  uint8_t byte() { return is_empty() ? uint8_t{0} : static_cast<uint8_t>(bytes[position++]); }
  bool flag() { return (byte() & 1) != 0; }

  /* Returns a text of the length that the next byte tells. */
  std::string text() {
    const size_t length = byte();
    const std::string result = bytes.substr(position, length);
    position += result.size();
    return result;
  }
  std::string rest() {
    const std::string result = bytes.substr(position);
    position = bytes.size();
    return result;
  }

 private:
  std::string bytes;
  size_t position = 0;
};

/* Returns text up to its first NUL byte: what a C string of these bytes says. */
inline std::string up_to_nul(const std::string& text) { return text.c_str(); }

/* A C string in memory of exactly its size, so that the address sanitizer sees whoever reads or writes behind it. */
class CString {
 public:
  explicit CString(const std::string& text) : memory(strdup(text.c_str())) { MUST(memory != nullptr); }
  ~CString() { free(memory); }
  CString(const CString&) = delete;
  CString& operator=(const CString&) = delete;

  char* get() { return memory; }

 private:
  char* memory;
};

#endif
