/*
 * tavren_ctl: asks the archiving daemon on this machine, and tells it what to do.
 */
#include <locale.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <tavren.h>

#include "config.h"
#include "errors.h"
#include "outcome.h"
#include "set_up.h"
#include "status.h"
#include "tasks.h"
#include "text.h"
#include "watch.h"

static const char usage[] =
    "Usage: tavren_ctl COMMAND [ARGUMENT...]\n"
    "  setup TARGET                 have the daemon archive there, step by step\n"
    "  state                        whether archiving is switched on\n"
    "  enable, disable              switch it on, off\n"
    "  config                       the configuration, without the password\n"
    "  status                       state, target, connection and compartments\n"
    "  watch                        the status each second, until q or Ctrl-C\n"
    "  errors                       the stored errors\n"
    "  clear                        forget the stored errors\n"
    "  run TASK                     run a task: a log type, or space\n"
    "  audit                        archive the audit file\n"
    "  archived FILE                what became of an audit file\n"
    "  host, directory              where logs are archived\n"
    "  sleeping                     whether the daemon sleeps\n"
    "  tunables                     the table of tunables\n"
    "  set-tunable NAME VALUE       set a tunable\n"
    "  commands                     the table of remote commands\n"
    "  set-command NAME TEXT        set a remote command\n"
    "  intervals                    the table of intervals\n"
    "  set-interval TASK VALUE      set an interval: 90, 90s, 30min, 1h, 1d, default\n"
    "config, status and errors write JSON with --json behind them. setup --help tells its\n"
    "options.\n";

static const char version[] = "tavren_ctl " TAVREN_VERSION_TEXT "\n";

static int show_state(tavren_api_handle_t* daemon, char** arguments) {
  (void)arguments;
  tavren_state_t state;
  const int result = tavren_api_get_state(daemon, &state);
  if (result == 0) {
    puts(tavren_state_to_string(state));
  }
  return end_call(daemon, result);
}

static int enable(tavren_api_handle_t* daemon, char** arguments) {
  (void)arguments;
  return end_call(daemon, tavren_api_set_state(daemon, TAVREN_STATE_ENABLED));
}

static int disable(tavren_api_handle_t* daemon, char** arguments) {
  (void)arguments;
  return end_call(daemon, tavren_api_set_state(daemon, TAVREN_STATE_DISABLED));
}

static int clear(tavren_api_handle_t* daemon, char** arguments) {
  (void)arguments;
  char* refusal = NULL;
  const int result = tavren_api_clear_stored_data(daemon, &refusal);
  return end_request(daemon, result, refusal);
}

/* The request itself cannot be refused, so the task is looked for first: each has an interval. */
static int run(tavren_api_handle_t* daemon, char** arguments) {
  char* table = NULL;
  char* task = task_name(arguments[0]);
  if (task == NULL) {
    return end_without_memory();
  }
  int status = end_call(daemon, tavren_api_get_interval_table(daemon, &table));
  if (status == EXIT_DONE && table != NULL && has_task(table, task)) {
    status = end_call(daemon, tavren_api_run_task(daemon, task));
  } else if (status == EXIT_DONE) {
    fprintf(stderr, translate("tavren_ctl: no such task: %s (tavren_ctl intervals shows all)\n"), arguments[0]);
    status = EXIT_REFUSED;
  }
  free(table);
  free(task);
  return status;
}

static int archive_audit_file(tavren_api_handle_t* daemon, char** arguments) {
  (void)arguments;
  return end_call(daemon, tavren_api_request_to_archive_audit_file(daemon));
}

/* What tavrend answers about it. */
enum { NO_AUDIT_FILE = -2 };

static int show_archived(tavren_api_handle_t* daemon, char** arguments) {
  const int answer = tavren_api_audit_file_was_archived(daemon, arguments[0]);
  if (answer >= 0) {
    printf("%d\n", answer);
    return EXIT_DONE;
  }
  if (answer == NO_AUDIT_FILE) {
    fprintf(stderr, translate("tavren_ctl: no file of the log type audit: %s\n"), arguments[0]);
    return EXIT_REFUSED;
  }
  end_call(daemon, answer);
  return answer == TAVREN_API_E_RPC || answer == TAVREN_API_E_CONNECT ? EXIT_NO_DAEMON_OR_USAGE : EXIT_REFUSED;
}

static int show_host(tavren_api_handle_t* daemon, char** arguments) {
  (void)arguments;
  char host[TAVREN_API_TEXT_SIZE];
  const int result = tavren_api_get_archive_host(daemon, host);
  if (result == 0) {
    puts(host);
  }
  return end_call(daemon, result);
}

static int show_directory(tavren_api_handle_t* daemon, char** arguments) {
  (void)arguments;
  char directory[TAVREN_API_TEXT_SIZE];
  const int result = tavren_api_get_archive_directory(daemon, directory);
  if (result == 0) {
    puts(directory);
  }
  return end_call(daemon, result);
}

static int show_sleeping(tavren_api_handle_t* daemon, char** arguments) {
  (void)arguments;
  int sleeping;
  const int result = tavren_api_is_tavrend_sleeping(daemon, &sleeping);
  if (result == 0) {
    puts(sleeping != 0 ? translate("Sleeping") : translate("Awake"));
  }
  return end_call(daemon, result);
}

static int show_table(tavren_api_handle_t* daemon, int (*get)(tavren_api_handle_t*, char**)) {
  char* table = NULL;
  const int result = get(daemon, &table);
  return end_text(daemon, result, table, "");
}

static int show_tunables(tavren_api_handle_t* daemon, char** arguments) {
  (void)arguments;
  return show_table(daemon, tavren_api_get_tunable_table);
}

static int set_tunable(tavren_api_handle_t* daemon, char** arguments) {
  char* refusal = NULL;
  const int result = tavren_api_set_tunable(daemon, arguments[0], arguments[1], &refusal);
  return end_request(daemon, result, refusal);
}

static int show_commands(tavren_api_handle_t* daemon, char** arguments) {
  (void)arguments;
  return show_table(daemon, tavren_api_get_remote_command_table);
}

static int set_command(tavren_api_handle_t* daemon, char** arguments) {
  char* refusal = NULL;
  const int result = tavren_api_set_remote_command(daemon, arguments[0], arguments[1], &refusal);
  return end_request(daemon, result, refusal);
}

static int show_intervals(tavren_api_handle_t* daemon, char** arguments) {
  (void)arguments;
  return show_table(daemon, tavren_api_get_interval_table);
}

static int set_interval(tavren_api_handle_t* daemon, char** arguments) {
  char* value = interval_value(arguments[1]);
  if (value == NULL) {
    return EXIT_NO_DAEMON_OR_USAGE;
  }
  int status;
  char* refusal = NULL;
  char* task = task_name(arguments[0]);
  if (task == NULL) {
    status = end_without_memory();
  } else {
    const int result = tavren_api_set_interval(daemon, task, value, &refusal);
    status = end_request(daemon, result, refusal);
  }
  free(task);
  free(value);
  return status;
}

/* Carries out a command with the words behind it, which NULL ends. Returns the exit status. */
typedef int (*action)(tavren_api_handle_t* daemon, char** arguments);

static const struct command {
  const char* name;
  int argument_count; /* -1: any */
  action run;
  action run_as_json; /* NULL: it has no JSON */
} commands[] = {{"setup", -1, set_up, NULL},
                {"state", 0, show_state, NULL},
                {"enable", 0, enable, NULL},
                {"disable", 0, disable, NULL},
                {"config", 0, show_config, show_config_as_json},
                {"status", 0, show_status, show_status_as_json},
                {"watch", 0, watch, NULL},
                {"errors", 0, show_errors, show_errors_as_json},
                {"clear", 0, clear, NULL},
                {"run", 1, run, NULL},
                {"audit", 0, archive_audit_file, NULL},
                {"archived", 1, show_archived, NULL},
                {"host", 0, show_host, NULL},
                {"directory", 0, show_directory, NULL},
                {"sleeping", 0, show_sleeping, NULL},
                {"tunables", 0, show_tunables, NULL},
                {"set-tunable", 2, set_tunable, NULL},
                {"commands", 0, show_commands, NULL},
                {"set-command", 2, set_command, NULL},
                {"intervals", 0, show_intervals, NULL},
                {"set-interval", 2, set_interval, NULL}};

static const struct command* find_command(const char* name) {
  for (size_t i = 0; i < sizeof commands / sizeof commands[0]; ++i) {
    if (strcmp(commands[i].name, name) == 0) {
      return &commands[i];
    }
  }
  return NULL;
}

/* Returns what the arguments, which NULL ends, ask for; NULL after a message when they make no sense. */
static action find_action(int argument_count, char** arguments) {
  if (argument_count == 0) {
    fputs(usage, stderr);
    return NULL;
  }
  const struct command* command = find_command(arguments[0]);
  if (command == NULL) {
    fprintf(stderr, translate("tavren_ctl: unknown command: %s (tavren_ctl --help shows all)\n"), arguments[0]);
    return NULL;
  }
  if (command->argument_count == argument_count - 1 || command->argument_count == -1) {
    return command->run;
  }
  if (command->run_as_json != NULL && argument_count == 2 && strcmp(arguments[1], "--json") == 0) {
    return command->run_as_json;
  }
  fprintf(stderr, translate("tavren_ctl: %s: wrong number of arguments (tavren_ctl --help shows them)\n"),
          command->name);
  return NULL;
}

/* Returns what the arguments have it say about itself, NULL when they do not. */
static const char* find_help(int argc, char** argv) {
  if (argc == 3 && strcmp(argv[2], "--help") == 0) {
    return strcmp(argv[1], "setup") == 0 ? set_up_usage : usage;
  }
  if (argc != 2) {
    return NULL;
  }
  return strcmp(argv[1], "--help") == 0 ? usage : strcmp(argv[1], "--version") == 0 ? version : NULL;
}

/* Returns the exit status, which is status unless the output was lost. */
static int end(int status) {
  if (fflush(stdout) == 0 && ferror(stdout) == 0) {
    return status;
  }
  fprintf(stderr, "tavren_ctl: %s\n", translate("cannot write the output"));
  return EXIT_NO_DAEMON_OR_USAGE;
}

int main(int argc, char** argv) {
  tavren_api_handle_t daemon;
  setlocale(LC_ALL, ""); /* the library speaks the language that its program has chosen */
  const char* help = find_help(argc, argv);
  if (help != NULL) {
    fputs(help, stdout);
    return end(EXIT_DONE);
  }
  const action run_it = find_action(argc - 1, argv + 1);
  if (run_it == NULL) {
    return EXIT_NO_DAEMON_OR_USAGE;
  }
  tavren_set_program_name(argv[0]);
  if (tavren_api_open(&daemon) != 0) {
    const int status = end_call(&daemon, daemon.error);
    fputs(translate("Check that the daemon tavrend and rpcbind are running: systemctl status tavrend rpcbind\n"),
          stderr);
    return status;
  }
  const int status = run_it(&daemon, argv + 2);
  tavren_api_close(&daemon);
  return end(status);
}
