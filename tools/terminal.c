#include "terminal.h"

#include <signal.h>
#include <stddef.h>
#include <termios.h>
#include <unistd.h>

/* Those that a person, a session's end or a failed check sends. */
static const int ending_signals[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGABRT};
enum { SIGNAL_COUNT = sizeof ending_signals / sizeof ending_signals[0] };

static void (*old_handlers[SIGNAL_COUNT])(int);
static void (*old_stop_handler)(int);
static bool stops_are_handled;
static struct termios old_settings;
static struct termios key_settings;

static void restore_and_end(int signal_number) {
  tcsetattr(STDIN_FILENO, TCSANOW, &old_settings);
  signal(signal_number, SIG_DFL);
  raise(signal_number);
}

static void restore_and_stop(int signal_number) {
  (void)signal_number;
  tcsetattr(STDIN_FILENO, TCSANOW, &old_settings);
  raise(SIGSTOP);
  tcsetattr(STDIN_FILENO, TCSANOW, &key_settings);
}

bool guard_terminal(void) {
  if (tcgetattr(STDIN_FILENO, &old_settings) != 0) {
    return false;
  }
  for (int i = 0; i < SIGNAL_COUNT; ++i) {
    old_handlers[i] = signal(ending_signals[i], restore_and_end);
  }
  return true;
}

void read_single_keys(void) {
  key_settings = old_settings;
  key_settings.c_lflag &= ~(tcflag_t)(ICANON | ECHO);
  key_settings.c_cc[VMIN] = 1;
  key_settings.c_cc[VTIME] = 0;
  old_stop_handler = signal(SIGTSTP, restore_and_stop);
  stops_are_handled = true;
  tcsetattr(STDIN_FILENO, TCSANOW, &key_settings);
}

void release_terminal(void) {
  tcsetattr(STDIN_FILENO, TCSANOW, &old_settings);
  if (stops_are_handled) {
    signal(SIGTSTP, old_stop_handler);
    stops_are_handled = false;
  }
  for (int i = 0; i < SIGNAL_COUNT; ++i) {
    signal(ending_signals[i], old_handlers[i]);
  }
}
