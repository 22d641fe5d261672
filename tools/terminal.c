#include "terminal.h"

#include <signal.h>
#include <stddef.h>
#include <string.h>
#include <termios.h>
#include <unistd.h>

/* Those that a person, a session's end or a failed check sends. */
static const int ending_signals[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGABRT};
enum { SIGNAL_COUNT = sizeof ending_signals / sizeof ending_signals[0] };

static void (*old_handlers[SIGNAL_COUNT])(int);
static void (*old_stop_handler)(int);
static struct termios old_settings;
static const char* shown_again;

static void restore_and_end(int signal_number) {
  tcsetattr(STDIN_FILENO, TCSANOW, &old_settings);
  signal(signal_number, SIG_DFL);
  raise(signal_number);
}

/* Stops as if nothing were handled: where nobody could continue the program, the kernel then does not stop it. */
static void stop(void) {
  sigset_t stops;
  sigemptyset(&stops);
  sigaddset(&stops, SIGTSTP);
  signal(SIGTSTP, SIG_DFL);
  raise(SIGTSTP);
  sigprocmask(SIG_UNBLOCK, &stops, NULL);
}

static void restore_and_stop(int signal_number) {
  struct termios settings;
  const bool known = tcgetattr(STDIN_FILENO, &settings) == 0;
  tcsetattr(STDIN_FILENO, TCSANOW, &old_settings);
  stop();
  signal(signal_number, restore_and_stop);
  if (known) {
    tcsetattr(STDIN_FILENO, TCSANOW, &settings);
  }
  /* Who does not see the question knows no better than to type on. */
  if (shown_again != NULL && write(STDOUT_FILENO, shown_again, strlen(shown_again)) == -1) {
    shown_again = NULL;
  }
}

bool guard_terminal(const char* question) {
  if (tcgetattr(STDIN_FILENO, &old_settings) != 0) {
    return false;
  }
  shown_again = question;
  for (int i = 0; i < SIGNAL_COUNT; ++i) {
    old_handlers[i] = signal(ending_signals[i], restore_and_end);
  }
  old_stop_handler = signal(SIGTSTP, restore_and_stop);
  return true;
}

void read_single_keys(void) {
  struct termios settings = old_settings;
  settings.c_lflag &= ~(tcflag_t)(ICANON | ECHO);
  settings.c_cc[VMIN] = 1;
  settings.c_cc[VTIME] = 0;
  tcsetattr(STDIN_FILENO, TCSANOW, &settings);
}

void release_terminal(void) {
  tcsetattr(STDIN_FILENO, TCSANOW, &old_settings);
  signal(SIGTSTP, old_stop_handler);
  for (int i = 0; i < SIGNAL_COUNT; ++i) {
    signal(ending_signals[i], old_handlers[i]);
  }
}
