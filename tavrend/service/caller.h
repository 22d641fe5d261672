#ifndef TAVREND_SERVICE_CALLER_H
#define TAVREND_SERVICE_CALLER_H

#include <sys/types.h>

#include <optional>

/*
 * Returns the user who holds the other end of the connection fd on this machine, as the kernel has it; nothing when it
 * does not say, or when the caller has hung up: its user is root's number then, whoever it was.
 */
std::optional<uid_t> caller_of(int fd);

#endif
