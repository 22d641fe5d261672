#ifndef TESTS_HOST_POLLING_SHELL_H
#define TESTS_HOST_POLLING_SHELL_H

#include <string>

/*
 * Script lines for a client whose far end waits for input with poll before it reads, as the real client does: a program
 * that blocks in read on a raw terminal does not see the end of a stream.
 */
constexpr char polling_shell[] = "become_shell() { exec /usr/bin/socat -t 60 - EXEC:/bin/sh,stderr; }\n";

/* The same for a client that runs the line end when its far end has ended. */
inline std::string polling_shell_that_then(const std::string& end) {
  return "become_shell() { /usr/bin/socat -t 60 - EXEC:/bin/sh,stderr; " + end + "; }\n";
}

#endif
