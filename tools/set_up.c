#include "set_up.h"

#include <getopt.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "ask.h"
#include "compartments.h"
#include "outcome.h"
#include "text.h"

const char set_up_usage[] =
    "Usage: tavren_ctl setup [options] user@host:directory\n"
    "Has the daemon archive in the directory on the archive host.\n"
    "\n"
    "  -l, --limit NAME=MB     space for the compartment audit or logs, in MB, or\n"
    "                          unlimited; without it as configured, or unlimited\n"
    "  -k, --host-key FILE     accept only the host key in FILE (as in a .pub file);\n"
    "                          without it the key is fetched, shown and asked about\n"
    "  -y, --yes               confirm the fetched key without being asked\n"
    "  -p, --password-fd N     read the password from descriptor N instead of asking\n";

/* What the user asked for. The pointers lead into the arguments. */
struct request {
  char* target;
  const char* host_key_file; /* NULL: fetch the key */
  bool confirm_key;
  int password_fd; /* -1: ask */
  bool limit_given[TAVREN_COMPARTMENTS];
  int32_t limit[TAVREN_COMPARTMENTS];
};

/* Takes "audit=1000" apart. Returns false after a message. */
static bool parse_limit(const char* text, struct request* request) {
  for (int i = 0; i < TAVREN_COMPARTMENTS; ++i) {
    const size_t length = strlen(compartment_names[i]);
    int megabytes;
    if (strncmp(text, compartment_names[i], length) == 0 && text[length] == '=' &&
        tavren_parse_space_limit(text + length + 1, &megabytes) == 0 && megabytes >= TAVREN_SPACE_UNLIMITED) {
      request->limit_given[i] = true;
      request->limit[i] = megabytes;
      return true;
    }
  }
  fprintf(stderr, translate("tavren_ctl: not a limit: %s (audit or logs, =, and MB or unlimited)\n"), text);
  return false;
}

static bool parse_option(int option, struct request* request) {
  switch (option) {
    case 'l':
      return parse_limit(optarg, request);
    case 'k':
      request->host_key_file = optarg;
      return true;
    case 'y':
      request->confirm_key = true;
      return true;
    case 'p':
      return parse_descriptor(optarg, &request->password_fd);
    default:
      return false;
  }
}

/* Returns whether the command line makes sense. */
static bool parse_arguments(char** arguments, struct request* request) {
  static const struct option options[] = {{"limit", required_argument, NULL, 'l'},
                                          {"host-key", required_argument, NULL, 'k'},
                                          {"yes", no_argument, NULL, 'y'},
                                          {"password-fd", required_argument, NULL, 'p'},
                                          {NULL, 0, NULL, 0}};
  char** const argv = arguments - 1;
  int argc = 1;
  while (argv[argc] != NULL) {
    ++argc;
  }
  int option;
  while ((option = getopt_long(argc, argv, "l:k:yp:", options, NULL)) != -1) {
    if (!parse_option(option, request)) {
      return false;
    }
  }
  if (argc - optind != 1) {
    return false;
  }
  request->target = argv[optind];
  return true;
}

/* Says why the daemon did not do what it was asked for. */
static int daemon_failed(const tavren_api_handle_t* daemon) {
  char message[TAVREN_API_TEXT_SIZE];
  fprintf(stderr, "tavren_ctl: %s\n", tavren_api_errmsg(daemon, message));
  fputs(geteuid() != 0 ? translate("Only root can set the daemon up.\n")
                       : translate("Why it has refused stands in the system log.\n"),
        stderr);
  return EXIT_NO_DAEMON_OR_USAGE;
}

/* Prints a line for each log type of the daemon's table of intervals. */
static void show_log_types(tavren_api_handle_t* daemon, const tavren_settings_t* settings) {
  char* table = NULL;
  char* rest = NULL;
  if (tavren_api_get_interval_table(daemon, &table) != 0 || table == NULL) {
    return;
  }
  for (char* row = strtok_r(table, "\n", &rest); row != NULL; row = strtok_r(NULL, "\n", &rest)) {
    char name[TAVREN_API_TEXT_SIZE];
    int seconds;
    if (sscanf(row, "LogTypeTask.%255s %d", name, &seconds) == 2) {
      printf(translate("%s goes to %s:%s/%s every %d s\n"), name, settings->host, settings->dir, name, seconds);
    }
  }
  free(table);
}

/* Fills the settings' key, fingerprint and password, and has them tried. Returns false after a message. */
static bool get_trusted(const struct request* request, const tavren_config_t* present, tavren_settings_t* settings) {
  const bool same_host = strcmp(present->settings.host, settings->host) == 0;
  if (request->host_key_file == NULL) {
    printf(translate("Fetching the key of %s\n"), settings->host);
  }
  if (!choose_host_key(request->host_key_file, request->confirm_key, settings->host,
                       same_host ? present->settings.host_key : "", settings->host_key, settings->fingerprint) ||
      !get_password(request->password_fd, settings->password)) {
    return false;
  }
  printf(translate("Logging in as %s, testing the host, claiming %s for this chassis\n"), settings->user,
         settings->dir);
  return test_host(settings);
}

/* Sends the configuration, with the limits of the present one where none were given. */
static int configure(tavren_api_handle_t* daemon, const struct request* request, const tavren_config_t* present,
                     const tavren_settings_t* settings) {
  tavren_config_t config = {.settings = *settings};
  for (int i = 0; i < TAVREN_COMPARTMENTS; ++i) {
    config.space_limit[i] = request->limit_given[i] ? request->limit[i] : present->space_limit[i];
  }
  puts(translate("Sending the configuration to the daemon"));
  if (tavren_api_set_config(daemon, &config, 1) != 0) {
    return daemon_failed(daemon);
  }
  puts(translate("Archiving is configured and switched on"));
  show_log_types(daemon, settings);
  return EXIT_DONE;
}

int set_up(tavren_api_handle_t* daemon, char** arguments) {
  static char password[PASSWORD_SIZE];
  static char host_key[KNOWN_KEY_SIZE];
  static char fingerprint[TAVREN_FINGERPRINT_SIZE];
  char message[TAVREN_MESSAGE_SIZE];
  struct request request = {.password_fd = -1};
  tavren_settings_t settings = {.password = password, .host_key = host_key, .fingerprint = fingerprint};
  tavren_config_t present;

  setvbuf(stdout, NULL, _IOLBF, 0); /* so that what is shown and what is complained of come in order */
  if (!parse_arguments(arguments, &request)) {
    fputs(set_up_usage, stderr);
    return EXIT_NO_DAEMON_OR_USAGE;
  }
  if (tavren_process_target(request.target, &settings.user, &settings.host, &settings.dir, message) != 0) {
    fprintf(stderr, "tavren_ctl: %s\n", message);
    return EXIT_NO_DAEMON_OR_USAGE;
  }
  /* First of all, so that nobody is asked anything in vain. */
  if (tavren_api_get_config(daemon, &present) != 0) {
    return daemon_failed(daemon);
  }
  int status = EXIT_REFUSED;
  if (tavren_setup_tmp_dir("tavren_ctl", message) != 0) {
    fprintf(stderr, "tavren_ctl: %s\n", message);
  } else {
    if (get_trusted(&request, &present, &settings)) {
      status = configure(daemon, &request, &present, &settings);
    }
    tavren_cleanup_tmp_dir();
  }
  explicit_bzero(password, sizeof password);
  tavren_config_free_contents(&present);
  return status;
}
