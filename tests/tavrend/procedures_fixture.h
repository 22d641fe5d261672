#ifndef TESTS_TAVREND_PROCEDURES_FIXTURE_H
#define TESTS_TAVREND_PROCEDURES_FIXTURE_H

#include <gtest/gtest.h>
#include <signal.h>
#include <sqlite3.h>

#include <string>

#include "tavrend/daemon_fixture.h"
#include "tavrend/row_sum_sql.h"

/* Short ways to the daemon's procedures, with a section of each kind. */
class Procedure : public TavrendTest {
 protected:
  std::string sections() const {
    return "[audit]\nfiles = " + log("audit.log.*") +
           "\ncompartment = audit\ninterval = 1h\n[messages]\nfollow = " + log("messages") + "\ninterval = 10min\n";
  }

  /* Kills the daemon and starts it again. */
  void restart() {
    stop(SIGKILL);
    start_again();
  }

  static int state_now() {
    tavren_state_t now{};
    EXPECT_EQ(tavren_get_state(&now), 0);
    return now;
  }

  /* What is configured: "HOST DIR USER PASSWORD KEY FINGERPRINT LIMIT LIMIT", each text in brackets. */
  static std::string configuration() {
    tavren_config_t c{};
    if (call([&](auto* handle) { return tavren_api_get_config(handle, &c); }) != 0) return "no answer";
    const tavren_settings_t& s = c.settings;
    std::string text;
    for (const char* part : {s.host, s.dir, s.user, s.password, s.host_key, s.fingerprint}) {
      text += "[" + std::string(part) + "] ";
    }
    text += std::to_string(c.space_limit[0]) + " " + std::to_string(c.space_limit[1]);
    tavren_config_free_contents(&c);
    return text;
  }

  static int configure(const std::string& host, const std::string& dir, const std::string& user, int audit_limit,
                       int logs_limit, bool on) {
    Settings settings{host, dir, user, "a secret", "key", "fingerprint"};
    const tavren_config_t c = {settings.record(), {audit_limit, logs_limit}};
    return call([&](auto* handle) { return tavren_api_set_config(handle, &c, on ? 1 : 0); });
  }

  static int set_state_by_configuration(bool on) {
    return call([&](auto* handle) { return tavren_api_set_config(handle, nullptr, on ? 1 : 0); });
  }

  static tavren_status_t status() {
    tavren_status_t now{};
    EXPECT_EQ(call([&](auto* handle) { return tavren_api_get_status(handle, &now); }), 0);
    return now;
  }

  static int used(int compartment) { return status().compartment_status[compartment].word1; }
  static int waiting(int compartment) { return status().compartment_status[compartment].word2; }
  static int archived_since_the_start(int compartment) { return status().compartment_status[compartment].word3; }

  static std::string archive_host() {
    char text[TAVREN_API_TEXT_SIZE] = "";
    EXPECT_EQ(call([&](auto* handle) { return tavren_api_get_archive_host(handle, text); }), 0);
    return text;
  }

  static std::string archive_directory() {
    char text[TAVREN_API_TEXT_SIZE] = "";
    EXPECT_EQ(call([&](auto* handle) { return tavren_api_get_archive_directory(handle, text); }), 0);
    return text;
  }

  static int audit_answer(const std::string& path) {
    return call([&](auto* handle) { return tavren_api_audit_file_was_archived(handle, path.c_str()); });
  }

  static std::string set_tunable(const char* name, const char* value) {
    return refusal_of([&](auto* h, char** m) { return tavren_api_set_tunable(h, name, value, m); });
  }
  static std::string set_remote_command(const char* name, const char* text) {
    return refusal_of([&](auto* h, char** m) { return tavren_api_set_remote_command(h, name, text, m); });
  }
  static std::string set_interval(const char* task, const char* value) {
    return refusal_of([&](auto* h, char** m) { return tavren_api_set_interval(h, task, value, m); });
  }

  static std::string interval_row(const std::string& task, const std::string& interval) {
    return task + std::string(46 - task.size(), ' ') + interval + "\n";
  }
  static std::string interval_table(const std::string& audit, const std::string& messages, const std::string& space) {
    return interval_row("TASK", "INTERVAL") + interval_row("----", "--------") +
           interval_row("LogTypeTask.audit", audit) + interval_row("LogTypeTask.messages", messages) +
           interval_row("SpaceTask", space);
  }
  static std::string intervals() { return refusal_of(tavren_api_get_interval_table); }

  /* Changes the state of a daemon that has ended. Returns how many rows were changed. */
  int change_state(const std::string& sql) const {
    sqlite3* handle = nullptr;
    EXPECT_EQ(sqlite3_open((state + "/tavrend.db").c_str(), &handle), SQLITE_OK);
    add_row_sum(handle);
    EXPECT_EQ(sqlite3_exec(handle, sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK) << sqlite3_errmsg(handle);
    const int changed = sqlite3_changes(handle);
    sqlite3_close(handle);
    return changed;
  }
};

#endif
