#include "TavrenHost.h"

#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include <new>

#include "core/assertion.h"
#include "core/catalogue.h"
#include "core/standard_streams.h"
#include "process/deadline.h"

namespace {

constexpr int32_t FAILURE_LOG_LIMIT = 5;       /* consecutive failures */
constexpr long CONSOLE_WARNING_INTERVAL = 900; /* seconds */
constexpr size_t console_warning_size = 128;   /* bytes, longer text is cut */

/* Copying leaves a string NULL when there is no memory for it. */
bool is_complete(const tavren_settings_t& settings) {
  return settings.host != nullptr && settings.dir != nullptr && settings.user != nullptr &&
         settings.password != nullptr && settings.host_key != nullptr && settings.fingerprint != nullptr;
}

long now() { return static_cast<long>(time(nullptr)); }

}  // namespace

TavrenHost::TavrenHost(bool configure, bool log)
    : configure_shell(configure),
      log_outcomes(log),
      enabled(false),
      process(nullptr),
      settings{},
      hosts_file_current(false),
      failure_count(0),
      connection_status(TAVREN_CONNECTION_NONE),
      connection_status_time(0),
      last_console_warning(0) {
  const TavrenAutoLock lock(cmd_map_mutex);
  if (cmd_map.empty()) initialize_cmd_map();
}

TavrenHost::~TavrenHost() { tavren_settings_free_contents(&settings); }

void TavrenHost::set_settings(const tavren_settings_t& new_settings) {
  tavren_settings_free_contents(&settings);
  tavren_settings_copy(&new_settings, &settings);
  hosts_file_current = false;
  if (!is_complete(settings)) {
    tavren_settings_free_contents(&settings);
    throw std::bad_alloc();
  }
}

void TavrenHost::get_settings(tavren_settings_t& out) const { tavren_settings_copy(&settings, &out); }

void TavrenHost::enable() {
  TAVREN_ASSERT("TavrenHost", settings.host != NULL);
  TAVREN_ASSERT("TavrenHost", !enabled);
  enabled = true;
}

void TavrenHost::disable() {
  const TavrenAutoLock lock(connection_mutex);
  TAVREN_ASSERT("TavrenHost", enabled);
  enabled = false;
  if (process != nullptr) child().disable();
}

void TavrenHost::close_connection() {
  const TavrenAutoLock lock(connection_mutex);
  if (process != nullptr) {
    child().stop(stop_grace_time);
    delete process.exchange(nullptr);
  }
  running_command.clear();
}

void TavrenHost::set_connection_status(tavren_connection_status_t status) {
  const TavrenAutoLock lock(status_mutex);
  connection_status = status;
  connection_status_time = now();
}

void TavrenHost::clear_connection_status() {
  const TavrenAutoLock lock(status_mutex);
  connection_status = TAVREN_CONNECTION_NONE;
  connection_status_time = 0;
}

void TavrenHost::get_connection_status(tavren_connection_status_t& status, long& when) {
  const TavrenAutoLock lock(status_mutex);
  status = connection_status;
  when = connection_status_time;
}

void TavrenHost::log_connection_outcome(TavrenError* error) {
  if (!log_outcomes) return;
  if (error == nullptr) {
    /* Only the end of a silence is news: after fewer failures the log shows for itself that they stopped. */
    if (failure_count == FAILURE_LOG_LIMIT) syslog(0, "%s", translate("successfully connected to archive host"));
    failure_count = 0;
    return;
  }
  if (failure_count >= FAILURE_LOG_LIMIT) return;
  ++failure_count;
  if (failure_count < FAILURE_LOG_LIMIT) {
    syslog(0, "%s", translate("failed to connect to archive host"));
  } else {
    syslog(0, translate("failed to connect to archive host %d consecutive times: further failures will not be logged"),
           static_cast<int>(FAILURE_LOG_LIMIT));
  }
}

void TavrenHost::console_error_connection(const char* host) {
  const long present = now();
  /* A clock that was set back must not silence the warning until it has caught up. */
  if (present >= last_console_warning && present - last_console_warning <= CONSOLE_WARNING_INTERVAL) return;

  const int console = keep_off_standard_streams(open("/dev/console", O_WRONLY | O_NONBLOCK | O_CLOEXEC));
  if (console == -1) return;
  char warning[console_warning_size];
  snprintf(warning, sizeof warning, translate("\nWARNING: Log Archiving unable to communicate with archive host %s\n"),
           host == nullptr ? "" : host);
  if (write(console, warning, strlen(warning)) == -1) {
    /* A console that takes nothing is no reason to fail the caller. */
  }
  close(console);
  last_console_warning = now();
}

void TavrenHost::kill_ssh() { process.load()->send_signal(SIGTERM); }

/* Returns the child of the open connection. */
TavrenProcess& TavrenHost::child() const {
  TAVREN_ASSERT("TavrenHost", process != NULL);
  return *process;
}
