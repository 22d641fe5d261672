#include "watch.h"

#include <poll.h>
#include <signal.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <time.h>
#include <unistd.h>
#include <wchar.h>

#include "outcome.h"
#include "status.h"
#include "terminal.h"
#include "text.h"

enum { PERIOD_MS = 1000, USUAL_ROWS = 24, USUAL_COLUMNS = 80, SHORTEST_BAR = 5, LONGEST_BAR = 50, BESIDE_A_BAR = 30 };

/* Writes the time, and the status or why there is none. */
static void compose(FILE* out, tavren_api_handle_t* daemon, const char* hint, int bar_width) {
  struct status status;
  char text[TAVREN_API_TEXT_SIZE];
  tavren_format_time(time(NULL), text);
  fprintf(out, "%s%s\n", text, hint);
  const bool connected = daemon->clnt != NULL || tavren_api_open(daemon) == 0;
  if (connected && read_status(daemon, &status) == 0) {
    print_status(out, &status, bar_width);
    return;
  }
  fprintf(out, "tavren_ctl: %s\n", tavren_api_errmsg(daemon, text));
  if (connected) {
    /* A daemon that has been started anew has no part in the old connection. */
    tavren_api_close(daemon);
    daemon->clnt = NULL;
  }
}

static int watch_without_a_screen(tavren_api_handle_t* daemon) {
  for (;;) {
    compose(stdout, daemon, "", 0);
    putchar('\n');
    if (fflush(stdout) != 0) {
      return EXIT_NO_DAEMON_OR_USAGE;
    }
    poll(NULL, 0, PERIOD_MS);
  }
}

static struct winsize screen_size(void) {
  struct winsize size;
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_row == 0 || size.ws_col == 0) {
    size.ws_row = USUAL_ROWS;
    size.ws_col = USUAL_COLUMNS;
  }
  return size;
}

/* Writes as much of a line as fits. What would move the cursor, or is no character, becomes a question mark. */
static void write_cut(const char* line, size_t length, int columns) {
  mbstate_t state = {0};
  for (int column = 0; length > 0;) {
    wchar_t character;
    size_t count = mbrtowc(&character, line, length, &state);
    const bool good = count != 0 && count <= length;
    const int width = good ? wcwidth(character) : -1;
    column += width < 0 ? 1 : width;
    if (column > columns) {
      return;
    }
    if (!good) {
      memset(&state, 0, sizeof state);
      count = 1;
    }
    if (width < 0) {
      putchar('?');
    } else {
      fwrite(line, 1, count, stdout);
    }
    line += count;
    length -= count;
  }
}

/*
 * Fills the screen. What stood there goes line by line, because a terminal may keep a screen that is cleared at once
 * among what it scrolled away. Nothing is written behind the last line: that would scroll a full one.
 */
static void draw(const char* text, const struct winsize* size) {
  fputs("\033[H", stdout);
  for (int row = 0; row < size->ws_row && *text != '\0'; ++row) {
    const size_t length = strcspn(text, "\n");
    const char* next = text + length + (text[length] == '\n' ? 1 : 0);
    if (row > 0) {
      putchar('\n');
    }
    fputs(row > 0 && (*next == '\0' || row == size->ws_row - 1) ? "\033[J" : "\033[K", stdout);
    write_cut(text, length, size->ws_col);
    text = next;
  }
  fflush(stdout);
}

/* Asks the daemon and draws. Returns false without memory. */
static bool draw_status(tavren_api_handle_t* daemon, bool keys) {
  char* text = NULL;
  size_t length = 0;
  const struct winsize size = screen_size();
  const int room = size.ws_col - BESIDE_A_BAR;
  FILE* out = open_memstream(&text, &length);
  if (out == NULL) {
    return false;
  }
  compose(out, daemon, keys ? translate(", q ends") : "",
          room < SHORTEST_BAR  ? SHORTEST_BAR
          : room > LONGEST_BAR ? LONGEST_BAR
                               : room);
  const bool composed = fclose(out) == 0;
  if (composed) {
    draw(text, &size);
  }
  free(text);
  return composed;
}

/* Waits until it is time to draw anew. Returns whether the person at the terminal has seen enough. */
static bool wait_for_the_end(bool keys) {
  const int64_t end_ms = tavren_get_uptime_ms() + PERIOD_MS;
  for (;;) {
    struct pollfd input = {STDIN_FILENO, POLLIN, 0};
    const int64_t left_ms = end_ms - tavren_get_uptime_ms();
    /* A signal says that the screen has another size, or that the program was stopped meanwhile. */
    if (left_ms <= 0 || poll(&input, keys ? 1 : 0, (int)left_ms) <= 0) {
      return false;
    }
    char key;
    if (read(STDIN_FILENO, &key, 1) != 1 || key == 'q' || key == 'Q') {
      return true;
    }
  }
}

/* Nothing else is to be done: the next drawing asks for the screen's size. */
static void interrupt_the_wait(int signal_number) { (void)signal_number; }

static int watch_on_a_screen(tavren_api_handle_t* daemon) {
  const bool keys = guard_terminal(NULL);
  if (keys) {
    read_single_keys();
  }
  signal(SIGWINCH, interrupt_the_wait);
  setvbuf(stdout, NULL, _IOFBF, BUFSIZ); /* a screen at a time */
  bool drawn;
  do {
    drawn = draw_status(daemon, keys);
  } while (drawn && ferror(stdout) == 0 && !wait_for_the_end(keys));
  putchar('\n');
  if (keys) {
    release_terminal();
  }
  return drawn ? EXIT_DONE : end_without_memory();
}

int watch(tavren_api_handle_t* daemon, char** arguments) {
  (void)arguments;
  const char* kind = getenv("TERM");
  const bool screen = isatty(STDOUT_FILENO) && kind != NULL && strcmp(kind, "dumb") != 0;
  return screen ? watch_on_a_screen(daemon) : watch_without_a_screen(daemon);
}
