/*
 * The daemon's status, again and again.
 */
#ifndef TOOLS_WATCH_H
#define TOOLS_WATCH_H

#include <tavren.h>

/*
 * The command "watch": on a terminal the status is drawn anew each second until somebody presses q; elsewhere it is
 * printed each second, with an empty line behind it. A daemon that goes away is waited for. Returns the exit status.
 */
int watch(tavren_api_handle_t* daemon, char** arguments);

#endif
