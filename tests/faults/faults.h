#ifndef TESTS_FAULTS_FAULTS_H
#define TESTS_FAULTS_FAULTS_H

#include <atomic>
#include <string>
#include <vector>

/*
 * Calls of the C library that fail on demand, for the shared library too, in a program that is linked with faults.cpp;
 * or in one that loads such a library, and shares what it is to do with the test that has started it.
 */
namespace faults {

/* A way in which a function fails. */
struct Fault {
  const char* function; /* the symbol's name */
  const char* how;      /* "fails", or what happens instead */
  int error;            /* the error number that it leaves */
};

/* Every function that can fail, with all its ways. */
extern const std::vector<Fault> all;

constexpr int most_faults = 200;

/* What is to fail, and what was called so far. */
struct Control {
  std::atomic<bool> armed{false};
  std::atomic<bool> injected{false};
  std::atomic<int> chosen{-1}; /* its place in the list of all; -1: none */
  std::atomic<long> chosen_call{0};
  std::atomic<long> calls[most_faults]{}; /* as many as there are ways of failing, and more */
};

/* Uses that memory from now on, which other processes may use, too. It must be all zeros, or in use. */
void use(Control* shared);

/* From now on counts calls, and has call number count of the fault's function fail; NULL: none. */
void arm(const Fault* fault, long count);

/* Ends that. */
void disarm();

bool is_armed();

/* Returns whether the call that was to fail has been made. */
bool was_injected();

/* Returns how often the function was called while armed. */
long calls_of(const std::string& function);

/* For those functions: counts a call, and returns the fault that it meets, with its error number set; NULL for none. */
const Fault* meet(const char* function);

}  // namespace faults

#endif
