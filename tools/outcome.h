/*
 * How a command of tavren_ctl ends.
 */
#ifndef TOOLS_OUTCOME_H
#define TOOLS_OUTCOME_H

#include <tavren.h>

enum { EXIT_DONE = 0, EXIT_REFUSED = 1, EXIT_NO_DAEMON_OR_USAGE = 2 }; /* the last also when nobody takes the output */

/* Ends a command whose call returned result and which printed what there was to print. Returns the exit status. */
int end_call(const tavren_api_handle_t* daemon, int result);

/* Ends a request that the daemon may have refused with a message, which is freed. Returns the exit status. */
int end_request(const tavren_api_handle_t* daemon, int result, char* refusal);

/* Prints a text of the daemon's, which is freed, or if_none without one. Returns the exit status. */
int end_text(const tavren_api_handle_t* daemon, int result, char* text, const char* if_none);

/* Ends a command that has no memory. Returns the exit status. */
int end_without_memory(void);

#endif
