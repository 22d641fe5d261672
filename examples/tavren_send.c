/*
 * tavren_send: sends files to a directory on an archive host.
 *
 * An example of a C program over libtavren: it checks the target, has the host's key confirmed, asks for the password
 * without showing it, tests the host if wanted, logs in once, and sends each file through that one session.
 */
#include <errno.h>
#include <getopt.h>
#include <locale.h>
#include <signal.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <tavren.h>
#include <termios.h>
#include <unistd.h>

#include "guarded_calls.h"
#include "send_files.h"

enum { EXIT_ALL_SENT = 0, EXIT_SOME_FAILED = 1, EXIT_USAGE = 2 };

enum {
  PASSWORD_SIZE = 1024, /* the secure shell client takes no more */
  KNOWN_KEY_SIZE = 4096 /* a file may hold a longer key than can be fetched */
};

static const char usage[] =
    "Usage: tavren_send [options] user@host:directory FILE...\n"
    "       tavren_send --test [options] user@host:directory [FILE...]\n"
    "Sends each FILE to the directory on the archive host.\n"
    "\n"
    "  -k, --known-key FILE   accept only the host key in FILE (as in a .pub file);\n"
    "                         without it the key is fetched, shown and asked about\n"
    "  -y, --yes              confirm the fetched key without being asked\n"
    "  -t, --test             first test host and directory, and claim the directory\n"
    "                         for this chassis\n"
    "  -p, --password-fd N    read the password from descriptor N instead of asking\n"
    "  -h, --help             show this text\n";

/* What the user asked for. The pointers lead into argv. */
struct request {
  const char* known_key_file; /* NULL: fetch the key */
  bool confirm_key;
  bool test;
  int password_fd; /* -1: ask */
  char* target;
  char** files;
};

static struct termios terminal_settings;

/* An interrupted password prompt must not leave a terminal behind that shows nothing. */
static void restore_terminal(int signal_number) {
  tcsetattr(STDIN_FILENO, TCSANOW, &terminal_settings);
  signal(signal_number, SIG_DFL);
  raise(signal_number);
}

static bool ask_for_password(char* password) {
  static const int signals[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};
  enum { SIGNAL_COUNT = sizeof signals / sizeof signals[0] };
  void (*old_handlers[SIGNAL_COUNT])(int);
  const bool terminal = tcgetattr(STDIN_FILENO, &terminal_settings) == 0;
  for (int i = 0; terminal && i < SIGNAL_COUNT; ++i) {
    old_handlers[i] = signal(signals[i], restore_terminal);
  }
  const int length = tavren_read_input("Password: ", password, PASSWORD_SIZE, 1);
  for (int i = 0; terminal && i < SIGNAL_COUNT; ++i) {
    signal(signals[i], old_handlers[i]);
  }
  return length < PASSWORD_SIZE && !(length == 0 && feof(stdin));
}

static bool read_password_from(int fd, char* password) {
  size_t length = 0;
  for (;;) {
    char c;
    const ssize_t n = read(fd, &c, 1);
    if (n < 0 && errno == EINTR) {
      continue;
    }
    if (n < 0 || (n == 0 && length == 0)) {
      return false;
    }
    if (n == 0 || c == '\n') {
      break;
    }
    if (length == PASSWORD_SIZE - 1) {
      return false;
    }
    password[length++] = c;
  }
  password[length] = '\0';
  return true;
}

/* Reads "type key comment" and cuts the comment off. */
static bool read_host_key(const char* path, char* key) {
  if (tavren_read_line_from_file(path, key, KNOWN_KEY_SIZE) != 0) {
    return false;
  }
  char* encoded = strchr(key, ' ');
  if (encoded == NULL) {
    return false;
  }
  encoded[1 + strcspn(encoded + 1, " \t")] = '\0';
  return encoded[1] != '\0';
}

static bool parse_descriptor(const char* text, int* fd) { return tavren_cstring_to_int(text, fd) == 0 && *fd >= 0; }

/* Returns whether the command line makes sense. */
static bool parse_arguments(int argc, char** argv, struct request* request) {
  static const struct option options[] = {
      {"known-key", required_argument, NULL, 'k'},   {"yes", no_argument, NULL, 'y'},  {"test", no_argument, NULL, 't'},
      {"password-fd", required_argument, NULL, 'p'}, {"help", no_argument, NULL, 'h'}, {NULL, 0, NULL, 0}};
  int option;
  while ((option = getopt_long(argc, argv, "k:ytp:h", options, NULL)) != -1) {
    switch (option) {
      case 'k':
        request->known_key_file = optarg;
        break;
      case 'y':
        request->confirm_key = true;
        break;
      case 't':
        request->test = true;
        break;
      case 'p':
        if (!parse_descriptor(optarg, &request->password_fd)) {
          fprintf(stderr, "tavren_send: not a descriptor: %s\n", optarg);
          return false;
        }
        break;
      case 'h':
        fputs(usage, stdout);
        exit(EXIT_ALL_SENT);
      default:
        return false;
    }
  }
  if (argc - optind < (request->test ? 1 : 2)) {
    return false;
  }
  request->target = argv[optind];
  request->files = argv + optind + 1;
  return true;
}

/* Fetches the host's key and has its fingerprint confirmed. Returns false after a message. */
static bool fetch_and_confirm_key(const char* host, bool confirm, char* key) {
  char fingerprint[TAVREN_FINGERPRINT_SIZE];
  char reason[TAVREN_MESSAGE_SIZE];
  char* message = NULL;
  if (fetch_host_key(host, key, &message) != 0) {
    report("fetching the host's key", message);
    return false;
  }
  if (tavren_host_key_fingerprint(key, fingerprint, reason) != 0) {
    fprintf(stderr, "tavren_send: %s\n", reason);
    return false;
  }
  printf("%s shows a key of type %.*s with the fingerprint\n  %s\n", host, (int)strcspn(key, " "), key, fingerprint);
  if (tavren_yes_or_no("Is this the host's key (yes/no)? ", confirm, 0) != 1) {
    fputs("tavren_send: the host's key was not confirmed\n", stderr);
    return false;
  }
  return true;
}

/* Fills key, which pins the host from here on. Returns false after a message. */
static bool choose_host_key(const struct request* request, const char* host, char* key) {
  if (request->known_key_file == NULL) {
    return fetch_and_confirm_key(host, request->confirm_key, key);
  }
  if (read_host_key(request->known_key_file, key)) {
    return true;
  }
  fprintf(stderr, "tavren_send: %s: cannot read a host key\n", request->known_key_file);
  return false;
}

static bool get_password(const struct request* request, char* password) {
  /* The standard input's buffer may hold the password already, behind the answer about the key. */
  const bool from_stdin = request->password_fd == -1 || request->password_fd == STDIN_FILENO;
  const bool done = from_stdin ? ask_for_password(password) : read_password_from(request->password_fd, password);
  if (!done) {
    fputs("tavren_send: cannot read the password\n", stderr);
  }
  return done;
}

/* Tests host and directory and claims the directory. Returns false after a message. */
static bool test_host(const tavren_settings_t* settings) {
  char* message = NULL;
  const char* advice = NULL;
  if (test_and_claim(settings, &message, &advice) == 0) {
    printf("%s:%s is tested and claimed for this chassis\n", settings->host, settings->dir);
    return true;
  }
  report("the test of the host", message);
  if (advice != NULL) {
    fprintf(stderr, "%s\n", advice);
  }
  return false;
}

int main(int argc, char** argv) {
  static char password[PASSWORD_SIZE];
  static char host_key[KNOWN_KEY_SIZE];
  static char no_fingerprint[] = "";
  char message[TAVREN_MESSAGE_SIZE];
  struct request request = {.password_fd = -1};
  tavren_settings_t settings = {.password = password, .host_key = host_key, .fingerprint = no_fingerprint};

  setlocale(LC_ALL, "");            /* the library speaks the language that its program has chosen */
  setvbuf(stdout, NULL, _IOLBF, 0); /* so that what is shown and what is complained of come in order */
  tavren_set_program_name(argv[0]);
  if (!parse_arguments(argc, argv, &request)) {
    fputs(usage, stderr);
    return EXIT_USAGE;
  }
  if (tavren_process_target(request.target, &settings.user, &settings.host, &settings.dir, message) != 0) {
    fprintf(stderr, "tavren_send: %s\n", message);
    return EXIT_USAGE;
  }
  if (tavren_setup_tmp_dir("tavren_send", message) != 0) {
    fprintf(stderr, "tavren_send: %s\n", message);
    return EXIT_SOME_FAILED;
  }

  int status = EXIT_SOME_FAILED;
  if (choose_host_key(&request, settings.host, host_key) && get_password(&request, password) &&
      (!request.test || test_host(&settings))) {
    status = *request.files == NULL ? EXIT_ALL_SENT : send_files(&settings, request.files);
  }
  explicit_bzero(password, sizeof password);
  tavren_cleanup_tmp_dir();
  return status;
}
