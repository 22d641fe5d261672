#ifndef SRC_PROCESS_SSH_CLIENT_H
#define SRC_PROCESS_SSH_CLIENT_H

#include "TavrenProcess.h"

/*
 * Answers yes when the secure shell client, which has been given no known hosts, asks whether to go on with this one.
 * What it says before is dropped. Throws as reading and sending do.
 */
void accept_host_key(TavrenProcess& client, long deadline);

#endif
