#ifndef TESTS_DAEMON_API_CALLS_H
#define TESTS_DAEMON_API_CALLS_H

#include <stdexcept>
#include <string>

#include "daemon/wire.h"
#include "support/named.h"
#include "tavren_api.h"

/* One call of the client API with a result of its own, which it may fill. */
struct ApiCall {
  std::string procedure;                                    /* that it calls */
  rpcproc_t number;                                         /* of the procedure */
  std::string arguments;                                    /* as they travel */
  int (*make)(tavren_api_handle_t*, unsigned char* result); /* 512 bytes */
};

template <class Result>
Result* as(unsigned char* result) {
  return reinterpret_cast<Result*>(result);
}

/* Every function of the client API that calls the daemon. */
inline const Named<ApiCall> api_calls[] = {
    {"GetState", {"get_state", 1, "", [](auto* h, auto* r) { return tavren_api_get_state(h, as<tavren_state_t>(r)); }}},
    {"SetState",
     {"set_state", 2, wire::unit(1), [](auto* h, auto*) { return tavren_api_set_state(h, TAVREN_STATE_ENABLED); }}},
    {"GetConfig",
     {"get_config", 3, "", [](auto* h, auto* r) { return tavren_api_get_config(h, as<tavren_config_t>(r)); }}},
    {"SetConfig", /* and any true flag */
     {"set_config", 4, wire::unit(0) + wire::unit(1),
      [](auto* h, auto*) { return tavren_api_set_config(h, nullptr, 5); }}},
    {"GetStatus",
     {"get_status", 5, "", [](auto* h, auto* r) { return tavren_api_get_status(h, as<tavren_status_t>(r)); }}},
    {"GetErrors", {"get_errors", 6, "", [](auto* h, auto* r) { return tavren_api_get_errors(h, as<char*>(r)); }}},
    {"LoadTunables", {"get_tunables", 7, "", [](auto* h, auto*) { return tavren_api_load_tunables(h); }}},
    {"LoadCommands", {"get_remote_commands", 8, "", [](auto* h, auto*) { return tavren_api_load_remote_commands(h); }}},
    {"GetHost",
     {"get_archive_host", 21, "", [](auto* h, auto* r) { return tavren_api_get_archive_host(h, as<char>(r)); }}},
    {"GetDirectory",
     {"get_archive_directory", 22, "",
      [](auto* h, auto* r) { return tavren_api_get_archive_directory(h, as<char>(r)); }}},
    {"RunTask", {"run_task", 23, wire::text("task"), [](auto* h, auto*) { return tavren_api_run_task(h, "task"); }}},
    {"RequestAudit",
     {"run_task", 23, wire::text("LogTypeTask.audit"),
      [](auto* h, auto*) { return tavren_api_request_to_archive_audit_file(h); }}},
    {"AuditArchived",
     {"audit_file_was_archived", 24, wire::text("file"),
      [](auto* h, auto*) { return tavren_api_audit_file_was_archived(h, "file"); }}},
    {"Clear",
     {"clear_stored_data", 41, "", [](auto* h, auto* r) { return tavren_api_clear_stored_data(h, as<char*>(r)); }}},
    {"SetTunable",
     {"set_tunable", 42, wire::text("name") + wire::text("value"),
      [](auto* h, auto* r) { return tavren_api_set_tunable(h, "name", "value", as<char*>(r)); }}},
    {"SetCommand",
     {"set_remote_command", 44, wire::text("name") + wire::text("text"),
      [](auto* h, auto* r) { return tavren_api_set_remote_command(h, "name", "text", as<char*>(r)); }}},
    {"SetInterval",
     {"set_interval", 46, wire::text("name") + wire::text("value"),
      [](auto* h, auto* r) { return tavren_api_set_interval(h, "name", "value", as<char*>(r)); }}},
    {"TunableTable",
     {"get_tunable_table", 43, "", [](auto* h, auto* r) { return tavren_api_get_tunable_table(h, as<char*>(r)); }}},
    {"CommandTable",
     {"get_remote_command_table", 45, "",
      [](auto* h, auto* r) { return tavren_api_get_remote_command_table(h, as<char*>(r)); }}},
    {"IntervalTable",
     {"get_interval_table", 47, "", [](auto* h, auto* r) { return tavren_api_get_interval_table(h, as<char*>(r)); }}},
    {"Sleeping",
     {"is_tavrend_sleeping", 48, "", [](auto* h, auto* r) { return tavren_api_is_tavrend_sleeping(h, as<int>(r)); }}},
};

/* Makes the call of that procedure, whose result is a text. */
inline int call_for_text(const std::string& procedure, tavren_api_handle_t* handle, char** text) {
  for (const auto& call : api_calls) {
    if (call.value.procedure == procedure) return call.value.make(handle, reinterpret_cast<unsigned char*>(text));
  }
  throw std::runtime_error("no call of " + procedure);
}

#endif
