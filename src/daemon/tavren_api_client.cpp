#include <stdio.h>
#include <string.h>

#include <list>
#include <sstream>

#include "TavrenError.h"
#include "TavrenHost.h"
#include "TavrenMutex.h"
#include "TavrenTunables.h"
#include "core/catalogue.h"
#include "daemon/connection.h"
#include "daemon/tavren_api_xdr.h"
#include "tavren_cmem.h"

/*
 * The client API: each function makes one call and turns its outcome into an integer.
 */
namespace {

constexpr char audit_task[] = "LogTypeTask.audit";

/* The RPC library puts its messages together in one place for all threads. */
TavrenMutex& message_mutex = *new TavrenMutex; /* never destroyed: a thread may ask while another one exits */

/* What a reply brought, released at the end also when only a part of it could be decoded. */
template <class Record>
struct Reply {
  Reply() = default;
  ~Reply() { xdr_free(filter_of<Record>(), &record); }
  Reply(const Reply&) = delete;
  Reply& operator=(const Reply&) = delete;

  Record record{};
};

/* Errors as they are parsed. Those that are left are deleted at the end, also when the text turns out malformed. */
struct StoredErrors {
  StoredErrors() = default;
  ~StoredErrors() {
    while (!errors.empty()) drop_first();
  }
  StoredErrors(const StoredErrors&) = delete;
  StoredErrors& operator=(const StoredErrors&) = delete;

  void drop_first() {
    delete errors.front();
    errors.pop_front();
  }

  std::list<TavrenError*> errors;
};

/* Makes one call: step gets the client. Returns 0, or what it has stored in the handle's error. */
template <class Step>
int call(tavren_api_handle_t* handle, Step step) {
  if (handle->clnt == nullptr) return handle->error = TAVREN_API_E_CONNECT;
  const WithoutSigpipe guard;
  if (renew_if_out_of_step(handle->clnt, guard) && step(handle->clnt) == RPC_SUCCESS) return 0;
  guard.discard();
  return handle->error = TAVREN_API_E_RPC;
}

/* Makes one call whose result is a text, and hands that to use. */
template <class Step, class Use>
int call_for_text(tavren_api_handle_t* handle, Step step, Use use) {
  Reply<char*> reply;
  const int result = call(handle, [&](CLIENT* client) { return step(&reply.record, client); });
  if (result == 0) use(reply.record);
  return result;
}

template <class Step>
int call_for_buffer(tavren_api_handle_t* handle, char* buffer, Step step) {
  return call_for_text(handle, step,
                       [buffer](const char* text) { snprintf(buffer, TAVREN_API_TEXT_SIZE, "%s", text); });
}

/* The daemon's answer to a request is a reason for its refusal, or nothing. */
template <class Step>
int call_for_message(tavren_api_handle_t* handle, char** message, Step step) {
  return call_for_text(handle, step,
                       [message](const char* text) { *message = text[0] == '\0' ? nullptr : tavren_strdup(text); });
}

template <class Step>
int call_for_table(tavren_api_handle_t* handle, char** table, Step step) {
  return call_for_text(handle, step, [table](const char* text) { *table = tavren_strdup(text); });
}

/* Opens a handle for the one call that use makes. */
template <class Use>
int with_handle(Use use) {
  tavren_api_handle_t handle;
  if (tavren_api_open(&handle) != 0) return TAVREN_API_E_CONNECT;
  const int result = use(&handle);
  tavren_api_close(&handle);
  return result;
}

/* The RPC library takes arguments as it gives results, but changes none. */
char* argument(const char* text) { return const_cast<char*>(text); }

}  // namespace

int tavren_api_open(tavren_api_handle_t* handle) {
  handle->error = 0;
  const WithoutSigpipe guard;
  handle->clnt = connect_to_daemon(guard);
  if (handle->clnt == nullptr) handle->error = TAVREN_API_E_CONNECT;
  return handle->error;
}

void tavren_api_close(tavren_api_handle_t* handle) {
  if (handle->clnt != nullptr) clnt_destroy(handle->clnt);
}

char* tavren_api_errmsg(const tavren_api_handle_t* handle, char* buffer) {
  const TavrenAutoLock lock(message_mutex);
  switch (handle->error) {
    case TAVREN_API_E_RPC:
      snprintf(buffer, TAVREN_API_TEXT_SIZE, "%s",
               clnt_sperror(handle->clnt, translate("Archiving API error: RPC failure")));
      break;
    case TAVREN_API_E_CONNECT:
      snprintf(buffer, TAVREN_API_TEXT_SIZE, "%s", clnt_spcreateerror(translate("Cannot connect to archiving daemon")));
      break;
    default:
      snprintf(buffer, TAVREN_API_TEXT_SIZE, translate("Internal log archiving API error (error code %d)"),
               static_cast<int>(handle->error));
  }
  return buffer;
}

int tavren_api_get_state(tavren_api_handle_t* handle, tavren_state_t* state) {
  tavren_state_t answer{};
  const int result = call(handle, [&](CLIENT* client) { return tavren_rpc_get_state_1(&answer, client); });
  if (result == 0) memcpy(state, &answer, sizeof answer); /* which may be none of the enumeration's values */
  return result;
}

int tavren_api_set_state(tavren_api_handle_t* handle, tavren_state_t state) {
  return call(handle, [&](CLIENT* client) { return tavren_rpc_set_state_1(state, nullptr, client); });
}

int tavren_api_get_config(tavren_api_handle_t* handle, tavren_config_t* config) {
  Reply<tavren_config_t> reply;
  const int result = call(handle, [&](CLIENT* client) { return tavren_rpc_get_config_1(&reply.record, client); });
  if (result == 0) tavren_config_copy(&reply.record, config);
  return result;
}

int tavren_api_set_config(tavren_api_handle_t* handle, const tavren_config_t* config, int flag) {
  return call(handle, [&](CLIENT* client) {
    return tavren_rpc_set_config_1(const_cast<tavren_config_t*>(config), flag, nullptr, client);
  });
}

int tavren_api_get_status(tavren_api_handle_t* handle, tavren_status_t* status) {
  tavren_status_t answer{};
  const int result = call(handle, [&](CLIENT* client) { return tavren_rpc_get_status_1(&answer, client); });
  if (result == 0) *status = answer;
  return result;
}

int tavren_api_get_errors(tavren_api_handle_t* handle, char** errors) {
  StoredErrors stored;
  {
    Reply<tavren_bytes_t> reply;
    const int result = call(handle, [&](CLIENT* client) { return tavren_rpc_get_errors_1(&reply.record, client); });
    if (result != 0) return result;
    TavrenError::tavren_bytes_to_errors(reply.record, stored.errors);
  }
  if (stored.errors.empty()) {
    *errors = nullptr;
    return 0;
  }
  std::ostringstream text;
  for (; !stored.errors.empty(); stored.drop_first()) stored.errors.front()->print(text);
  *errors = tavren_strdup(text.str().c_str());
  return 0;
}

int tavren_api_load_tunables(tavren_api_handle_t* handle) {
  return call_for_text(handle, tavren_rpc_get_tunables_1,
                       [](const char* text) { TavrenTunables::instance().set_tunables(text); });
}

int tavren_api_load_remote_commands(tavren_api_handle_t* handle) {
  return call_for_text(handle, tavren_rpc_get_remote_commands_1, [](const char* text) { TavrenHost::set_cmds(text); });
}

int tavren_api_get_archive_host(tavren_api_handle_t* handle, char* buffer) {
  return call_for_buffer(handle, buffer, tavren_rpc_get_archive_host_1);
}

int tavren_api_get_archive_directory(tavren_api_handle_t* handle, char* buffer) {
  return call_for_buffer(handle, buffer, tavren_rpc_get_archive_directory_1);
}

int tavren_api_run_task(tavren_api_handle_t* handle, const char* task) {
  return call(handle, [&](CLIENT* client) { return tavren_rpc_run_task_1(argument(task), nullptr, client); });
}

int tavren_api_request_to_archive_audit_file(tavren_api_handle_t* handle) {
  return tavren_api_run_task(handle, audit_task);
}

int tavren_api_audit_file_was_archived(tavren_api_handle_t* handle, const char* file_name) {
  int answer = 0;
  const int result = call(handle, [&](CLIENT* client) {
    return tavren_rpc_audit_file_was_archived_1(argument(file_name), &answer, client);
  });
  if (result != 0) return result;
  if (answer < 0) handle->error = answer;
  return answer;
}

int tavren_api_clear_stored_data(tavren_api_handle_t* handle, char** message) {
  return call_for_message(handle, message, tavren_rpc_clear_stored_data_1);
}

int tavren_api_set_tunable(tavren_api_handle_t* handle, const char* name, const char* value, char** message) {
  return call_for_message(handle, message, [&](char** answer, CLIENT* client) {
    return tavren_rpc_set_tunable_1(argument(name), argument(value), answer, client);
  });
}

int tavren_api_set_remote_command(tavren_api_handle_t* handle, const char* name, const char* text, char** message) {
  return call_for_message(handle, message, [&](char** answer, CLIENT* client) {
    return tavren_rpc_set_remote_command_1(argument(name), argument(text), answer, client);
  });
}

int tavren_api_set_interval(tavren_api_handle_t* handle, const char* name, const char* value, char** message) {
  return call_for_message(handle, message, [&](char** answer, CLIENT* client) {
    return tavren_rpc_set_interval_1(argument(name), argument(value), answer, client);
  });
}

int tavren_api_get_tunable_table(tavren_api_handle_t* handle, char** table) {
  return call_for_table(handle, table, tavren_rpc_get_tunable_table_1);
}

int tavren_api_get_remote_command_table(tavren_api_handle_t* handle, char** table) {
  return call_for_table(handle, table, tavren_rpc_get_remote_command_table_1);
}

int tavren_api_get_interval_table(tavren_api_handle_t* handle, char** table) {
  return call_for_table(handle, table, tavren_rpc_get_interval_table_1);
}

int tavren_api_is_tavrend_sleeping(tavren_api_handle_t* handle, int* sleeping) {
  int answer = 0;
  const int result = call(handle, [&](CLIENT* client) { return tavren_rpc_is_tavrend_sleeping_1(&answer, client); });
  if (result == 0) *sleeping = answer;
  return result;
}

int tavren_get_state(tavren_state_t* state) {
  return with_handle([&](tavren_api_handle_t* handle) { return tavren_api_get_state(handle, state); });
}

int tavren_get_archive_host(char* buffer) {
  return with_handle([&](tavren_api_handle_t* handle) { return tavren_api_get_archive_host(handle, buffer); });
}

int tavren_get_archive_directory(char* buffer) {
  return with_handle([&](tavren_api_handle_t* handle) { return tavren_api_get_archive_directory(handle, buffer); });
}

int tavren_request_to_archive_audit_file() { return with_handle(tavren_api_request_to_archive_audit_file); }

int tavren_audit_file_was_archived(const char* file_name) {
  return with_handle(
      [&](tavren_api_handle_t* handle) { return tavren_api_audit_file_was_archived(handle, file_name); });
}
