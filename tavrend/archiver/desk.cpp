#include "archiver/desk.h"

#include <signal.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <sstream>
#include <utility>

#include "plan/schedule.h"
#include "tavren_basic.h"

namespace {

using Lock = std::unique_lock<std::mutex>;

constexpr int64_t never = INT64_MAX;
constexpr int32_t space_interval = 3600; /* seconds */

std::string kind_of_interval(const std::string& task) { return "interval." + task; }

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

/* Ends the children that a thread of this process has: a login waits for its client, and for nothing else. */
void end_children_of(pid_t thread) {
  std::ifstream children("/proc/self/task/" + std::to_string(thread) + "/children");
  for (pid_t child = 0; children >> child;) kill(child, SIGTERM);
}

}  // namespace

std::string log_dir_prefix() { return changed_tunable("log_dir_prefix"); }

Desk::Desk(Store& state, const std::vector<Section>& sections, const std::string& chassis_name)
    : store(state), chassis(chassis_name), archive_config(store.config()), enabled(store.is_enabled()) {
  plan_tasks(sections);
}

void Desk::plan_tasks(const std::vector<Section>& new_sections) {
  /* First what may fail. */
  for (const Section& section : new_sections) store.add_section({section.name, section.compartment});
  std::vector<Section> sections = new_sections;
  std::map<std::string, Task> planned{{space_task, planned_task(space_task, space_interval)}};
  for (const Section& section : sections) {
    planned[task_of(section)] = planned_task(task_of(section), section.interval);
  }
  all_sections.swap(sections);
  tasks.swap(planned);
  looks_first = true;
}

Desk::Task Desk::planned_task(const std::string& name, int32_t usual_interval) {
  Task task;
  const int32_t kept = parse_interval(store.text(kind_of_interval(name)));
  task.usual_interval = usual_interval;
  task.interval = kept != 0 ? kept : usual_interval;
  task.due_ms = tavren_get_uptime_ms() + first_delay_ms(chassis, name, task.interval);
  /* One that was planned before keeps its place, unless its interval is another now. */
  const auto before = tasks.find(name);
  if (before != tasks.end() && before->second.interval == task.interval) task.due_ms = before->second.due_ms;
  return task;
}

bool Desk::is_enabled() {
  const Lock lock(mutex);
  return enabled;
}

std::optional<ArchiveConfig> Desk::config() {
  const Lock lock(mutex);
  return archive_config;
}

Status Desk::status() {
  const Lock lock(mutex);
  Status status = present;
  for (int i = 0; i < 2; ++i) {
    if (!archive_config || archive_config->space_limit[i] == -1) status.compartments[i].used_mb = -1;
  }
  for (const Section& section : all_sections) {
    const auto items = waiting.find(section.name);
    if (items != waiting.end()) status.compartments[section.compartment].waiting += items->second;
  }
  return status;
}

bool Desk::is_sleeping() {
  const Lock lock(mutex);
  return sleeping;
}

std::vector<std::string> Desk::errors() {
  const Lock lock(mutex);
  return store.errors();
}

void Desk::clear_errors() {
  const Lock lock(mutex);
  store.clear_errors();
}

std::map<std::string, Interval> Desk::intervals() {
  const Lock lock(mutex);
  std::map<std::string, Interval> all;
  for (const auto& [name, task] : tasks) all[name] = {task.interval, task.usual_interval};
  return all;
}

bool Desk::set_interval(const std::string& name, std::optional<int32_t> seconds) {
  const Lock lock(mutex);
  const auto found = tasks.find(name);
  if (found == tasks.end()) return false;
  store.set_text(kind_of_interval(name), seconds ? std::to_string(*seconds) : "");
  Task& task = found->second;
  task.interval = seconds.value_or(task.usual_interval);
  task.due_ms = std::min(task.due_ms, tavren_get_uptime_ms() + static_cast<int64_t>(task.interval) * 1000);
  changed.notify_all();
  return true;
}

bool Desk::run_task(const std::string& name) {
  const Lock lock(mutex);
  const auto found = tasks.find(name);
  if (found == tasks.end()) return false;
  /* Behind the beginning of the present work, also in the same millisecond. */
  found->second.due_ms = std::max(tavren_get_uptime_ms(), begun_ms + 1);
  retry_ms = 0;
  retry_now = true;
  changed.notify_all();
  return true;
}

std::vector<Section> Desk::sections() {
  const Lock lock(mutex);
  return all_sections;
}

std::vector<ArchivedFile> Desk::archived_files(const std::string& section) {
  const Lock lock(mutex);
  /* Who is told that a file is archived may remove it: no power cut may take that back. */
  store.sync();
  return store.archived_files(section);
}

void Desk::keep_text(const std::string& kind, const std::string& text) {
  const Lock lock(mutex);
  store.set_text(kind, text);
}

std::string Desk::kept_text(const std::string& kind) {
  const Lock lock(mutex);
  return store.text(kind);
}

void Desk::set_config(const std::optional<ArchiveConfig>& config, bool on) {
  Lock lock(mutex);
  store.set_config(config, on);
  enabled = on;
  looks_first = true;
  if (config) {
    archive_config = config;
    for (CompartmentStatus& compartment : present.compartments) compartment.used_mb = -2;
  }
  retry_ms = 0;
  retry_now = true;
  if (config || !on) cancel(lock);
  changed.notify_all();
}

void Desk::set_sections(const std::vector<Section>& sections) {
  Lock lock(mutex);
  plan_tasks(sections);
  cancel(lock);
  changed.notify_all();
}

void Desk::stop() {
  Lock lock(mutex);
  stopping = true;
  cancel(lock);
  changed.notify_all();
}

/*
 * The session's client is ended, which breaks every wait for it, those of a login too, for which disabling the session
 * would have to wait. Again and again, because the client may not have been started yet; but not that of the next work,
 * which may begin before this thread sees the end of the one that it waits for.
 */
void Desk::cancel(Lock& lock) {
  const uint64_t number = works;
  cancelled = !sleeping;
  while (!sleeping && works == number) {
    end_children_of(archiving_thread);
    changed.wait_for(lock, std::chrono::milliseconds(20));
  }
}

std::optional<Work> Desk::due_work(int64_t now_ms) {
  if (!archive_config || !enabled) return std::nullopt;
  const auto is_due = [this, now_ms](const std::string& name) { return tasks[name].due_ms <= now_ms; };
  Work work;
  work.begun_ms = now_ms;
  work.config = *archive_config;
  work.all = all_sections;
  /* What is rotated away before the first run is not to be lost: something has to be known of it. */
  if (std::exchange(looks_first, false)) return work;
  if (now_ms < retry_ms) return std::nullopt;
  work.claim = !store.is_claimed();
  work.measure_space = is_due(space_task);
  std::copy_if(all_sections.begin(), all_sections.end(), std::back_inserter(work.sections),
               [&is_due](const Section& section) { return is_due(task_of(section)); });
  if (!work.measure_space && work.sections.empty()) return std::nullopt;
  return work;
}

int64_t Desk::next_look_ms() const {
  if (!archive_config || !enabled) return never;
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
  present.compartments[compartment].used_mb = megabytes;
}

void Desk::set_waiting(const Section& section, int32_t items) {
  const Lock lock(mutex);
  waiting[section.name] = items;
}

void Desk::count_archived(int compartment) {
  const Lock lock(mutex);
  ++present.compartments[compartment].archived;
}
