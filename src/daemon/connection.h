#ifndef SRC_DAEMON_CONNECTION_H
#define SRC_DAEMON_CONNECTION_H

#include <rpc/rpc.h>
#include <signal.h>

/*
 * Keeps a SIGPIPE from the calling thread while the RPC library writes to a daemon that may have died: the host program
 * need not expect one. One that is pending already stays so.
 */
class WithoutSigpipe {
 public:
  WithoutSigpipe();
  ~WithoutSigpipe();
  WithoutSigpipe(const WithoutSigpipe&) = delete;
  WithoutSigpipe& operator=(const WithoutSigpipe&) = delete;

  /* Takes away the signal that a write may have raised. One that another process has sent meanwhile comes through. */
  void discard() const;

 private:
  sigset_t sigpipe;
  sigset_t old_mask;
  bool was_blocked;
  bool was_pending;
};

/* Returns a client of the daemon, NULL when there is no connection. */
CLIENT* connect_to_daemon(const WithoutSigpipe& guard);

/*
 * A call that ran out of time leaves the stream in the middle of a reply that may never come: the RPC library would
 * take the next one for the rest of it, and each call after that would run out of time as well; the same with a request
 * that was not taken whole. So such a client is replaced before it is used again. Returns false, the old client in its
 * place, when there is no connection.
 */
bool renew_if_out_of_step(CLIENT*& client, const WithoutSigpipe& guard);

#endif
