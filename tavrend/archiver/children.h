#ifndef TAVREND_ARCHIVER_CHILDREN_H
#define TAVREND_ARCHIVER_CHILDREN_H

#include <sys/types.h>

/*
 * Sends a signal to the children that a thread of this process has. A kernel without lists of them
 * (CONFIG_PROC_CHILDREN) only says which are this process's: all of them get it there. What is missing for it, memory
 * or a descriptor, leaves them alone.
 */
void end_children_of(pid_t thread, int signal_number) noexcept;

/*
 * Whether the secure shell client, which is the only child that the calling thread has, has ended without the far
 * shell's end, or does so within so many milliseconds. It is left for who waits for it.
 */
bool has_lost_its_connection(int patience_ms);

#endif
