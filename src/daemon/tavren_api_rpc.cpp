#include "tavren_rpc.h"

#include "daemon/tavren_api_xdr.h"

/*
 * One call of the daemon for each of its procedures.
 */
namespace {

constexpr struct timeval call_timeout { 25, 0 };

Nothing nothing;

template <class Argument, class Result>
clnt_stat call(CLIENT* client, rpcproc_t procedure, Argument* argument, Result* result) {
  return clnt_call(client, procedure, filter_of<Argument>(), reinterpret_cast<char*>(argument), filter_of<Result>(),
                   reinterpret_cast<char*>(result), call_timeout);
}

template <class Result>
clnt_stat get(CLIENT* client, rpcproc_t procedure, Result* result) {
  return call(client, procedure, &nothing, result);
}

template <class Argument>
clnt_stat set(CLIENT* client, rpcproc_t procedure, Argument* argument) {
  return call(client, procedure, argument, &nothing);
}

}  // namespace

clnt_stat tavren_rpc_null_1(void*, CLIENT* client) { return set(client, TAVREN_RPC_NULL, &nothing); }

clnt_stat tavren_rpc_get_state_1(tavren_state_t* result, CLIENT* client) {
  return get(client, TAVREN_RPC_GET_STATE, result);
}

clnt_stat tavren_rpc_set_state_1(tavren_state_t state, void*, CLIENT* client) {
  return set(client, TAVREN_RPC_SET_STATE, &state);
}

clnt_stat tavren_rpc_get_config_1(tavren_config_t* result, CLIENT* client) {
  return get(client, TAVREN_RPC_GET_CONFIG, result);
}

clnt_stat tavren_rpc_set_config_1(tavren_config_t* config, bool_t flag, void*, CLIENT* client) {
  tavren_rpc_set_config_1_argument argument = {config, flag};
  return set(client, TAVREN_RPC_SET_CONFIG, &argument);
}

clnt_stat tavren_rpc_get_status_1(tavren_status_t* result, CLIENT* client) {
  return get(client, TAVREN_RPC_GET_STATUS, result);
}

clnt_stat tavren_rpc_get_errors_1(tavren_bytes_t* result, CLIENT* client) {
  return get(client, TAVREN_RPC_GET_ERRORS, result);
}

clnt_stat tavren_rpc_get_tunables_1(char** result, CLIENT* client) {
  return get(client, TAVREN_RPC_GET_TUNABLES, result);
}

clnt_stat tavren_rpc_get_remote_commands_1(char** result, CLIENT* client) {
  return get(client, TAVREN_RPC_GET_REMOTE_COMMANDS, result);
}

clnt_stat tavren_rpc_get_archive_host_1(char** result, CLIENT* client) {
  return get(client, TAVREN_RPC_GET_ARCHIVE_HOST, result);
}

clnt_stat tavren_rpc_get_archive_directory_1(char** result, CLIENT* client) {
  return get(client, TAVREN_RPC_GET_ARCHIVE_DIRECTORY, result);
}

clnt_stat tavren_rpc_run_task_1(char* task, void*, CLIENT* client) { return set(client, TAVREN_RPC_RUN_TASK, &task); }

clnt_stat tavren_rpc_audit_file_was_archived_1(char* file_name, int* result, CLIENT* client) {
  return call(client, TAVREN_RPC_AUDIT_FILE_WAS_ARCHIVED, &file_name, result);
}

clnt_stat tavren_rpc_clear_stored_data_1(char** result, CLIENT* client) {
  return get(client, TAVREN_RPC_CLEAR_STORED_DATA, result);
}

clnt_stat tavren_rpc_set_tunable_1(char* name, char* value, char** result, CLIENT* client) {
  tavren_rpc_set_tunable_1_argument argument = {name, value};
  return call(client, TAVREN_RPC_SET_TUNABLE, &argument, result);
}

clnt_stat tavren_rpc_get_tunable_table_1(char** result, CLIENT* client) {
  return get(client, TAVREN_RPC_GET_TUNABLE_TABLE, result);
}

clnt_stat tavren_rpc_set_remote_command_1(char* name, char* text, char** result, CLIENT* client) {
  tavren_rpc_set_remote_command_1_argument argument = {name, text};
  return call(client, TAVREN_RPC_SET_REMOTE_COMMAND, &argument, result);
}

clnt_stat tavren_rpc_get_remote_command_table_1(char** result, CLIENT* client) {
  return get(client, TAVREN_RPC_GET_REMOTE_COMMAND_TABLE, result);
}

clnt_stat tavren_rpc_set_interval_1(char* name, char* value, char** result, CLIENT* client) {
  tavren_rpc_set_interval_1_argument argument = {name, value};
  return call(client, TAVREN_RPC_SET_INTERVAL, &argument, result);
}

clnt_stat tavren_rpc_get_interval_table_1(char** result, CLIENT* client) {
  return get(client, TAVREN_RPC_GET_INTERVAL_TABLE, result);
}

clnt_stat tavren_rpc_is_tavrend_sleeping_1(int* result, CLIENT* client) {
  return get(client, TAVREN_RPC_IS_TAVREND_SLEEPING, result);
}
