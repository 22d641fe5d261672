#ifndef TESTS_PROCESS_OBSERVE_H
#define TESTS_PROCESS_OBSERVE_H

#include <signal.h>
#include <sys/types.h>

#include <functional>
#include <set>
#include <string>

/* The descriptors that a process has open. */
std::set<int> open_descriptors(pid_t pid);
std::set<int> open_descriptors();

/* Those of this process that are not in before. */
std::set<int> new_descriptors(const std::set<int>& before);

/* What descriptor fd of a process refers to, as in "/dev/pts/3" or "pipe:[4711]". */
std::string descriptor_target(pid_t pid, int fd);

/* Whether descriptor fd of this process is closed by execve. */
bool is_close_on_exec(int fd);

/* Whether this process has a child, be it only one that has exited and is not reaped. Reaps none. */
bool has_children();

/* Waits until condition holds, looking again and again; false after much patience. */
bool wait_until(const std::function<bool()>& condition);

/* Waits until a child has exited, and leaves it unreaped. */
bool wait_until_exited(pid_t pid);

/* Waits until any child has exited, leaves it unreaped, and returns how it ended. */
siginfo_t end_of_a_child();

/* Waits until a thread of this process sleeps in the kernel. */
bool wait_until_asleep(pid_t tid);

/* Seconds that this process has spent computing, in the program and in the kernel. */
double cpu_seconds();

#endif
