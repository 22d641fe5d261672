#include "daemon/connection.h"

#include <errno.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <unistd.h>

#include "core/standard_streams.h"
#include "tavren_basic.h"
#include "tavren_rpc.h"

namespace {

constexpr char daemon_host[] = "localhost";
constexpr char daemon_netid[] = "tcp";
constexpr int number_size = 64; /* bytes of the line that names another program number */

/* Returns the number under which the daemon is registered, looked up anew. */
int program_number() {
  /* The first call decides for the life of the process, as it does for the temporary root. */
  static const bool may_be_overridden = getenv("TAVREN_HOME") != nullptr;
  if (!may_be_overridden) return TAVREN_RPC_PROG_DEFAULT;

  const char* root = tavren_get_tmp_root();
  char path[4096 + sizeof "/tavrend_rpc_num"];
  snprintf(path, sizeof path, "%s/tavrend_rpc_num", root);
  char line[number_size];
  int number = TAVREN_RPC_PROG_DEFAULT;
  if (tavren_read_line_from_file(path, line, sizeof line) == 0) tavren_cstring_to_int(line, &number);
  return number;
}

int descriptor_of(CLIENT* client) {
  int fd = -1;
  return clnt_control(client, CLGET_FD, reinterpret_cast<char*>(&fd)) == FALSE ? -1 : fd;
}

/*
 * Makes a client. In a host program that has closed its standard streams the RPC library's socket would land there, and
 * what the program then prints would go to the daemon. A client that landed there holds the place while another one is
 * made.
 */
CLIENT* create_client(rpcprog_t program) {
  CLIENT* client = clnt_create(daemon_host, program, TAVREN_RPC_VERS, daemon_netid);
  const int fd = client == nullptr ? -1 : descriptor_of(client);
  if (fd == -1 || fd > STDERR_FILENO) return client;
  CLIENT* beside = create_client(program);
  clnt_destroy(client);
  return beside;
}

/*
 * The RPC library's socket would pass to every child that the host program starts, and keep the connection for it. And
 * its time limit holds for what it reads alone: a daemon that takes nothing would stop a long request for ever. It
 * tries to write the rest of such a request about four times, which together come to the limit of a call.
 */
void prepare_socket(CLIENT* client) {
  constexpr timeval write_timeout{6, 0};
  const int fd = descriptor_of(client);
  fcntl(fd, F_SETFD, FD_CLOEXEC);
  setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &write_timeout, sizeof write_timeout);
}

/* Connects, whatever signals arrive. Returns whether it worked; errno tells why not. */
bool connects(int fd, const sockaddr_in& address) {
  int result = 0;
  do {
    result = connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address);
  } while (result == -1 && errno == EINTR);
  return result == 0;
}

/*
 * Looks whether the RPC services take a connection, as clnt_create is about to. The RPC library keeps their address,
 * and when a later connection with it fails, because the services have gone away or no descriptor is left, its
 * version 1.3.3 frees the address twice, which ends the process. Returns false, with the reason where clnt_create
 * leaves it, when they do not.
 */
bool services_answer() {
  const sockaddr_in services = {AF_INET, htons(PMAPPORT), {htonl(INADDR_LOOPBACK)}, {}};
  const int fd = keep_off_standard_streams(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  /* clnt_create has the list of networks open meanwhile. */
  const int second = fd == -1 ? -1 : fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  const bool answered = second != -1 && connects(fd, services);
  if (!answered) {
    rpc_createerr.cf_stat = RPC_SYSTEMERROR;
    rpc_createerr.cf_error.re_errno = errno;
  }
  if (second != -1) close(second);
  if (fd != -1) close(fd);
  return answered;
}

}  // namespace

CLIENT* connect_to_daemon(const WithoutSigpipe& guard) {
  const int program = program_number();
  if (!services_answer()) return nullptr;
  CLIENT* client = create_client(static_cast<rpcprog_t>(program));
  guard.discard();
  if (client != nullptr) prepare_socket(client);
  return client;
}

bool renew_if_out_of_step(CLIENT*& client, const WithoutSigpipe& guard) {
  rpc_err last{};
  clnt_geterr(client, &last);
  /* A write with a time limit also ends when the process is stopped and goes on. */
  const bool not_taken_whole = last.re_status == RPC_CANTSEND && (last.re_errno == EAGAIN || last.re_errno == EINTR);
  if (last.re_status != RPC_TIMEDOUT && !not_taken_whole) return true;
  CLIENT* fresh = connect_to_daemon(guard);
  if (fresh == nullptr) return false;
  clnt_destroy(client);
  client = fresh;
  return true;
}
