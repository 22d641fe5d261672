#ifndef SRC_PROCESS_DESCRIPTORS_H
#define SRC_PROCESS_DESCRIPTORS_H

/*
 * Moves fd to a number of 3 or above, close-on-exec, when it landed on a standard stream that the host program has
 * closed: the host may open its own there later, or write to it as a stream. Returns the descriptor to use, -1 with
 * errno set (fd then closed) when there is none left.
 */
int keep_off_standard_streams(int fd);

/* Makes a pipe whose ends are close-on-exec and off the standard streams. Throws TavrenError for the call "pipe". */
void make_pipe(int (&ends)[2]);

/* Adds flag to the file status flags of fd. Returns whether that worked; errno tells why not. */
bool add_status_flag(int fd, int flag);

/* Closes fd unless it is -1, and makes it -1. */
void close_descriptor(int& fd);

#endif
