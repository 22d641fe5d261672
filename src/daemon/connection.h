#ifndef SRC_DAEMON_CONNECTION_H
#define SRC_DAEMON_CONNECTION_H

#include <rpc/rpc.h>

#include "core/without_sigpipe.h"

/* Returns a client of the daemon, NULL when there is no connection. guard keeps SIGPIPE away. */
CLIENT* connect_to_daemon(const WithoutSigpipe& guard);

/*
 * A call that ran out of time leaves the stream in the middle of a reply that may never come: the RPC library would
 * take the next one for the rest of it, and each call after that would run out of time as well; the same with a request
 * that was not taken whole. So such a client is replaced before it is used again. Returns false, the old client in its
 * place, when there is no connection.
 */
bool renew_if_out_of_step(CLIENT*& client, const WithoutSigpipe& guard);

#endif
