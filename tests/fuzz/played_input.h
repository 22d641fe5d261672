#ifndef TESTS_FUZZ_PLAYED_INPUT_H
#define TESTS_FUZZ_PLAYED_INPUT_H

#include "fuzz/fuzz.h"
#include "fuzz/played_child.h"

namespace played_child {

/*
 * Returns the pieces that text stands for. Its bytes are what the child says, but for these, which end a piece: 0xFC
 * with a count (the piece so many times), 0xFD with tenths of a second (the next piece is waited for so long), 0xFE;
 * and 0xFF, behind which any byte stands for itself.
 */
inline std::vector<Piece> pieces_of(const std::string& text) {
  constexpr size_t longest = 150000; /* beyond the limit of one read operation */
  std::vector<Piece> pieces;
  Piece piece;
  size_t total = 0;
  /* Pauses in a row are one. */
  const auto end_piece = [&](int next_pause) {
    if (piece.bytes.empty()) {
      if (next_pause != at_once) piece.pause_ms = std::max(piece.pause_ms, 0) + next_pause;
    } else {
      pieces.push_back(piece);
      piece = Piece{next_pause, ""};
    }
  };
  for (size_t i = 0; i < text.size() && total < longest; ++i) {
    const auto c = static_cast<uint8_t>(text[i]);
    const int argument = i + 1 < text.size() ? static_cast<uint8_t>(text[i + 1]) : 0;
    if (c >= 0xFC && c != 0xFE) ++i;
    if (c == 0xFC) {
      const Piece repeated = piece;
      for (int n = 1; n < argument && total < longest; ++n) {
        end_piece(at_once);
        piece.bytes = repeated.bytes;
        total += repeated.bytes.size();
      }
      end_piece(at_once);
    } else if (c == 0xFD) {
      end_piece(argument * 100);
    } else if (c == 0xFE) {
      end_piece(at_once);
    } else {
      piece.bytes += c == 0xFF ? static_cast<char>(argument) : text[i];
      ++total;
    }
  }
  end_piece(at_once);
  return pieces;
}

}  // namespace played_child

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
