#include "tasks.h"

#include <ctype.h>
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "text.h"

enum { LONGEST_INTERVAL = 365 * 24 * 60 * 60 };

char* task_name(const char* name) {
  char* whole = NULL;
  if (strchr(name, '.') != NULL || strcmp(name, "SpaceTask") == 0) {
    return strdup(name);
  }
  if (strcmp(name, "space") == 0) {
    return strdup("SpaceTask");
  }
  return asprintf(&whole, "LogTypeTask.%s", name) == -1 ? NULL : whole;
}

bool has_task(const char* table, const char* name) {
  const size_t length = strlen(name);
  for (const char* row = table; row != NULL; row = strchr(row, '\n')) {
    row += *row == '\n' ? 1 : 0;
    if (strncmp(row, name, length) == 0 && row[length] == ' ') {
      return true;
    }
  }
  return false;
}

/* Returns how many seconds the unit has, 0 when it is none. */
static long seconds_of(const char* unit) {
  static const struct {
    const char* name;
    long seconds;
  } units[] = {{"", 1}, {"s", 1}, {"min", 60}, {"h", 3600}, {"d", 86400}};
  for (size_t i = 0; i < sizeof units / sizeof units[0]; ++i) {
    if (strcmp(units[i].name, unit) == 0) {
      return units[i].seconds;
    }
  }
  return 0;
}

/* Returns the seconds that text stands for, 0 when it is no interval. */
static long parse_interval(const char* text) {
  char* unit = NULL;
  if (!isdigit((unsigned char)*text)) {
    return 0;
  }
  errno = 0;
  const long count = strtol(text, &unit, 10);
  const long seconds = seconds_of(unit);
  return errno != 0 || seconds == 0 || count > LONGEST_INTERVAL / seconds ? 0 : count * seconds;
}

char* interval_value(const char* text) {
  char* value = NULL;
  if (strcmp(text, "default") == 0) {
    return strdup(text);
  }
  const long seconds = parse_interval(text);
  if (seconds > 0 && asprintf(&value, "%ld", seconds) != -1) {
    return value;
  }
  fprintf(stderr,
          translate("tavren_ctl: not an interval: %s (a number of seconds, or with s, min, h, d; from 1 s to 365 d; or "
                    "default)\n"),
          text);
  return NULL;
}
