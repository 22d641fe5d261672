/*
 * tavren_ctl: asks the archiving daemon on this machine, and tells it what to do.
 */
#include <locale.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <tavren.h>

#include "set_up.h"

static const char usage[] =
    "Usage: tavren_ctl COMMAND [ARGUMENT...]\n"
    "  setup TARGET                 have the daemon archive there, step by step\n"
    "  state                        whether archiving is switched on\n"
    "  enable, disable              switch it on, off\n"
    "  config                       the configuration, without the password\n"
    "  status                       the connection and the compartments\n"
    "  errors                       the stored errors\n"
    "  clear                        clear the stored data\n"
    "  run TASK                     run a task\n"
    "  audit                        archive the audit file\n"
    "  archived FILE                what became of an audit file\n"
    "  host, directory              where logs are archived\n"
    "  sleeping                     whether the daemon sleeps\n"
    "  tunables                     the table of tunables\n"
    "  set-tunable NAME VALUE       set a tunable\n"
    "  commands                     the table of remote commands\n"
    "  set-command NAME TEXT        set a remote command\n"
    "  intervals                    the table of intervals\n"
    "  set-interval NAME VALUE      set an interval\n";

/* Ends a command whose call returned result and which printed what there was to print. */
static int report(const tavren_api_handle_t* daemon, int result) {
  char message[TAVREN_API_TEXT_SIZE];
  if (result == 0) {
    return EXIT_DONE;
  }
  fprintf(stderr, "tavren_ctl: %s\n", tavren_api_errmsg(daemon, message));
  return EXIT_NO_DAEMON_OR_USAGE;
}

/* Ends a request that the daemon may have refused with a message, which is freed. */
static int report_request(const tavren_api_handle_t* daemon, int result, char* refusal) {
  if (result != 0 || refusal == NULL) {
    return report(daemon, result);
  }
  fprintf(stderr, "tavren_ctl: %s\n", refusal);
  free(refusal);
  return EXIT_REFUSED;
}

/* Prints a text of the daemon's, which is freed, and ends the command. */
static int report_text(const tavren_api_handle_t* daemon, int result, char* text, const char* if_none) {
  if (result == 0) {
    fputs(text != NULL ? text : if_none, stdout);
    free(text);
  }
  return report(daemon, result);
}

static int show_state(tavren_api_handle_t* daemon, char** arguments) {
  (void)arguments;
  tavren_state_t state;
  const int result = tavren_api_get_state(daemon, &state);
  if (result == 0) {
    puts(tavren_state_to_string(state));
  }
  return report(daemon, result);
}

static int enable(tavren_api_handle_t* daemon, char** arguments) {
  (void)arguments;
  return report(daemon, tavren_api_set_state(daemon, TAVREN_STATE_ENABLED));
}

static int disable(tavren_api_handle_t* daemon, char** arguments) {
  (void)arguments;
  return report(daemon, tavren_api_set_state(daemon, TAVREN_STATE_DISABLED));
}

static int show_config(tavren_api_handle_t* daemon, char** arguments) {
  (void)arguments;
  tavren_config_t config;
  char limit[TAVREN_FORMAT_SIZE];
  const int result = tavren_api_get_config(daemon, &config);
  if (result != 0) {
    return report(daemon, result);
  }
  const tavren_settings_t* settings = &config.settings;
  printf("Target:       %s@%s:%s\n", settings->user, settings->host, settings->dir);
  printf("Password:     %s\n", settings->password[0] != '\0' ? "set" : "not set");
  printf("Host key:     %s\n", settings->host_key[0] != '\0' ? settings->fingerprint : "none: any is accepted");
  for (int i = 0; i < TAVREN_COMPARTMENTS; ++i) {
    tavren_format_space_limit(config.space_limit[i], limit);
    printf("Space limit %d: %s\n", i, limit);
  }
  tavren_config_free_contents(&config);
  return EXIT_DONE;
}

static int show_status(tavren_api_handle_t* daemon, char** arguments) {
  (void)arguments;
  tavren_status_t status;
  char when[TAVREN_FORMAT_SIZE];
  const int result = tavren_api_get_status(daemon, &status);
  if (result != 0) {
    return report(daemon, result);
  }
  tavren_format_time(status.connection_time, when);
  printf("Connection:    %s\n", tavren_connection_status_to_string(status.connection_status));
  printf("Since:         %s\n", when);
  for (int i = 0; i < TAVREN_COMPARTMENTS; ++i) {
    const tavren_compartment_status_t* compartment = &status.compartment_status[i];
    printf("Compartment %d: %ld %ld %ld\n", i, (long)compartment->word1, (long)compartment->word2,
           (long)compartment->word3);
  }
  return EXIT_DONE;
}

static int show_errors(tavren_api_handle_t* daemon, char** arguments) {
  (void)arguments;
  char* errors = NULL;
  const int result = tavren_api_get_errors(daemon, &errors);
  return report_text(daemon, result, errors, "No errors\n");
}

static int clear(tavren_api_handle_t* daemon, char** arguments) {
  (void)arguments;
  char* refusal = NULL;
  const int result = tavren_api_clear_stored_data(daemon, &refusal);
  return report_request(daemon, result, refusal);
}

static int run(tavren_api_handle_t* daemon, char** arguments) {
  return report(daemon, tavren_api_run_task(daemon, arguments[0]));
}

static int archive_audit_file(tavren_api_handle_t* daemon, char** arguments) {
  (void)arguments;
  return report(daemon, tavren_api_request_to_archive_audit_file(daemon));
}

static int show_archived(tavren_api_handle_t* daemon, char** arguments) {
  const int answer = tavren_api_audit_file_was_archived(daemon, arguments[0]);
  if (answer >= 0) {
    printf("%d\n", answer);
    return EXIT_DONE;
  }
  report(daemon, answer);
  return answer == TAVREN_API_E_RPC || answer == TAVREN_API_E_CONNECT ? EXIT_NO_DAEMON_OR_USAGE : EXIT_REFUSED;
}

static int show_host(tavren_api_handle_t* daemon, char** arguments) {
  (void)arguments;
  char host[TAVREN_API_TEXT_SIZE];
  const int result = tavren_api_get_archive_host(daemon, host);
  if (result == 0) {
    puts(host);
  }
  return report(daemon, result);
}

static int show_directory(tavren_api_handle_t* daemon, char** arguments) {
  (void)arguments;
  char directory[TAVREN_API_TEXT_SIZE];
  const int result = tavren_api_get_archive_directory(daemon, directory);
  if (result == 0) {
    puts(directory);
  }
  return report(daemon, result);
}

static int show_sleeping(tavren_api_handle_t* daemon, char** arguments) {
  (void)arguments;
  int sleeping;
  const int result = tavren_api_is_tavrend_sleeping(daemon, &sleeping);
  if (result == 0) {
    puts(sleeping != 0 ? "Sleeping" : "Awake");
  }
  return report(daemon, result);
}

static int show_tunables(tavren_api_handle_t* daemon, char** arguments) {
  (void)arguments;
  char* table = NULL;
  const int result = tavren_api_get_tunable_table(daemon, &table);
  return report_text(daemon, result, table, "");
}

static int set_tunable(tavren_api_handle_t* daemon, char** arguments) {
  char* refusal = NULL;
  const int result = tavren_api_set_tunable(daemon, arguments[0], arguments[1], &refusal);
  return report_request(daemon, result, refusal);
}

static int show_commands(tavren_api_handle_t* daemon, char** arguments) {
  (void)arguments;
  char* table = NULL;
  const int result = tavren_api_get_remote_command_table(daemon, &table);
  return report_text(daemon, result, table, "");
}

static int set_command(tavren_api_handle_t* daemon, char** arguments) {
  char* refusal = NULL;
  const int result = tavren_api_set_remote_command(daemon, arguments[0], arguments[1], &refusal);
  return report_request(daemon, result, refusal);
}

static int show_intervals(tavren_api_handle_t* daemon, char** arguments) {
  (void)arguments;
  char* table = NULL;
  const int result = tavren_api_get_interval_table(daemon, &table);
  return report_text(daemon, result, table, "");
}

static int set_interval(tavren_api_handle_t* daemon, char** arguments) {
  char* refusal = NULL;
  const int result = tavren_api_set_interval(daemon, arguments[0], arguments[1], &refusal);
  return report_request(daemon, result, refusal);
}

static const struct command {
  const char* name;
  int argument_count; /* -1: any */
  int (*run)(tavren_api_handle_t* daemon, char** arguments);
} commands[] = {{"setup", -1, set_up},
                {"state", 0, show_state},
                {"enable", 0, enable},
                {"disable", 0, disable},
                {"config", 0, show_config},
                {"status", 0, show_status},
                {"errors", 0, show_errors},
                {"clear", 0, clear},
                {"run", 1, run},
                {"audit", 0, archive_audit_file},
                {"archived", 1, show_archived},
                {"host", 0, show_host},
                {"directory", 0, show_directory},
                {"sleeping", 0, show_sleeping},
                {"tunables", 0, show_tunables},
                {"set-tunable", 2, set_tunable},
                {"commands", 0, show_commands},
                {"set-command", 2, set_command},
                {"intervals", 0, show_intervals},
                {"set-interval", 2, set_interval}};

static const struct command* find_command(const char* name, int argument_count) {
  for (size_t i = 0; i < sizeof commands / sizeof commands[0]; ++i) {
    if (strcmp(commands[i].name, name) == 0 &&
        (commands[i].argument_count == argument_count || commands[i].argument_count == -1)) {
      return &commands[i];
    }
  }
  return NULL;
}

/* Returns the exit status, which is status unless the output was lost. */
static int end(int status) {
  if (fflush(stdout) == 0 && ferror(stdout) == 0) {
    return status;
  }
  fputs("tavren_ctl: cannot write the output\n", stderr);
  return EXIT_NO_DAEMON_OR_USAGE;
}

int main(int argc, char** argv) {
  tavren_api_handle_t daemon;
  setlocale(LC_ALL, ""); /* the library speaks the language that its program has chosen */
  if (argc == 2 && strcmp(argv[1], "--help") == 0) {
    fputs(usage, stdout);
    return end(EXIT_DONE);
  }
  const struct command* command = argc >= 2 ? find_command(argv[1], argc - 2) : NULL;
  if (command == NULL) {
    fputs(usage, stderr);
    return EXIT_NO_DAEMON_OR_USAGE;
  }
  tavren_set_program_name(argv[0]);
  if (tavren_api_open(&daemon) != 0) {
    return report(&daemon, daemon.error);
  }
  const int status = command->run(&daemon, argv + 2);
  tavren_api_close(&daemon);
  return end(status);
}
