#include "status.h"

#include <string.h>
#include <unistd.h>

#include "compartments.h"
#include "json.h"
#include "outcome.h"
#include "text.h"

enum { BAR_WIDTH = 10, LABEL_WIDTH = 11 };

/* Fills in what only root is shown. */
static void read_configuration(tavren_api_handle_t* daemon, struct status* status) {
  tavren_config_t config;
  status->has_config = tavren_api_get_config(daemon, &config) == 0;
  if (!status->has_config) {
    return;
  }
  snprintf(status->user, sizeof status->user, "%s", config.settings.user);
  for (int i = 0; i < TAVREN_COMPARTMENTS; ++i) {
    status->limit[i] = config.space_limit[i];
  }
  tavren_config_free_contents(&config);
}

int read_status(tavren_api_handle_t* daemon, struct status* status) {
  /* First, because its refusal is no failure: that the daemon is gone is what the others say. */
  read_configuration(daemon, status);
  int result = tavren_api_get_state(daemon, &status->state);
  if (result == 0) {
    result = tavren_api_is_tavrend_sleeping(daemon, &status->sleeping);
  }
  if (result == 0) {
    result = tavren_api_get_status(daemon, &status->answer);
  }
  if (result == 0) {
    result = tavren_api_get_archive_host(daemon, status->host);
  }
  return result == 0 ? tavren_api_get_archive_directory(daemon, status->directory) : result;
}

static void print_target(FILE* out, const struct status* status) {
  print_label(out, translate("Target:"), LABEL_WIDTH);
  if (status->host[0] == '\0') {
    fputs(translate("not configured"), out);
  } else {
    fprintf(out, "%s%s%s:%s", status->has_config ? status->user : "", status->has_config ? "@" : "", status->host,
            status->directory);
  }
  putc('\n', out);
}

static void print_connection(FILE* out, const tavren_status_t* answer) {
  char when[TAVREN_FORMAT_SIZE];
  print_label(out, translate("Connection:"), LABEL_WIDTH);
  fputs(tavren_connection_status_to_string(answer->connection_status), out);
  if (answer->connection_time > 0) {
    tavren_format_time(answer->connection_time, when);
    fprintf(out, translate(" since %s"), when);
  }
  if (answer->connection_status == TAVREN_CONNECTION_FAILED) {
    fputs(translate(" (tavren_ctl errors says why)"), out);
  }
  putc('\n', out);
}

static void print_bar(FILE* out, int32_t used, int32_t limit, int width) {
  const int64_t filled = limit > 0 ? (int64_t)used * width / limit : width;
  fputs(" [", out);
  for (int i = 0; i < width; ++i) {
    putc(i < filled ? '#' : '-', out);
  }
  putc(']', out);
}

static void print_used(FILE* out, int32_t used) {
  switch (used) {
    case TAVREN_SPACE_NOT_MONITORED:
      fputs(translate("not monitored"), out);
      break;
    case TAVREN_SPACE_UNKNOWN:
      fputs(translate("not measured yet"), out);
      break;
    case TAVREN_SPACE_QUERY_FAILED:
      fputs(translate("measuring failed"), out);
      break;
    default:
      fprintf(out, translate("%ld MB used"), (long)used);
  }
}

static void print_space(FILE* out, const struct status* status, int compartment, int bar_width) {
  const int32_t used = status->answer.compartment_status[compartment].word1;
  const int32_t limit = status->limit[compartment];
  const bool limited = status->has_config && limit != TAVREN_SPACE_UNLIMITED;
  if (limited && used >= 0) {
    fprintf(out, translate("%ld of %ld MB"), (long)used, (long)limit);
    if (bar_width > 0) {
      print_bar(out, used, limit, bar_width);
    }
    return;
  }
  if (status->has_config && !limited && used == TAVREN_SPACE_NOT_MONITORED) {
    fputs(translate("unlimited"), out);
    return;
  }
  print_used(out, used);
  if (limited) {
    fprintf(out, translate(", limit %ld MB"), (long)limit);
  } else if (status->has_config) {
    fputs(translate(", unlimited"), out);
  }
}

void print_status(FILE* out, const struct status* status, int bar_width) {
  print_label(out, translate("Archiving:"), LABEL_WIDTH);
  fprintf(out, "%s\n", tavren_state_to_string(status->state));
  print_label(out, translate("Daemon:"), LABEL_WIDTH);
  fprintf(out, "%s\n", status->sleeping != 0 ? translate("sleeping") : translate("in a session"));
  print_target(out, status);
  print_connection(out, &status->answer);
  for (int i = 0; i < TAVREN_COMPARTMENTS; ++i) {
    const tavren_compartment_status_t* compartment = &status->answer.compartment_status[i];
    fprintf(out, "%s:", compartment_names[i]);
    print_label(out, "", LABEL_WIDTH - 1 - (int)strlen(compartment_names[i]));
    print_space(out, status, i, bar_width);
    putc('\n', out);
    print_label(out, "", LABEL_WIDTH);
    fprintf(out, translate("%ld waiting, %ld archived\n"), (long)compartment->word2, (long)compartment->word3);
  }
}

int show_status(tavren_api_handle_t* daemon, char** arguments) {
  (void)arguments;
  struct status status;
  const int result = read_status(daemon, &status);
  if (result == 0) {
    print_status(stdout, &status, isatty(STDOUT_FILENO) ? BAR_WIDTH : 0);
  }
  return end_call(daemon, result);
}

static const char* connection_word(tavren_connection_status_t status) {
  switch (status) {
    case TAVREN_CONNECTION_NONE:
      return "none";
    case TAVREN_CONNECTION_OK:
      return "ok";
    case TAVREN_CONNECTION_FAILED:
      return "failed";
  }
  return "unknown";
}

static const char* usage_word(int32_t used) {
  switch (used) {
    case TAVREN_SPACE_NOT_MONITORED:
      return "not monitored";
    case TAVREN_SPACE_UNKNOWN:
      return "not measured";
    case TAVREN_SPACE_QUERY_FAILED:
      return "failed";
    default:
      return "measured";
  }
}

static void write_compartment(const struct status* status, int compartment) {
  const tavren_compartment_status_t* words = &status->answer.compartment_status[compartment];
  const bool limited = status->has_config && status->limit[compartment] != TAVREN_SPACE_UNLIMITED;
  printf("    {\"name\": \"%s\", \"usage\": \"%s\", \"used_mb\": ", compartment_names[compartment],
         usage_word(words->word1));
  write_json_number(stdout, words->word1 >= 0, words->word1);
  printf(", \"limited\": %s, \"limit_mb\": ", !status->has_config ? "null" : limited ? "true" : "false");
  write_json_number(stdout, limited, limited ? status->limit[compartment] : 0);
  printf(", \"waiting\": %ld, \"archived\": %ld}", (long)words->word2, (long)words->word3);
}

static void write_status(const struct status* status) {
  printf("{\n  \"state\": \"%s\",\n  \"sleeping\": %s,\n  \"target\": ",
         status->state == TAVREN_STATE_ENABLED ? "enabled" : "disabled", status->sleeping != 0 ? "true" : "false");
  write_json_target(stdout, status->has_config ? status->user : NULL, status->host, status->directory);
  printf(",\n  \"connection\": {\"status\": \"%s\", \"since\": ", connection_word(status->answer.connection_status));
  write_json_number(stdout, status->answer.connection_time > 0, status->answer.connection_time);
  printf("},\n  \"compartments\": [\n");
  for (int i = 0; i < TAVREN_COMPARTMENTS; ++i) {
    write_compartment(status, i);
    puts(i + 1 < TAVREN_COMPARTMENTS ? "," : "");
  }
  puts("  ]\n}");
}

int show_status_as_json(tavren_api_handle_t* daemon, char** arguments) {
  (void)arguments;
  struct status status;
  const int result = read_status(daemon, &status);
  if (result == 0) {
    write_status(&status);
  }
  return end_call(daemon, result);
}
