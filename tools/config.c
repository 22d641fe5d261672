#include "config.h"

#include <stdio.h>

#include "compartments.h"
#include "json.h"
#include "outcome.h"
#include "text.h"

enum { LABEL_WIDTH = 13 };

static void print_line(const char* label, const char* value) {
  print_label(stdout, label, LABEL_WIDTH);
  puts(value);
}

static void print_config(const tavren_config_t* config) {
  const tavren_settings_t* settings = &config->settings;
  char limit[TAVREN_FORMAT_SIZE];
  if (settings->host[0] == '\0') {
    print_line(translate("Target:"), translate("not configured"));
  } else {
    print_label(stdout, translate("Target:"), LABEL_WIDTH);
    printf("%s@%s:%s\n", settings->user, settings->host, settings->dir);
  }
  print_line(translate("Password:"), settings->password[0] != '\0' ? translate("set") : translate("not set"));
  print_line(translate("Host key:"),
             settings->host_key[0] != '\0' ? settings->fingerprint : translate("none: any is accepted"));
  for (int i = 0; i < TAVREN_COMPARTMENTS; ++i) {
    char label[TAVREN_FORMAT_SIZE];
    tavren_format_space_limit(config->space_limit[i], limit);
    snprintf(label, sizeof label, translate("Limit %s:"), compartment_names[i]);
    print_line(label, limit);
  }
}

static int show_by(tavren_api_handle_t* daemon, void (*show)(const tavren_config_t*)) {
  tavren_config_t config;
  const int result = tavren_api_get_config(daemon, &config);
  if (result == 0) {
    show(&config);
    tavren_config_free_contents(&config);
  }
  return end_call(daemon, result);
}

int show_config(tavren_api_handle_t* daemon, char** arguments) {
  (void)arguments;
  return show_by(daemon, print_config);
}

static void write_config(const tavren_config_t* config) {
  const tavren_settings_t* settings = &config->settings;
  fputs("{\n  \"target\": ", stdout);
  write_json_target(stdout, settings->user, settings->host, settings->dir);
  printf(",\n  \"password_set\": %s,\n  \"host_key\": ", settings->password[0] != '\0' ? "true" : "false");
  write_json_text(stdout, settings->host_key);
  fputs(",\n  \"fingerprint\": ", stdout);
  write_json_text(stdout, settings->fingerprint);
  fputs(",\n  \"limits_mb\": {", stdout);
  for (int i = 0; i < TAVREN_COMPARTMENTS; ++i) {
    printf("%s\"%s\": ", i > 0 ? ", " : "", compartment_names[i]);
    write_json_number(stdout, config->space_limit[i] != TAVREN_SPACE_UNLIMITED, config->space_limit[i]);
  }
  puts("}\n}");
}

int show_config_as_json(tavren_api_handle_t* daemon, char** arguments) {
  (void)arguments;
  return show_by(daemon, write_config);
}
