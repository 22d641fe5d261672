#ifndef TESTS_FUZZ_PLAYED_CHILD_H
#define TESTS_FUZZ_PLAYED_CHILD_H

#include <stddef.h>
#include <stdint.h>

#include <functional>
#include <string>
#include <vector>

/*
 * A child without a process. A program that is linked with played_child.cpp has functions of its own in the place of
 * those of the C library with which TavrenProcess starts a child, talks to it, waits for it and ends it; for whatever
 * is not the played child's they call the real ones. The uptime clock stands still but for the time that is waited, so
 * a wait in vain takes none.
 *
 * The terminal is a real one whose other side nobody reads: settings and questions about it have real answers, only
 * what is read and written is played. There is one child at a time, and no console.
 */
namespace played_child {

constexpr int at_once = -1;

/* What one read delivers, 1024 bytes of it at the most. */
struct Piece {
  int pause_ms = at_once; /* how long it is waited for first; read finds nothing before */
  std::string bytes;
};

/* What read says when there are no more pieces. */
enum class End { input_output_error, end_of_file, nothing_more };

constexpr size_t never = SIZE_MAX;

struct Play {
  std::vector<Piece> pieces;
  End end = End::input_output_error;
  size_t ends_at = never;         /* the child has ended once so many pieces are read: its last words remain */
  bool obeys_sigterm = true;      /* and ends then */
  std::function<void()> at_start; /* called when the child is started, none by default */
  std::vector<int> takes; /* bytes that each write gets rid of; 0 or less: none for so many tenths of a second */
};

/* Lets play be what the next child does. The child before must be gone. The clock begins anew. */
void begin(const Play& play);

/* What was written to the child. */
const std::string& heard();

/* The uptime, and the one at which every play begins. */
int64_t uptime_ms();
constexpr int64_t first_uptime_ms = 1000000;

/* Whether there is no child: none was started, or it was ended and reaped. */
bool is_gone();

}  // namespace played_child

#endif
