/*
 * The daemon's status at one moment.
 */
#ifndef TOOLS_STATUS_H
#define TOOLS_STATUS_H

#include <stdbool.h>
#include <stdio.h>
#include <tavren.h>

/* What was asked for. */
struct status {
  tavren_state_t state;
  int sleeping; /* not zero: no session is open or opening */
  tavren_status_t answer;
  char host[TAVREN_API_TEXT_SIZE]; /* empty without a configuration */
  char directory[TAVREN_API_TEXT_SIZE];
  bool has_config; /* the daemon shows its configuration to root alone: the rest is unknown to others */
  char user[TAVREN_API_TEXT_SIZE];
  int32_t limit[TAVREN_COMPARTMENTS]; /* MB, or TAVREN_SPACE_UNLIMITED */
};

/* Asks the daemon. Returns 0, or an error as the client interface has them. */
int read_status(tavren_api_handle_t* daemon, struct status* status);

/* Prints the status for people in eight lines, with a bar of that width (0: none) behind the space that has a limit. */
void print_status(FILE* out, const struct status* status, int bar_width);

/* The commands "status" and "status --json". Return the exit status. */
int show_status(tavren_api_handle_t* daemon, char** arguments);
int show_status_as_json(tavren_api_handle_t* daemon, char** arguments);

#endif
