#include "archiver/desk.h"

#include <algorithm>
#include <chrono>

#include "archiver/children.h"
#include "plan/schedule.h"
#include "tavren_basic.h"

namespace {

using Lock = std::unique_lock<std::mutex>;

constexpr int32_t space_interval = 3600; /* seconds */

std::string kind_of_interval(const std::string& task) { return "interval." + task; }

}  // namespace

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
  const int64_t now = tavren_get_uptime_ms();
  task.due_ms = now + first_delay_ms(chassis, name, task.interval);
  /* One that was planned before keeps its place, unless its interval is another now; one that is due stays so. */
  const auto before = tasks.find(name);
  if (before != tasks.end() && (before->second.interval == task.interval || before->second.due_ms <= now)) {
    task.due_ms = before->second.due_ms;
  }
  return task;
}

void Desk::end_the_wait_after_a_failure() {
  retry_ms = 0;
  retry_now = true;
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
  end_the_wait_after_a_failure();
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
  end_the_wait_after_a_failure();
  if (config || !on) cancel(lock);
  changed.notify_all();
}

void Desk::set_sections(const std::vector<Section>& sections) {
  Lock lock(mutex);
  plan_tasks(sections);
  end_the_wait_after_a_failure();
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
 * which may begin before this thread sees the end of the one that it waits for. One that has more to send than its host
 * takes waits for that before it ends, and is killed.
 */
void Desk::cancel(Lock& lock) {
  const uint64_t number = works;
  cancelled = !sleeping;
  const int64_t end_of_patience_ms = tavren_get_uptime_ms() + 1000;
  while (!sleeping && works == number) {
    end_children_of(archiving_thread, tavren_get_uptime_ms() < end_of_patience_ms ? SIGTERM : SIGKILL);
    changed.wait_for(lock, std::chrono::milliseconds(20));
  }
}
