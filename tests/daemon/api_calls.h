#ifndef TESTS_DAEMON_API_CALLS_H
#define TESTS_DAEMON_API_CALLS_H

#include <functional>
#include <string>

#include "support/named.h"
#include "tavren_api.h"

/* One call of the client API with a result of its own, which it may fill. */
struct ApiCall {
  std::string procedure;                                         /* that it calls */
  std::function<int(tavren_api_handle_t*, unsigned char*)> make; /* the result: 512 bytes */
};

template <class Result>
Result* as(unsigned char* result) {
  return reinterpret_cast<Result*>(result);
}

/* Every function of the client API that calls the daemon. */
inline const Named<ApiCall> api_calls[] = {
    {"GetState", {"get_state", [](auto* h, auto* r) { return tavren_api_get_state(h, as<tavren_state_t>(r)); }}},
    {"SetState", {"set_state", [](auto* h, auto*) { return tavren_api_set_state(h, TAVREN_STATE_ENABLED); }}},
    {"GetConfig", {"get_config", [](auto* h, auto* r) { return tavren_api_get_config(h, as<tavren_config_t>(r)); }}},
    {"SetConfig", {"set_config", [](auto* h, auto*) { return tavren_api_set_config(h, nullptr, 1); }}},
    {"GetStatus", {"get_status", [](auto* h, auto* r) { return tavren_api_get_status(h, as<tavren_status_t>(r)); }}},
    {"GetErrors", {"get_errors", [](auto* h, auto* r) { return tavren_api_get_errors(h, as<char*>(r)); }}},
    {"LoadTunables", {"get_tunables", [](auto* h, auto*) { return tavren_api_load_tunables(h); }}},
    {"LoadCommands", {"get_remote_commands", [](auto* h, auto*) { return tavren_api_load_remote_commands(h); }}},
    {"GetHost", {"get_archive_host", [](auto* h, auto* r) { return tavren_api_get_archive_host(h, as<char>(r)); }}},
    {"GetDirectory",
     {"get_archive_directory", [](auto* h, auto* r) { return tavren_api_get_archive_directory(h, as<char>(r)); }}},
    {"RunTask", {"run_task", [](auto* h, auto*) { return tavren_api_run_task(h, "task"); }}},
    {"RequestAudit", {"run_task", [](auto* h, auto*) { return tavren_api_request_to_archive_audit_file(h); }}},
    {"AuditArchived",
     {"audit_file_was_archived", [](auto* h, auto*) { return tavren_api_audit_file_was_archived(h, "file"); }}},
    {"Clear", {"clear_stored_data", [](auto* h, auto* r) { return tavren_api_clear_stored_data(h, as<char*>(r)); }}},
    {"SetTunable",
     {"set_tunable", [](auto* h, auto* r) { return tavren_api_set_tunable(h, "name", "value", as<char*>(r)); }}},
    {"SetCommand",
     {"set_remote_command",
      [](auto* h, auto* r) { return tavren_api_set_remote_command(h, "name", "text", as<char*>(r)); }}},
    {"SetInterval",
     {"set_interval", [](auto* h, auto* r) { return tavren_api_set_interval(h, "name", "value", as<char*>(r)); }}},
    {"TunableTable",
     {"get_tunable_table", [](auto* h, auto* r) { return tavren_api_get_tunable_table(h, as<char*>(r)); }}},
    {"CommandTable",
     {"get_remote_command_table",
      [](auto* h, auto* r) { return tavren_api_get_remote_command_table(h, as<char*>(r)); }}},
    {"IntervalTable",
     {"get_interval_table", [](auto* h, auto* r) { return tavren_api_get_interval_table(h, as<char*>(r)); }}},
    {"Sleeping",
     {"is_tavrend_sleeping", [](auto* h, auto* r) { return tavren_api_is_tavrend_sleeping(h, as<int>(r)); }}},
};

#endif
