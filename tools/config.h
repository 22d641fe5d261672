/*
 * The daemon's configuration, without the password.
 */
#ifndef TOOLS_CONFIG_H
#define TOOLS_CONFIG_H

#include <tavren.h>

/* The commands "config" and "config --json". Return the exit status. */
int show_config(tavren_api_handle_t* daemon, char** arguments);
int show_config_as_json(tavren_api_handle_t* daemon, char** arguments);

#endif
