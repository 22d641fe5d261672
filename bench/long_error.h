#ifndef BENCH_LONG_ERROR_H
#define BENCH_LONG_ERROR_H

#include <sstream>
#include <string>

#include "TavrenError.h"

/* Returns an error of 25 lines, as a host's test with much output leaves one. */
inline TavrenError long_error() {
  TavrenError error(TAVREN_E_SSH_START, "archive.example", "");
  error.add_line(TAVREN_E_COMMAND_FAILED, "/bin/mkdir -p 'test'", "1");
  while (error.lines.size() < 25) error.add_line(TAVREN_E_COMMAND_OUTPUT, "mkdir: cannot create directory", "");
  return error;
}

/* Serialises error, reads it back and prints it. Returns what is printed. */
inline std::string sent_and_printed(const TavrenError& error) {
  std::stringstream serialised;
  error.serialize(serialised);
  const TavrenError received(serialised);
  std::ostringstream printed;
  received.print(printed);
  return printed.str();
}

#endif
