/*
 * tavren_send: sends files to a directory on an archive host.
 *
 * An example of a C program over libtavren: it checks the target, asks for the password without showing it, logs in
 * once, and sends each file through that one session.
 */
#include <errno.h>
#include <fcntl.h>
#include <getopt.h>
#include <signal.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <tavren.h>
#include <termios.h>
#include <unistd.h>

enum { EXIT_ALL_SENT = 0, EXIT_SOME_FAILED = 1, EXIT_USAGE = 2 };

enum {
  PASSWORD_SIZE = 1024, /* the secure shell client takes no more */
  HOST_KEY_SIZE = 4096,
  PIECE_SIZE = 32768,
  BAR_WIDTH = 30
};

static const char usage[] =
    "Usage: tavren_send [options] user@host:directory FILE...\n"
    "Sends each FILE to the directory on the archive host.\n"
    "\n"
    "  -k, --known-key FILE   accept only the host key in FILE (as in a .pub file);\n"
    "                         without it any key is accepted, with a warning\n"
    "  -p, --password-fd N    read the password from descriptor N instead of asking\n"
    "  -h, --help             show this text\n";

/* What the user asked for. The pointers lead into argv. */
struct request {
  const char* known_key_file; /* NULL: accept any key */
  int password_fd;            /* -1: ask */
  char* target;
  char** files;
};

/* A file on its way, for the progress display. */
struct progress {
  const char* name;
  uint32_t sent;
  uint32_t size;
  int64_t started_ms;
  int shown_percent;
};

static struct termios terminal_settings;

/* An interrupted password prompt must not leave a terminal behind that shows nothing. */
static void restore_terminal(int signal_number) {
  tcsetattr(STDIN_FILENO, TCSANOW, &terminal_settings);
  signal(signal_number, SIG_DFL);
  raise(signal_number);
}

static bool ask_for_password(char* password) {
  const bool terminal = tcgetattr(STDIN_FILENO, &terminal_settings) == 0;
  void (*old_handler)(int) = SIG_DFL;
  if (terminal) {
    old_handler = signal(SIGINT, restore_terminal);
  }
  const int length = tavren_read_input("Password: ", password, PASSWORD_SIZE, 1);
  if (terminal) {
    signal(SIGINT, old_handler);
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
    if (n < 0) {
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
  if (tavren_read_line_from_file(path, key, HOST_KEY_SIZE) != 0) {
    return false;
  }
  char* encoded = strchr(key, ' ');
  if (encoded == NULL) {
    return false;
  }
  encoded[1 + strcspn(encoded + 1, " \t")] = '\0';
  return encoded[1] != '\0';
}

/* Prints and frees what a tavren_hp_* function says of its failure. */
static void report(const char* what, char* message) {
  fprintf(stderr, "tavren_send: %s failed:\n%s", what, message != NULL ? message : "  - out of memory\n");
  free(message);
}

static const char* base_name(const char* path) {
  const char* slash = strrchr(path, '/');
  return slash != NULL ? slash + 1 : path;
}

static double megabytes_per_second(const struct progress* progress) {
  const int64_t elapsed_ms = tavren_get_uptime_ms() - progress->started_ms;
  return elapsed_ms > 0 ? progress->sent / 1000.0 / (double)elapsed_ms : 0.0;
}

static void show_progress(struct progress* progress) {
  const int percent = progress->size > 0 ? (int)((uint64_t)progress->sent * 100 / progress->size) : 100;
  if (percent == progress->shown_percent) {
    return;
  }
  progress->shown_percent = percent;
  const int filled = percent * BAR_WIDTH / 100;
  printf("\r%-24.24s [", progress->name);
  for (int i = 0; i < BAR_WIDTH; ++i) {
    putchar(i < filled ? '#' : ' ');
  }
  printf("] %3d%% %7.1f MB/s", percent, megabytes_per_second(progress));
  fflush(stdout);
}

/* Sends what is announced of the open file. Sets *message, as the library does, when the archive host refuses. */
static int send_contents(tavren_hp_t* session, int fd, struct progress* progress, bool bar, char** message) {
  static char piece[PIECE_SIZE];
  while (progress->sent < progress->size) {
    const uint32_t rest = progress->size - progress->sent;
    const ssize_t n = read(fd, piece, rest < PIECE_SIZE ? rest : PIECE_SIZE);
    if (n < 0 && errno == EINTR) {
      continue;
    }
    if (n <= 0) {
      fprintf(stderr, "tavren_send: %s: %s\n", progress->name, n == 0 ? "became shorter" : strerror(errno));
      return -1;
    }
    if (tavren_hp_continue_send_file(session, piece, (uint32_t)n, message) != 0) {
      return -1;
    }
    progress->sent += (uint32_t)n;
    if (bar) {
      show_progress(progress);
    }
  }
  return 0;
}

static int send_open_file(tavren_hp_t* session, int fd, const struct stat* status, struct progress* progress) {
  const bool bar = isatty(STDOUT_FILENO);
  char* message = NULL;
  if (bar) {
    show_progress(progress);
  }
  int result = tavren_hp_start_send_file(session, progress->name, progress->size, status->st_mode & 0777, &message);
  if (result == 0) {
    result = send_contents(session, fd, progress, bar, &message);
  }
  if (result == 0) {
    result = tavren_hp_end_send_file(session, &message);
  }
  if (bar) {
    putchar('\n');
  }
  if (message != NULL) {
    report(progress->name, message);
  }
  if (result == 0 && !bar) {
    printf("%s: %lu bytes sent\n", progress->name, (unsigned long)progress->size);
  }
  return result;
}

/* Opens path if it is a file that can be sent. Returns its descriptor, or -1 after a message. */
static int open_file(const char* path, struct stat* status) {
  const char* reason = NULL;
  const int fd = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (fd == -1 || fstat(fd, status) == -1) {
    reason = strerror(errno);
  } else if (!S_ISREG(status->st_mode)) {
    reason = "not a regular file";
  } else if (status->st_size > (off_t)UINT32_MAX) {
    reason = "too large: a transfer carries less than 4 GiB";
  }
  if (reason == NULL) {
    return fd;
  }
  fprintf(stderr, "tavren_send: %s: %s\n", path, reason);
  if (fd != -1) {
    close(fd);
  }
  return -1;
}

static tavren_hp_t* open_session(const tavren_settings_t* settings) {
  char* message = NULL;
  tavren_hp_t* session = tavren_hp_create(settings, &message);
  if (session == NULL) {
    report("login", message);
  }
  return session;
}

/* The library leaves the secure shell client running; this program has no further use for it. */
static void close_session(tavren_hp_t* session) {
  if (session != NULL) {
    tavren_hp_kill_ssh(session);
    tavren_hp_destroy(session);
  }
}

/* Sends all files and returns the program's exit status. A session whose transfer failed is replaced by a new one. */
static int send_files(const tavren_settings_t* settings, char** files) {
  int status = EXIT_ALL_SENT;
  tavren_hp_t* session = open_session(settings);
  if (session == NULL) {
    return EXIT_SOME_FAILED;
  }
  for (; *files != NULL; ++files) {
    struct stat file;
    const int fd = open_file(*files, &file);
    if (fd == -1) {
      status = EXIT_SOME_FAILED;
      continue;
    }
    struct progress progress = {base_name(*files), 0, (uint32_t)file.st_size, tavren_get_uptime_ms(), -1};
    if (session == NULL) {
      session = open_session(settings);
    }
    if (session == NULL || send_open_file(session, fd, &file, &progress) != 0) {
      status = EXIT_SOME_FAILED;
      close_session(session);
      session = NULL;
    }
    close(fd);
  }
  close_session(session);
  return status;
}

static bool parse_descriptor(const char* text, int* fd) { return tavren_cstring_to_int(text, fd) == 0 && *fd >= 0; }

/* Returns whether the command line makes sense. */
static bool parse_arguments(int argc, char** argv, struct request* request) {
  static const struct option options[] = {{"known-key", required_argument, NULL, 'k'},
                                          {"password-fd", required_argument, NULL, 'p'},
                                          {"help", no_argument, NULL, 'h'},
                                          {NULL, 0, NULL, 0}};
  int option;
  while ((option = getopt_long(argc, argv, "k:p:h", options, NULL)) != -1) {
    switch (option) {
      case 'k':
        request->known_key_file = optarg;
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
  if (argc - optind < 2) {
    return false;
  }
  request->target = argv[optind];
  request->files = argv + optind + 1;
  return true;
}

/* Fills key from the request. Returns false after a message. */
static bool choose_host_key(const struct request* request, char* key) {
  if (request->known_key_file == NULL) {
    fputs("tavren_send: warning: the archive host's key is accepted unchecked (see --known-key)\n", stderr);
    return true;
  }
  if (read_host_key(request->known_key_file, key)) {
    return true;
  }
  fprintf(stderr, "tavren_send: %s: cannot read a host key\n", request->known_key_file);
  return false;
}

int main(int argc, char** argv) {
  static char password[PASSWORD_SIZE];
  static char host_key[HOST_KEY_SIZE];
  static char no_fingerprint[] = "";
  char message[TAVREN_MESSAGE_SIZE];
  struct request request = {NULL, -1, NULL, NULL};
  tavren_settings_t settings = {.password = password, .host_key = host_key, .fingerprint = no_fingerprint};

  tavren_set_program_name(argv[0]);
  if (!parse_arguments(argc, argv, &request)) {
    fputs(usage, stderr);
    return EXIT_USAGE;
  }
  if (tavren_process_target(request.target, &settings.user, &settings.host, &settings.dir, message) != 0) {
    fprintf(stderr, "tavren_send: %s\n", message);
    return EXIT_USAGE;
  }
  if (!choose_host_key(&request, host_key)) {
    return EXIT_USAGE;
  }
  if (tavren_setup_tmp_dir("tavren_send", message) != 0) {
    fprintf(stderr, "tavren_send: %s\n", message);
    return EXIT_SOME_FAILED;
  }

  int status = EXIT_SOME_FAILED;
  const bool have_password =
      request.password_fd == -1 ? ask_for_password(password) : read_password_from(request.password_fd, password);
  if (have_password) {
    status = send_files(&settings, request.files);
  } else {
    fputs("tavren_send: cannot read the password\n", stderr);
  }
  explicit_bzero(password, sizeof password);
  tavren_cleanup_tmp_dir();
  return status;
}
