#include "tavren_basic.h"

#include <ctype.h>
#include <dirent.h>
#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <string_view>

#include "core/assertion.h"
#include "core/catalogue.h"
#include "tavren_cmem.h"
#include "util/own_files.h"

namespace {

constexpr size_t path_size = 4096;

timespec monotonic_time() {
  timespec now{};
  const int rval = clock_gettime(CLOCK_MONOTONIC, &now);
  TAVREN_ASSERT("tavren_basic", rval == 0);
  return now;
}

int format_megabytes(int mb, char* buffer) { return snprintf(buffer, TAVREN_FORMAT_SIZE, translate("%d MB"), mb); }

int format_text(const char* text, char* buffer) { return snprintf(buffer, TAVREN_FORMAT_SIZE, "%s", text); }

/* Writes a time that the C library has broken down, or the text none where it could not: broken_down is NULL then. */
int format_broken_down_time(const struct tm* broken_down, const char* format, const char* none, char* buffer) {
  if (broken_down == nullptr) return std::min(format_text(none, buffer), TAVREN_FORMAT_SIZE - 1);
  return static_cast<int>(strftime(buffer, TAVREN_FORMAT_SIZE, format, broken_down));
}

/* Letters are those of ASCII: in a Turkish locale the C library's own comparison keeps I and i apart. */
bool is_unlimited(const char* s) {
  constexpr std::string_view word = "unlimited";
  const auto equal = [](char a, char b) { return (a >= 'A' && a <= 'Z' ? a - 'A' + 'a' : a) == b; };
  return std::equal(s, s + strlen(s), word.begin(), word.end(), equal);
}

}  // namespace

int tavren_cstring_to_int(const char* s, int* value) {
  char* end = nullptr;
  const long number = strtol(s, &end, 0);
  if (end == s) return -1;
  while (isspace(static_cast<unsigned char>(*end)) != 0) ++end;
  if (*end != '\0') return -1;
  /* A 64-bit long holds more than an int: clamp, so that every target gives what the 32-bit one gives. */
  *value = static_cast<int>(std::clamp(number, static_cast<long>(INT_MIN), static_cast<long>(INT_MAX)));
  return 0;
}

int tavren_split_fields(char* s, int separator, char*** fields) {
  *fields = nullptr;
  if (*s == '\0') return 0;

  const char cut = static_cast<char>(separator);
  const size_t length = strlen(s);
  const size_t count = static_cast<size_t>(std::count(s, s + length, cut)) + 1;
  /* In 64 bits, because a text of separators only needs more than a 32-bit size can say. */
  const uint64_t size = static_cast<uint64_t>(count) * sizeof(char*) + length + 1;
  char** pointers = size > SIZE_MAX ? nullptr : static_cast<char**>(malloc(static_cast<size_t>(size)));
  if (pointers == nullptr) {
    _tavren_check_alloc("tavren_basic", __LINE__);
    return 0;
  }

  /* The copy of the text lies behind the pointers, in the same allocation. */
  char* field = reinterpret_cast<char*>(pointers + count);
  memcpy(field, s, length + 1);
  char* const end = field + length;
  for (size_t i = 0; i < count; ++i) {
    pointers[i] = field;
    field = std::find(field, end, cut);
    *field++ = '\0';
  }
  *fields = pointers;
  return static_cast<int>(count);
}

int tavren_parse_space_limit(const char* s, int* megabytes) {
  if (!is_unlimited(s)) return tavren_cstring_to_int(s, megabytes);
  *megabytes = TAVREN_SPACE_UNLIMITED;
  return 0;
}

const char* tavren_state_to_string(tavren_state_t state) {
  return state == TAVREN_STATE_ENABLED ? translate("Enabled") : translate("Disabled");
}

const char* tavren_connection_status_to_string(tavren_connection_status_t status) {
  switch (status) {
    case TAVREN_CONNECTION_NONE:
      return translate("None");
    case TAVREN_CONNECTION_OK:
      return translate("OK");
    case TAVREN_CONNECTION_FAILED:
      return translate("Failed");
  }
  return translate("Unknown");
}

int tavren_format_space_limit(int mb, char* buffer) {
  if (mb == TAVREN_SPACE_UNLIMITED) return format_text(translate("Unlimited"), buffer);
  return format_megabytes(mb, buffer);
}

int tavren_format_space_used(int mb, char* buffer) {
  switch (mb) {
    case TAVREN_SPACE_NOT_MONITORED:
      return format_text(translate("Not monitored"), buffer);
    case TAVREN_SPACE_UNKNOWN:
      return format_text(translate("Unknown"), buffer);
    case TAVREN_SPACE_QUERY_FAILED:
      return format_text(translate("Query failed"), buffer);
    default:
      return format_megabytes(mb, buffer);
  }
}

int tavren_format_time(time_t t, char* buffer) {
  struct tm local {};
  return format_broken_down_time(t > 0 ? localtime_r(&t, &local) : nullptr, "%Y/%m/%d %H:%M:%S", translate("None"),
                                 buffer);
}

int tavren_format_iso_time(time_t t, char* buffer) {
  struct tm utc {};
  /* For programs as much as for people: the same in every language. */
  return format_broken_down_time(t > 0 ? gmtime_r(&t, &utc) : nullptr, "%Y-%m-%dT%H:%M:%S", "None", buffer);
}

int tavren_get_uptime() { return static_cast<int>(monotonic_time().tv_sec); }

int64_t tavren_get_uptime_ms() {
  const timespec now = monotonic_time();
  return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

int tavren_create_text_file(const char* path, const char* text) {
  return write_text_and_close(open_stream(path, O_WRONLY | O_CREAT | O_TRUNC), text);
}

int tavren_read_line_from_file(const char* path, char* buffer, int size) {
  return read_line_and_close(open_stream(path, O_RDONLY), buffer, size);
}

void tavren_delete_all_files(const char* directory) {
  DIR* entries = opendir(directory);
  if (entries == nullptr) return;
  while (const dirent* entry = readdir(entries)) {
    if (entry->d_name[0] == '.') continue;
    char path[path_size];
    const int length = snprintf(path, sizeof path, "%s/%s", directory, entry->d_name);
    if (length > 0 && static_cast<size_t>(length) < sizeof path) unlink(path);
  }
  closedir(entries);
}

const char* tavren_get_tmp_root() {
  static char root[path_size];
  if (root[0] == '\0') {
    const char* home = getenv("TAVREN_HOME");
    if (home == nullptr) {
      snprintf(root, sizeof root, "/tmp");
    } else {
      const int length = snprintf(root, sizeof root, "%s/tavren_tmp", home);
      if (length > 0 && static_cast<size_t>(length) < sizeof root) mkdir(root, 0755);
    }
  }
  return root;
}
