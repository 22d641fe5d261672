/*
 * A daemon for the tests, as another author would write one: from the protocol's description, with the RPC library's
 * server side. Its answers lie in files.
 *
 *   server DIRECTORY PROGRAM VERSION [quiet]
 *
 * Each request is noted in the file "log": the procedure's name, and each argument on a line of its own. The file named
 * like a procedure holds the answer: a text, or numbers and texts one to a line. A file PROCEDURE.do holds what happens
 * first: "die", "silence" (no answer to this request) or "sleep SECONDS". When the program is registered, the file
 * "ready" appears. A quiet server looks at no file: it notes nothing, and its state is enabled.
 */
#include <fcntl.h>
#include <netinet/in.h>
#include <rpc/pmap_clnt.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tavrend.h"

/* What the generator made of the description, beside the numbers as everybody else knows them. */
_Static_assert(TAVREND == 100171 && TAVREND_1 == 1, "program and version");
_Static_assert(TAVREN_STATE_DISABLED == 0 && TAVREN_STATE_ENABLED == 1, "states");
_Static_assert(TAVREN_CONNECTION_NONE == 0 && TAVREN_CONNECTION_OK == 1 && TAVREN_CONNECTION_FAILED == 2, "connection");
_Static_assert(TAVREN_COMPARTMENT_0 == 0 && TAVREN_COMPARTMENT_1 == 1, "compartments");
_Static_assert(TAVREN_RPC_NULL == 0 && TAVREN_RPC_GET_STATE == 1 && TAVREN_RPC_SET_STATE == 2 &&
                   TAVREN_RPC_GET_CONFIG == 3 && TAVREN_RPC_SET_CONFIG == 4 && TAVREN_RPC_GET_STATUS == 5 &&
                   TAVREN_RPC_GET_ERRORS == 6 && TAVREN_RPC_GET_TUNABLES == 7 && TAVREN_RPC_GET_REMOTE_COMMANDS == 8,
               "first group of procedures");
_Static_assert(TAVREN_RPC_GET_ARCHIVE_HOST == 21 && TAVREN_RPC_GET_ARCHIVE_DIRECTORY == 22 &&
                   TAVREN_RPC_RUN_TASK == 23 && TAVREN_RPC_AUDIT_FILE_WAS_ARCHIVED == 24,
               "second group of procedures");
_Static_assert(TAVREN_RPC_CLEAR_STORED_DATA == 41 && TAVREN_RPC_SET_TUNABLE == 42 &&
                   TAVREN_RPC_GET_TUNABLE_TABLE == 43 && TAVREN_RPC_SET_REMOTE_COMMAND == 44 &&
                   TAVREN_RPC_GET_REMOTE_COMMAND_TABLE == 45 && TAVREN_RPC_SET_INTERVAL == 46 &&
                   TAVREN_RPC_GET_INTERVAL_TABLE == 47 && TAVREN_RPC_IS_TAVREND_SLEEPING == 48,
               "third group of procedures");

void tavrend_1(struct svc_req* request, SVCXPRT* transport);
bool_t xdr_whole_string(XDR* xdrs, char** string);

/* What the generated code calls in the place of xdr_wrapstring. */
bool_t xdr_whole_string(XDR* xdrs, char** string) { return xdr_string(xdrs, string, 0xFFFFFFFF); }

static bool_t quiet = FALSE;

static void fail(const char* what) {
  perror(what);
  exit(1);
}

/* Returns the content of a file and its length, or an empty text; the caller frees it. */
static char* read_file(const char* name, size_t* length) {
  struct stat status;
  const int fd = open(name, O_RDONLY);
  *length = 0;
  if (fd == -1) {
    return calloc(1, 1);
  }
  if (fstat(fd, &status) == -1) {
    fail(name);
  }
  char* content = calloc(1, (size_t)status.st_size + 1);
  if (content == NULL || read(fd, content, (size_t)status.st_size) != status.st_size) {
    fail(name);
  }
  close(fd);
  *length = (size_t)status.st_size;
  return content;
}

static void note(const char* line) {
  FILE* file = fopen("log", "a");
  if (file == NULL || fprintf(file, "%s\n", line) < 0 || fclose(file) != 0) {
    fail("log");
  }
}

static void note_number(int number) {
  char line[16];
  snprintf(line, sizeof line, "%d", number);
  note(line);
}

/* Notes a request and does what is to happen first. Returns whether it is answered. */
static bool_t begin(const char* procedure) {
  char name[64];
  size_t length;
  if (quiet) {
    return TRUE;
  }
  note(procedure);
  snprintf(name, sizeof name, "%s.do", procedure);
  char* action = read_file(name, &length);
  if (strncmp(action, "die", 3) == 0) {
    _exit(0);
  }
  if (strncmp(action, "sleep ", 6) == 0) {
    sleep((unsigned)atoi(action + 6));
  }
  const bool_t answered = strncmp(action, "silence", 7) != 0;
  free(action);
  return answered;
}

static bool_t answer_text(const char* procedure, char** result) {
  size_t length;
  *result = read_file(procedure, &length);
  return TRUE;
}

/* Takes the next line of *text. */
static char* next_line(char** text) {
  char* line = strsep(text, "\n");
  return strdup(line != NULL ? line : "");
}

static int next_number(char** text) {
  char* line = strsep(text, "\n");
  return line != NULL ? atoi(line) : 0;
}

static int number_of(const char* procedure) {
  size_t length;
  char* content = read_file(procedure, &length);
  const int number = atoi(content);
  free(content);
  return number;
}

bool_t tavren_rpc_null_1_svc(void* result, struct svc_req* request) { return begin("null"); }

bool_t tavren_rpc_get_state_1_svc(tavren_state_t* result, struct svc_req* request) {
  const bool_t answered = begin("get_state");
  *result = quiet ? TAVREN_STATE_ENABLED : (tavren_state_t)number_of("get_state");
  return answered;
}

bool_t tavren_rpc_set_state_1_svc(tavren_state_t state, void* result, struct svc_req* request) {
  const bool_t answered = begin("set_state");
  note_number((int)state);
  return answered;
}

bool_t tavren_rpc_get_config_1_svc(tavren_config_t* result, struct svc_req* request) {
  size_t length;
  const bool_t answered = begin("get_config");
  char* content = read_file("get_config", &length);
  char* text = content;
  result->settings.host = next_line(&text);
  result->settings.dir = next_line(&text);
  result->settings.user = next_line(&text);
  result->settings.password = next_line(&text);
  result->settings.host_key = next_line(&text);
  result->settings.fingerprint = next_line(&text);
  result->space_limit[0] = next_number(&text);
  result->space_limit[1] = next_number(&text);
  free(content);
  return answered;
}

bool_t tavren_rpc_set_config_1_svc(tavren_config_ptr config, bool_t flag, void* result, struct svc_req* request) {
  const bool_t answered = begin("set_config");
  if (config == NULL) {
    note("no config");
  } else {
    note(config->settings.host);
    note(config->settings.dir);
    note(config->settings.user);
    note(config->settings.password);
    note(config->settings.host_key);
    note(config->settings.fingerprint);
    note_number(config->space_limit[0]);
    note_number(config->space_limit[1]);
  }
  note_number(flag);
  return answered;
}

bool_t tavren_rpc_get_status_1_svc(tavren_status_t* result, struct svc_req* request) {
  size_t length;
  const bool_t answered = begin("get_status");
  char* content = read_file("get_status", &length);
  char* text = content;
  result->connection_time = next_number(&text);
  result->connection_status = (tavren_connection_status_t)next_number(&text);
  for (int i = 0; i < 2; ++i) {
    result->compartment_status[i].word1 = next_number(&text);
    result->compartment_status[i].word2 = next_number(&text);
    result->compartment_status[i].word3 = next_number(&text);
  }
  free(content);
  return answered;
}

bool_t tavren_rpc_get_errors_1_svc(tavren_bytes_t* result, struct svc_req* request) {
  size_t length;
  const bool_t answered = begin("get_errors");
  result->code = 7; /* which nobody reads */
  result->data.data_val = read_file("get_errors", &length);
  result->data.data_len = (u_int)length;
  return answered;
}

bool_t tavren_rpc_run_task_1_svc(char* task, void* result, struct svc_req* request) {
  const bool_t answered = begin("run_task");
  note(task);
  return answered;
}

bool_t tavren_rpc_audit_file_was_archived_1_svc(char* file_name, int* result, struct svc_req* request) {
  const bool_t answered = begin("audit_file_was_archived");
  note(file_name);
  *result = number_of("audit_file_was_archived");
  return answered;
}

bool_t tavren_rpc_is_tavrend_sleeping_1_svc(int* result, struct svc_req* request) {
  const bool_t answered = begin("is_tavrend_sleeping");
  *result = number_of("is_tavrend_sleeping");
  return answered;
}

/* The procedures without arguments whose answer is a text. */
#define ANSWER_TEXT(procedure)                                                    \
  bool_t tavren_rpc_##procedure##_1_svc(char** result, struct svc_req* request) { \
    *result = NULL;                                                               \
    return begin(#procedure) && answer_text(#procedure, result);                  \
  }
ANSWER_TEXT(get_tunables)
ANSWER_TEXT(get_remote_commands)
ANSWER_TEXT(get_archive_host)
ANSWER_TEXT(get_archive_directory)
ANSWER_TEXT(clear_stored_data)
ANSWER_TEXT(get_tunable_table)
ANSWER_TEXT(get_remote_command_table)
ANSWER_TEXT(get_interval_table)

/* The procedures with a name and a value. */
#define ANSWER_SETTING(procedure)                                                                          \
  bool_t tavren_rpc_##procedure##_1_svc(char* name, char* value, char** result, struct svc_req* request) { \
    *result = NULL;                                                                                        \
    const bool_t answered = begin(#procedure);                                                             \
    note(name);                                                                                            \
    note(value);                                                                                           \
    return answered && answer_text(#procedure, result);                                                    \
  }
ANSWER_SETTING(set_tunable)
ANSWER_SETTING(set_remote_command)
ANSWER_SETTING(set_interval)

int tavrend_1_freeresult(SVCXPRT* transport, xdrproc_t filter, caddr_t result) {
  xdr_free(filter, result);
  return 1;
}

/* Returns a socket that listens on 127.0.0.1 alone: by itself the RPC library would listen on every address. */
static int listen_here(void) {
  const struct sockaddr_in address = {.sin_family = AF_INET, .sin_addr.s_addr = htonl(INADDR_LOOPBACK)};
  const int fd = socket(AF_INET, SOCK_STREAM, 0);
  if (fd == -1 || bind(fd, (const struct sockaddr*)&address, sizeof address) == -1 || listen(fd, SOMAXCONN) == -1) {
    fail("listen");
  }
  return fd;
}

int main(int argc, char** argv) {
  if (argc < 4 || chdir(argv[1]) == -1) {
    fail("server");
  }
  quiet = argc > 4;
  const rpcprog_t program = (rpcprog_t)strtoul(argv[2], NULL, 0);
  const rpcvers_t version = (rpcvers_t)strtoul(argv[3], NULL, 0);
  pmap_unset(program, version);
  SVCXPRT* transport = svctcp_create(listen_here(), 0, 0);
  if (transport == NULL || !svc_register(transport, program, version, tavrend_1, IPPROTO_TCP)) {
    fail("svc_register");
  }
  close(open("ready", O_WRONLY | O_CREAT, 0644));
  svc_run();
  return 1;
}
