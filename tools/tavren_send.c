/*
 * tavren_send: sends files to a directory on an archive host.
 *
 * It checks the target, has the host's key confirmed, asks for the password without showing it, tests the host if
 * wanted, logs in once, and sends each file through that one session.
 */
#include <getopt.h>
#include <locale.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <tavren.h>

#include "ask.h"
#include "send_files.h"

enum { EXIT_ALL_SENT = 0, EXIT_SOME_FAILED = 1, EXIT_USAGE = 2 };

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

int main(int argc, char** argv) {
  static char password[PASSWORD_SIZE];
  static char host_key[KNOWN_KEY_SIZE];
  static char fingerprint[TAVREN_FINGERPRINT_SIZE];
  char message[TAVREN_MESSAGE_SIZE];
  struct request request = {.password_fd = -1};
  tavren_settings_t settings = {.password = password, .host_key = host_key, .fingerprint = fingerprint};

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
  if (choose_host_key(request.known_key_file, request.confirm_key, settings.host, "", host_key, fingerprint) &&
      get_password(request.password_fd, password) && (!request.test || test_host(&settings))) {
    status = *request.files == NULL ? EXIT_ALL_SENT : send_files(&settings, request.files);
  }
  explicit_bzero(password, sizeof password);
  tavren_cleanup_tmp_dir();
  return status;
}
