/*
 * The daemon's protocol: numbers, records, XDR filters and client stubs, as docs/tavrend.x has them.
 *
 * For the daemon's author and for tests; programs use tavren_api.h. It needs the RPC library's headers (pkg-config
 * libtirpc), so tavren.h does not include it.
 *
 * A stub makes one call over client, which one thread at a time may use, and returns the call's status unchanged:
 * RPC_SUCCESS, or why there is no result; RPC_TIMEDOUT after 25 seconds in which nothing came. Pointers in *result must
 * be NULL before the call; what the reply allocates there, also when the call fails, is released with xdr_free and the
 * result's filter. result of a procedure that has none is not used. A NULL string cannot be sent (RPC_CANTENCODEARGS).
 * Nothing here throws. What tavren_api.h adds is not here: a stub whose daemon has died raises SIGPIPE, and a client
 * that ran out of time is out of step for good.
 */
#ifndef TAVREN_RPC_H
#define TAVREN_RPC_H

#include <rpc/rpc.h>

#include "tavren_api.h"
#include "tavren_constants.h"

TAVREN_BEGIN_C

/* The program number, unless the file "tavrend_rpc_num" in the temporary root names another, and the only version. */
#define TAVREN_RPC_PROG_DEFAULT 100171
#define TAVREN_RPC_VERS 1

/* The procedures' numbers. Those between the groups stay free. */
enum {
  TAVREN_RPC_NULL = 0,
  TAVREN_RPC_GET_STATE = 1,
  TAVREN_RPC_SET_STATE = 2,
  TAVREN_RPC_GET_CONFIG = 3,
  TAVREN_RPC_SET_CONFIG = 4,
  TAVREN_RPC_GET_STATUS = 5,
  TAVREN_RPC_GET_ERRORS = 6,
  TAVREN_RPC_GET_TUNABLES = 7,
  TAVREN_RPC_GET_REMOTE_COMMANDS = 8,
  TAVREN_RPC_GET_ARCHIVE_HOST = 21,
  TAVREN_RPC_GET_ARCHIVE_DIRECTORY = 22,
  TAVREN_RPC_RUN_TASK = 23,
  TAVREN_RPC_AUDIT_FILE_WAS_ARCHIVED = 24,
  TAVREN_RPC_CLEAR_STORED_DATA = 41,
  TAVREN_RPC_SET_TUNABLE = 42,
  TAVREN_RPC_GET_TUNABLE_TABLE = 43,
  TAVREN_RPC_SET_REMOTE_COMMAND = 44,
  TAVREN_RPC_GET_REMOTE_COMMAND_TABLE = 45,
  TAVREN_RPC_SET_INTERVAL = 46,
  TAVREN_RPC_GET_INTERVAL_TABLE = 47,
  TAVREN_RPC_IS_TAVREND_SLEEPING = 48
};

/* The arguments of the procedures that have two. */
typedef struct tavren_rpc_set_config_1_argument {
  tavren_config_t* arg1; /* may be NULL */
  bool_t arg2;           /* the flag */
} tavren_rpc_set_config_1_argument;
typedef struct tavren_rpc_set_tunable_1_argument {
  char* arg1; /* tunable */
  char* arg2; /* value */
} tavren_rpc_set_tunable_1_argument;
typedef struct tavren_rpc_set_remote_command_1_argument {
  char* arg1; /* command name */
  char* arg2; /* command text */
} tavren_rpc_set_remote_command_1_argument;
typedef struct tavren_rpc_set_interval_1_argument {
  char* arg1; /* interval */
  char* arg2; /* value */
} tavren_rpc_set_interval_1_argument;

/*
 * XDR filters: each moves its object to or from the stream, or releases what decoding allocated. Returns TRUE, or FALSE
 * when the stream or memory fails or a string to be sent is NULL.
 */
TAVREN_EXPORT bool_t xdr_tavren_state_t(XDR* xdrs, tavren_state_t* object);
TAVREN_EXPORT bool_t xdr_tavren_connection_status_t(XDR* xdrs, tavren_connection_status_t* object);
TAVREN_EXPORT bool_t xdr_tavren_compartment_t(XDR* xdrs, tavren_compartment_t* object);
TAVREN_EXPORT bool_t xdr_tavren_settings_t(XDR* xdrs, tavren_settings_t* object);
TAVREN_EXPORT bool_t xdr_tavren_config_t(XDR* xdrs, tavren_config_t* object);
TAVREN_EXPORT bool_t xdr_tavren_compartment_status_t(XDR* xdrs, tavren_compartment_status_t* object);
TAVREN_EXPORT bool_t xdr_tavren_status_t(XDR* xdrs, tavren_status_t* object);
TAVREN_EXPORT bool_t xdr_tavren_rpc_set_config_1_argument(XDR* xdrs, tavren_rpc_set_config_1_argument* object);
TAVREN_EXPORT bool_t xdr_tavren_rpc_set_tunable_1_argument(XDR* xdrs, tavren_rpc_set_tunable_1_argument* object);
TAVREN_EXPORT bool_t xdr_tavren_rpc_set_remote_command_1_argument(XDR* xdrs,
                                                                  tavren_rpc_set_remote_command_1_argument* object);
TAVREN_EXPORT bool_t xdr_tavren_rpc_set_interval_1_argument(XDR* xdrs, tavren_rpc_set_interval_1_argument* object);

/* A filter, too; each byte of the buffer travels as a 4-byte signed integer, not packed. */
TAVREN_EXPORT bool_t xdr_tavren_bytes_t(XDR* xdrs, tavren_bytes_t* object);

/* Client stubs, each for the procedure that its name says; see above. A string result is released with free. */
TAVREN_EXPORT enum clnt_stat tavren_rpc_null_1(void* result, CLIENT* client);
TAVREN_EXPORT enum clnt_stat tavren_rpc_get_state_1(tavren_state_t* result, CLIENT* client);
TAVREN_EXPORT enum clnt_stat tavren_rpc_set_state_1(tavren_state_t state, void* result, CLIENT* client);
TAVREN_EXPORT enum clnt_stat tavren_rpc_get_config_1(tavren_config_t* result, CLIENT* client);
TAVREN_EXPORT enum clnt_stat tavren_rpc_set_config_1(tavren_config_t* config, bool_t flag, void* result,
                                                     CLIENT* client);
TAVREN_EXPORT enum clnt_stat tavren_rpc_get_status_1(tavren_status_t* result, CLIENT* client);
TAVREN_EXPORT enum clnt_stat tavren_rpc_get_errors_1(tavren_bytes_t* result, CLIENT* client);
TAVREN_EXPORT enum clnt_stat tavren_rpc_get_tunables_1(char** result, CLIENT* client);
TAVREN_EXPORT enum clnt_stat tavren_rpc_get_remote_commands_1(char** result, CLIENT* client);
TAVREN_EXPORT enum clnt_stat tavren_rpc_get_archive_host_1(char** result, CLIENT* client);
TAVREN_EXPORT enum clnt_stat tavren_rpc_get_archive_directory_1(char** result, CLIENT* client);
TAVREN_EXPORT enum clnt_stat tavren_rpc_run_task_1(char* task, void* result, CLIENT* client);
TAVREN_EXPORT enum clnt_stat tavren_rpc_audit_file_was_archived_1(char* file_name, int* result, CLIENT* client);
TAVREN_EXPORT enum clnt_stat tavren_rpc_clear_stored_data_1(char** result, CLIENT* client);
TAVREN_EXPORT enum clnt_stat tavren_rpc_set_tunable_1(char* name, char* value, char** result, CLIENT* client);
TAVREN_EXPORT enum clnt_stat tavren_rpc_get_tunable_table_1(char** result, CLIENT* client);
TAVREN_EXPORT enum clnt_stat tavren_rpc_set_remote_command_1(char* name, char* text, char** result, CLIENT* client);
TAVREN_EXPORT enum clnt_stat tavren_rpc_get_remote_command_table_1(char** result, CLIENT* client);
TAVREN_EXPORT enum clnt_stat tavren_rpc_set_interval_1(char* name, char* value, char** result, CLIENT* client);
TAVREN_EXPORT enum clnt_stat tavren_rpc_get_interval_table_1(char** result, CLIENT* client);
TAVREN_EXPORT enum clnt_stat tavren_rpc_is_tavrend_sleeping_1(int* result, CLIENT* client);

TAVREN_END_C

#endif
