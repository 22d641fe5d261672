#ifndef TESTS_FAULTS_FAULTS_H
#define TESTS_FAULTS_FAULTS_H

#include <string>
#include <vector>

/*
 * Calls of the C library that fail on demand, for the shared library too, in a program that is linked with faults.cpp.
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

/* From now on counts calls, and has call number count of the fault's function fail; NULL: none. */
void arm(const Fault* fault, long count);

/* Ends that. */
void disarm();

/* Returns whether the call that was to fail has been made. */
bool was_injected();

/* Returns how often the function was called while armed. */
long calls_of(const std::string& function);

}  // namespace faults

#endif
