#include "archiver/desk.h"

#include <syslog.h>

#include <algorithm>
#include <chrono>
#include <iterator>
#include <sstream>
#include <utility>

#include "plan/schedule.h"
#include "tavren_basic.h"

namespace {

using Lock = std::unique_lock<std::mutex>;

constexpr int64_t never = INT64_MAX;

/* The uptime as the condition variable counts it. */
std::chrono::steady_clock::time_point uptime_at(int64_t ms) {
  return std::chrono::steady_clock::time_point(std::chrono::milliseconds(ms));
}

/* Returns the value of a tunable that has no getter, an empty text when it is the default. */
std::string changed_tunable(const std::string& name) {
  std::ostringstream changed;
  TavrenTunables::instance().print_tunables(changed);
  std::istringstream lines(changed.str());
  for (std::string line; std::getline(lines, line);) {
    if (line.rfind(name + "=", 0) == 0) return line.substr(name.size() + 1);
  }
  return "";
}

int32_t retry_interval() {
  int seconds = 300;
  tavren_cstring_to_int(changed_tunable("failure_retry_interval").c_str(), &seconds);
  return seconds;
}

}  // namespace

std::string log_dir_prefix() { return changed_tunable("log_dir_prefix"); }

std::optional<Work> Desk::due_work(int64_t now_ms) {
  if (!archive_config || !enabled || now_ms < retry_ms) return std::nullopt;
  const auto is_due = [this, now_ms](const std::string& name) { return tasks[name].due_ms <= now_ms; };
  const bool has_due =
      std::any_of(tasks.begin(), tasks.end(), [now_ms](const auto& task) { return task.second.due_ms <= now_ms; });
  Work work;
  work.begun_ms = now_ms;
  work.config = *archive_config;
  work.all = all_sections;
  /* What is rotated away before the first run is not to be lost: something has to be known of it. Where that
     look has failed, what is due has its turn before the next one. */
  if (looks_first && !(is_first_look && has_due)) {
    looks_first = false;
    work.looks_at_all = true;
    return work;
  }
  if (!has_due) return std::nullopt;
  work.claim = !store.is_claimed();
  work.measure_space = is_due(space_task);
  std::copy_if(all_sections.begin(), all_sections.end(), std::back_inserter(work.sections),
               [&is_due](const Section& section) { return is_due(task_of(section)); });
  return work;
}

int64_t Desk::next_look_ms() const {
  if (!archive_config || !enabled) return never;
  if (looks_first) return retry_ms;
  int64_t next = never;
  for (const auto& [name, task] : tasks) next = std::min(next, task.due_ms);
  return std::max(next, retry_ms);
}

std::optional<Work> Desk::wait_for_work() {
  Lock lock(mutex);
  archiving_thread = gettid();
  sleeping = true;
  changed.notify_all();
  for (;;) {
    if (stopping) return std::nullopt;
    if (auto work = due_work(tavren_get_uptime_ms())) {
      sleeping = cancelled = retry_now = false;
      begun_ms = work->begun_ms;
      is_first_look = work->looks_at_all;
      ++works;
      return work;
    }
    const int64_t next = next_look_ms();
    if (next == never) {
      changed.wait(lock);
    } else {
      changed.wait_until(lock, uptime_at(next));
    }
  }
}

void Desk::note_claim() {
  const Lock lock(mutex);
  if (!cancelled) store.set_claimed();
}

void Desk::work_is_done(const Work& work) {
  const Lock lock(mutex);
  if (cancelled) return;
  const int64_t now_ms = tavren_get_uptime_ms();
  const auto is_done = [&](const std::string& name) {
    const auto task = tasks.find(name);
    /* One that was asked for meanwhile stays due: what it was asked for may have come behind the look. */
    if (task != tasks.end() && task->second.due_ms <= work.begun_ms)
      task->second.due_ms = next_due_ms(task->second.due_ms, now_ms, task->second.interval);
  };
  if (work.measure_space) is_done(space_task);
  for (const Section& section : work.sections) is_done(task_of(section));
}

void Desk::work_has_failed(double draw) {
  const Lock lock(mutex);
  looks_first = looks_first || is_first_look;
  if (std::exchange(retry_now, false)) return;
  retry_ms = tavren_get_uptime_ms() + retry_delay_ms(retry_interval(), draw);
}

bool Desk::is_cancelled() {
  const Lock lock(mutex);
  return cancelled || stopping;
}

void Desk::check_cancelled() {
  if (is_cancelled()) throw Cancelled();
}

void Desk::report(const TavrenError& error) {
  std::ostringstream serialised;
  error.serialize(serialised);
  std::ostringstream text;
  error.print_body(text);
  std::istringstream lines(text.str());
  for (std::string line; std::getline(lines, line);) syslog(LOG_ERR, "%s", line.c_str());
  const Lock lock(mutex);
  try {
    store.add_error(serialised.str());
  } catch (const StoreError& failure) {
    syslog(LOG_ERR, "the error was not stored: %s", failure.what());
  }
}

void Desk::set_connection(tavren_connection_status_t status, int64_t when) {
  const Lock lock(mutex);
  present.connection = status;
  present.connection_time = when;
}

void Desk::set_used(int compartment, int32_t megabytes) {
  const Lock lock(mutex);
  if (!cancelled) present.compartments[compartment].used_mb = megabytes; /* it may be another archive by now */
}

void Desk::set_waiting(const Section& section, int32_t items) {
  const Lock lock(mutex);
  waiting[section.name] = items;
}

void Desk::count_archived(int compartment) {
  const Lock lock(mutex);
  ++present.compartments[compartment].archived;
}
