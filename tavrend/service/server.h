#ifndef TAVREND_SERVICE_SERVER_H
#define TAVREND_SERVICE_SERVER_H

#include <rpc/rpc.h>

#include <functional>
#include <stdexcept>

#include "archiver/desk.h"

/* Why calls cannot be served at all. */
struct ServerError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/*
 * Serves the daemon's protocol on 127.0.0.1, and there alone, registered with the machine's rpcbind. Where that is not
 * there, a line in the system log says so, and it is tried again every 5 seconds; a registration that was lost is
 * noticed within 5 minutes. One in a process.
 */
class Server {
 public:
  explicit Server(Desk& desk);
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  /* Serves calls, and calls handle with each signal that the process gets of those blocked, until it returns false. */
  void serve(int signal_fd, const std::function<bool(int)>& handle);

 private:
  void register_with_rpcbind();
  int milliseconds_to_next_look() const;

  const rpcprog_t program;
  bool is_registered = false;
  bool was_missed = false; /* the system log says so */
  int64_t next_look_ms = 0;
};

#endif
