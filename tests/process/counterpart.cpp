/*
 * The child of those tests that need more control over it than a shell script gives.
 *
 *   counterpart terminal           prints the terminal's mode and size as they are when the program starts
 *   counterpart sum PIECE PAUSE    takes its standard input to the end, at most PIECE bytes at a time with PAUSE
 *                                  microseconds between, and polls before each read, as the secure shell client does;
 *                                  prints the number of bytes, their checksum and the terminal's mode
 *   counterpart take COUNT PIECE PAUSE   the same for COUNT bytes
 *   counterpart flood COUNT        prints COUNT bytes, 0 to 255 over and over
 *   counterpart last-words SEED    prints 12 pieces of 1 to 40 bytes, which last_words.h tells, and exits at once
 */
#include <errno.h>
#include <inttypes.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <numeric>
#include <string>

#include "process/checksum.h"
#include "process/last_words.h"

namespace {

/* Returns "raw" for exactly what cfmakeraw makes of the settings, "canonical" if only that bit differs from it. */
const char* terminal_mode() {
  termios settings{};
  if (tcgetattr(STDOUT_FILENO, &settings) == -1) return strerror(errno);
  termios raw = settings;
  cfmakeraw(&raw);
  const auto equal = [&settings](const termios& other) {
    return settings.c_iflag == other.c_iflag && settings.c_oflag == other.c_oflag &&
           settings.c_cflag == other.c_cflag && settings.c_lflag == other.c_lflag;
  };
  if (equal(raw)) return "raw";
  raw.c_lflag |= ICANON;
  return equal(raw) ? "canonical" : "other";
}

int print_terminal() {
  const char* mode = terminal_mode();
  winsize size{};
  ioctl(STDOUT_FILENO, TIOCGWINSZ, &size);
  printf("%s %d %d %d %d\n", mode, size.ws_row, size.ws_col, size.ws_xpixel, size.ws_ypixel);
  return 0;
}

int take_input(size_t limit, size_t piece, unsigned int pause) {
  std::string buffer(piece, '\0');
  Checksum sum;
  size_t count = 0;
  while (count < limit) {
    pollfd input{STDIN_FILENO, POLLIN, 0};
    poll(&input, 1, -1);
    const ssize_t n = read(STDIN_FILENO, buffer.data(), std::min(piece, limit - count));
    if (n == -1) return 1;
    if (n == 0) break;
    sum.add(buffer.data(), static_cast<size_t>(n));
    count += static_cast<size_t>(n);
    if (pause != 0) usleep(pause);
  }
  printf("%zu %" PRIu64 " %s\n", count, sum.value(), terminal_mode());
  return 0;
}

int flood(size_t count) {
  std::string bytes(count, '\0');
  std::iota(bytes.begin(), bytes.end(), '\0');
  for (size_t written = 0; written < count;) {
    const ssize_t n = write(STDOUT_FILENO, bytes.data() + written, count - written);
    if (n == -1) return 1;
    written += static_cast<size_t>(n);
  }
  return 0;
}

int say_last_words(unsigned int seed) {
  for (const std::string& piece : last_words(seed)) {
    if (write(STDOUT_FILENO, piece.data(), piece.size()) == -1) return 1;
  }
  return 0;
}

size_t number(const char* text) { return strtoul(text, nullptr, 10); }

}  // namespace

int main(int argc, char** argv) {
  const std::string what = argc > 1 ? argv[1] : "";
  if (what == "terminal") return print_terminal();
  if (what == "sum" && argc == 4) return take_input(SIZE_MAX, number(argv[2]), static_cast<unsigned>(number(argv[3])));
  if (what == "take" && argc == 5) {
    return take_input(number(argv[2]), number(argv[3]), static_cast<unsigned>(number(argv[4])));
  }
  if (what == "flood" && argc == 3) return flood(number(argv[2]));
  if (what == "last-words" && argc == 3) return say_last_words(static_cast<unsigned>(number(argv[2])));
  fprintf(stderr, "counterpart: what?\n");
  return 2;
}
