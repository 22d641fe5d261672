#ifndef TESTS_HOST_POLLING_SHELL_H
#define TESTS_HOST_POLLING_SHELL_H

/*
 * Script lines for a client whose far end waits for input with poll before it reads, as the real client does: a program
 * that blocks in read on a raw terminal does not see the end of a stream.
 */
constexpr char polling_shell[] = "become_shell() { exec /usr/bin/socat -t 60 - EXEC:/bin/sh,stderr; }\n";

#endif
