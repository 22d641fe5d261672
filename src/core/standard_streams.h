#ifndef SRC_CORE_STANDARD_STREAMS_H
#define SRC_CORE_STANDARD_STREAMS_H

/*
 * Moves fd to a number of 3 or above, close-on-exec, when it landed on a standard stream that the host program has
 * closed: the host may open its own there later, or write to it as a stream. Returns the descriptor to use, -1 with
 * errno set (fd then closed) when there is none left.
 */
int keep_off_standard_streams(int fd);

#endif
