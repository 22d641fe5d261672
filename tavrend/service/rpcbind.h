#ifndef TAVREND_SERVICE_RPCBIND_H
#define TAVREND_SERVICE_RPCBIND_H

#include <netinet/in.h>
#include <rpc/rpc.h>

#include <string>

/*
 * A conversation with the machine's rpcbind about one program, over TCP, on rpcbind's local socket. It is not there, or
 * it answers within a second: the RPC library's own ways to it wait for a minute, in which nobody would be served and
 * no signal be heard, and with its version 1.3.3 a look for an rpcbind that has gone may end the process. Once
 * something has failed, everything else fails at once.
 */
class Rpcbind {
 public:
  Rpcbind(rpcprog_t program, rpcvers_t version);
  ~Rpcbind();
  Rpcbind(const Rpcbind&) = delete;
  Rpcbind& operator=(const Rpcbind&) = delete;

  /* Whether the program is found at address, and nowhere else. */
  bool names(const sockaddr_in& address);

  /* Registers the program at address, in place of any other one. Returns whether that was done. */
  bool set(const sockaddr_in& address);

  /* Takes back what the program is registered at. */
  void unset();

 private:
  template <class Argument, class Result>
  bool call(rpcproc_t procedure, bool_t (*argument_filter)(XDR*, Argument*), Argument* argument,
            bool_t (*result_filter)(XDR*, Result*), Result* result);
  bool change(rpcproc_t procedure, const std::string& address);

  const rpcprog_t program;
  const rpcvers_t version;
  int fd = -1;
  CLIENT* client = nullptr; /* none: there is no rpcbind, or it does not answer */
};

#endif
