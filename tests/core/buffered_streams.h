#ifndef TESTS_CORE_BUFFERED_STREAMS_H
#define TESTS_CORE_BUFFERED_STREAMS_H

#include <stdio.h>
#include <unistd.h>

#include <utility>

/* The standard streams of a child as they may be when it ends. */

/* Leaves a text of its own in the buffer of each stream, both on their way to the standard error. */
inline void leave_texts_in_the_buffers() {
  dup2(STDERR_FILENO, STDOUT_FILENO);
  setvbuf(stderr, nullptr, _IOFBF, BUFSIZ);
  fputs("to standard output,", stdout);
  fputs("to standard error,", stderr);
}

/* Leaves the process without buffered streams that can be written. */
inline void make_streams_unusable() {
  stdout = fopen("/dev/full", "w");
  stderr = fopen("/dev/full", "w");
  fputs("cannot be written", stdout);
  fputs("cannot be written", stderr);
}

/* The two, each with what is shown before a diagnostic. */
inline const std::pair<void (*)(), const char*> states_of_the_streams[] = {
    {leave_texts_in_the_buffers, "to standard output,to standard error,"}, {make_streams_unusable, ""}};

#endif
