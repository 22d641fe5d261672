#ifndef TESTS_FUZZ_PLAYED_INPUT_H
#define TESTS_FUZZ_PLAYED_INPUT_H

#include "fuzz/fuzz.h"
#include "fuzz/played_child.h"

/* Takes from input how the child behaves, all but what it says. */
inline played_child::Play behaviour_from(Input& input) {
  using played_child::End;
  played_child::Play play;
  const uint8_t kind = input.byte();
  play.end = (kind & 1) != 0 ? End::nothing_more : (kind & 2) != 0 ? End::end_of_file : End::input_output_error;
  play.obeys_sigterm = (kind & 4) == 0;
  if ((kind & 8) != 0) play.ends_at = input.byte();
  if ((kind & 16) != 0) {
    for (int count = input.byte() % 16; count > 0; --count) play.takes.push_back(static_cast<int8_t>(input.byte()));
  }
  return play;
}

#endif
