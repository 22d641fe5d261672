#include "support/recorded_system.h"

#include <errno.h>
#include <fcntl.h>
#include <libintl.h>
#include <poll.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <map>
#include <mutex>
#include <stdexcept>
#include <utility>

#include "support/real_function.h"

namespace {

std::mutex mutex;
std::vector<recorded_system::LogEntry> log_entries;
std::vector<std::string> writes;
std::atomic<bool> recording_writes{false};
std::string refused_text;
std::atomic<bool> refusing{false}; /* the last write was refused */
std::atomic<int64_t> refused_for_ms{0};
std::atomic<bool> uptime_hurries{false};
std::atomic<bool> uptime_stands{false};
timespec standing_uptime;
std::string silence;                    /* the file that tells that nothing more comes */
std::atomic<int64_t> uptime_lead_ms{0}; /* kept, because the clock never goes back */
std::string translated_text, its_translation;
std::atomic<time_t> stopped_time{-1};
std::atomic<int> last_console_flags{-1};
std::atomic<bool> has_console{true};
std::map<std::string, std::function<void()>> actions; /* at the call that is each one's key */
std::atomic<bool> has_actions{false};

/* Datagrams keep each write apart. */
int console_end(size_t which) {
  static int ends[2] = {-1, -1};
  static const int made = socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, ends);
  if (made != 0) throw std::runtime_error("socketpair failed");
  return ends[which];
}

/* Before main, so that who counts descriptors need not know about these. */
[[maybe_unused]] const int end_of_the_test = console_end(0);

timespec sum(timespec time, int64_t milliseconds) {
  const int64_t nanoseconds = time.tv_nsec + milliseconds % 1000 * 1000000;
  time.tv_sec += static_cast<time_t>(milliseconds / 1000 + nanoseconds / 1000000000);
  time.tv_nsec = static_cast<long>(nanoseconds % 1000000000);
  return time;
}

/* Runs, not under the lock, what is to be run at call. */
void arrive_at(const std::string& call) {
  std::function<void()> action;
  {
    const std::lock_guard<std::mutex> lock(mutex);
    const auto found = actions.find(call);
    if (found == actions.end()) return;
    action = std::move(found->second);
    actions.erase(found);
    has_actions = !actions.empty();
  }
  action();
}

bool is_refused(const void* data, size_t length) {
  const std::lock_guard<std::mutex> lock(mutex);
  return !refused_text.empty() && refused_text == std::string(static_cast<const char*>(data), length);
}

/* Lets the time pass that a refused text is waited for, at most timeout. Returns whether the text is taken now. */
bool is_taken_within(int timeout) {
  const int64_t waited = std::min<int64_t>(timeout, refused_for_ms);
  uptime_lead_ms += waited;
  refused_for_ms -= waited;
  if (refused_for_ms > 0) return false;
  recorded_system::refuse_to_write("");
  refusing = false;
  return true;
}

bool waits_to_write(const pollfd* entries, nfds_t count) {
  return std::any_of(entries, entries + count, [](const pollfd& entry) { return (entry.events & POLLOUT) != 0; });
}

}  // namespace

namespace recorded_system {

void reset() {
  recording_writes = false;
  refuse_to_write("");
  refusing = false;
  uptime_hurries = false;
  uptime_stands = false;
  take_writes();
  take_log();
  take_console();
  stopped_time = -1;
  last_console_flags = -1;
  has_console = true;
  translate("", "");
  const std::lock_guard<std::mutex> lock(mutex);
  actions.clear();
  has_actions = false;
}

std::vector<LogEntry> take_log() {
  const std::lock_guard<std::mutex> lock(mutex);
  std::vector<LogEntry> taken;
  taken.swap(log_entries);
  return taken;
}

std::vector<std::string> take_console() {
  std::vector<std::string> warnings;
  char buffer[1024];
  ssize_t n = 0;
  while ((n = recv(console_end(0), buffer, sizeof buffer, MSG_DONTWAIT)) >= 0) {
    warnings.emplace_back(buffer, static_cast<size_t>(n));
  }
  return warnings;
}

int console_flags() { return last_console_flags; }

void remove_console() { has_console = false; }

void set_time(time_t now) { stopped_time = now; }

void hurry_uptime() { uptime_hurries = true; }

void stop_uptime(const std::string& file) {
  real<int(clockid_t, timespec*)>("clock_gettime")(CLOCK_MONOTONIC, &standing_uptime);
  /* At the beginning of a second, so that less than one makes no difference to whole ones. */
  standing_uptime.tv_nsec = 0;
  uptime_lead_ms += 1000;
  silence = file;
  uptime_stands = true;
}

void pass_uptime(int seconds) { uptime_lead_ms += seconds * 1000; }

void refuse_to_write(const std::string& text, int seconds) {
  const std::lock_guard<std::mutex> lock(mutex);
  refused_text = text;
  refused_for_ms = static_cast<int64_t>(seconds) * 1000;
}

void record_writes() { recording_writes = true; }

std::vector<std::string> take_writes() {
  const std::lock_guard<std::mutex> lock(mutex);
  std::vector<std::string> taken;
  taken.swap(writes);
  return taken;
}

void at_next(const std::string& call, std::function<void()> action) {
  const std::lock_guard<std::mutex> lock(mutex);
  actions[call] = std::move(action);
  has_actions = true;
}

void translate(const std::string& text, const std::string& translation) {
  const std::lock_guard<std::mutex> lock(mutex);
  translated_text = text;
  its_translation = translation;
}

}  // namespace recorded_system

STANDS_BEFORE_THE_REAL_ONE void syslog(int priority, const char* format, ...) {
  char text[1024];
  va_list arguments;
  va_start(arguments, format);
  vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  if (has_actions) arrive_at("syslog");
  const std::lock_guard<std::mutex> lock(mutex);
  log_entries.push_back({priority, text});
}

STANDS_BEFORE_THE_REAL_ONE time_t time(time_t* result) noexcept {
  static auto* const real_time = real<time_t(time_t*)>("time");
  if (has_actions) arrive_at("time");
  const time_t stopped = stopped_time;
  const time_t now = stopped == -1 ? real_time(nullptr) : stopped;
  if (result != nullptr) *result = now;
  return now;
}

STANDS_BEFORE_THE_REAL_ONE int clock_gettime(clockid_t clock, timespec* now) noexcept {
  static auto* const real_clock_gettime = real<int(clockid_t, timespec*)>("clock_gettime");
  const int result = real_clock_gettime(clock, now);
  if (clock != CLOCK_MONOTONIC) return result;
  if (uptime_hurries) uptime_lead_ms += 1000;
  *now = sum(uptime_stands ? standing_uptime : *now, uptime_lead_ms);
  return result;
}

STANDS_BEFORE_THE_REAL_ONE int poll(pollfd* entries, nfds_t count, int timeout) {
  static auto* const real_poll = real<int(pollfd*, nfds_t, int)>("poll");
  if (!uptime_stands || timeout <= 0) return real_poll(entries, count, timeout);
  /* What was written before the silence may still be on its way through the terminal. */
  constexpr int longest_way_ms = 50;
  constexpr int longest_nap_ms = 100;
  if (refusing && waits_to_write(entries, count)) return is_taken_within(timeout) ? real_poll(entries, count, 0) : 0;
  for (;;) {
    const bool is_over = timeout <= longest_nap_ms || access(silence.c_str(), F_OK) == 0;
    const int ready = real_poll(entries, count, std::min(timeout, longest_way_ms));
    if (ready != 0) return ready;
    if (is_over) break;
  }
  uptime_lead_ms += timeout;
  return 0;
}

STANDS_BEFORE_THE_REAL_ONE int nanosleep(const timespec* time, timespec* rest) {
  static auto* const real_nanosleep = real<int(const timespec*, timespec*)>("nanosleep");
  if (!uptime_stands) return real_nanosleep(time, rest);
  uptime_lead_ms += static_cast<int64_t>(time->tv_sec) * 1000 + time->tv_nsec / 1000000;
  return 0;
}

/* The headers give this function the name that programs with 64-bit file offsets call. */
STANDS_BEFORE_THE_REAL_ONE int open(const char* path, int flags, ...) {
  if (strcmp(path, "/dev/console") == 0) {
    if (has_actions) arrive_at("console");
    last_console_flags = flags;
    if (has_console) return fcntl(console_end(1), F_DUPFD_CLOEXEC, 0);
    errno = ENXIO;
    return -1;
  }
  static auto* const real_open = real<int(const char*, int, ...)>("open64");
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  return real_open(path, flags, mode);
}

STANDS_BEFORE_THE_REAL_ONE char* dgettext(const char* domain, const char* text) noexcept {
  const std::lock_guard<std::mutex> lock(mutex);
  const bool known = !translated_text.empty() && strcmp(domain, "tavren") == 0 && translated_text == text;
  return const_cast<char*>(known ? its_translation.c_str() : text);
}

STANDS_BEFORE_THE_REAL_ONE ssize_t write(int fd, const void* data, size_t length) {
  static auto* const real_write = real<ssize_t(int, const void*, size_t)>("write");
  if (has_actions) {
    arrive_at("write");
    arrive_at("write " + std::string(static_cast<const char*>(data), length));
  }
  refusing = is_refused(data, length);
  if (refusing) {
    errno = EAGAIN;
    return -1;
  }
  const ssize_t n = real_write(fd, data, length);
  if (n > 0 && recording_writes) {
    const int error = errno;
    const std::lock_guard<std::mutex> lock(mutex);
    writes.emplace_back(static_cast<const char*>(data), static_cast<size_t>(n));
    errno = error;
  }
  return n;
}
