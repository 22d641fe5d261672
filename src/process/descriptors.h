#ifndef SRC_PROCESS_DESCRIPTORS_H
#define SRC_PROCESS_DESCRIPTORS_H

/* Makes a pipe whose ends are close-on-exec and off the standard streams. Throws TavrenError for the call "pipe". */
void make_pipe(int (&ends)[2]);

/* Adds flag to the file status flags of fd. Returns whether that worked; errno tells why not. */
bool add_status_flag(int fd, int flag);

/* Closes fd unless it is -1, and makes it -1. */
void close_descriptor(int& fd);

#endif
