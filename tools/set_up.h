/*
 * Setting the archiving daemon up, in one go, with a person or without.
 */
#ifndef TOOLS_SET_UP_H
#define TOOLS_SET_UP_H

#include <tavren.h>

/* How the command is used. */
extern const char set_up_usage[];

/*
 * Carries out "setup": checks the target, fetches the host's key and has it confirmed, asks for the password, tests the
 * host and claims the directory, sends the configuration to the daemon and switches archiving on. The arguments end in
 * NULL; arguments[-1] is the command's name. Says what it does, and what to do about a failure. Returns the exit
 * status: 0, 1 when something failed, 2 for a wrong command line or without the daemon.
 */
int set_up(tavren_api_handle_t* daemon, char** arguments);

#endif
