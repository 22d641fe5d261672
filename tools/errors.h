/*
 * The errors that the daemon has stored.
 */
#ifndef TOOLS_ERRORS_H
#define TOOLS_ERRORS_H

#include <tavren.h>

/* The commands "errors" and "errors --json". Return the exit status. */
int show_errors(tavren_api_handle_t* daemon, char** arguments);
int show_errors_as_json(tavren_api_handle_t* daemon, char** arguments);

#endif
