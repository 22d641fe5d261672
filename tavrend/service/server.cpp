#include "service/server.h"

#include <errno.h>
#include <netinet/in.h>
#include <poll.h>
#include <rpc/rpc.h>
#include <rpc/rpc_com.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <syslog.h>
#include <unistd.h>

#include <linux/sockios.h>

#include <algorithm>
#include <exception>
#include <iterator>
#include <vector>

#include "service/procedures.h"
#include "service/rpcbind.h"
#include "tavren_basic.h"
#include "tavren_rpc.h"

namespace {

constexpr int largest_request = 1 << 20; /* bytes; sets the RPC library's non-blocking record mode, too */
constexpr int most_connections = 64;
constexpr int64_t look_interval_ms = 300000;
constexpr int64_t retry_interval_ms = 5000;

Desk* served_desk = nullptr; /* the RPC library hands its callbacks nothing of ours */
SVCXPRT* transport = nullptr;

[[noreturn]] void fail(const char* call) { throw ServerError(std::string(call) + ": " + strerror(errno)); }

int listening_socket() {
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd == -1) fail("socket");
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == -1) fail("bind");
  if (listen(fd, SOMAXCONN) == -1) fail("listen");
  return fd;
}

/* What a caller has not taken yet of earlier answers. One who takes nothing would keep the next answer waiting. */
bool takes_nothing(int fd) {
  int unsent = 0;
  return ioctl(fd, SIOCOUTQ, &unsent) == 0 && unsent > 0;
}

/* Nothing may be thrown through the RPC library. */
void dispatch(svc_req* request, SVCXPRT* caller) {
  if (takes_nothing(caller->xp_fd)) {
    /* The RPC library looks at the caller once more behind this call, and destroys it at the end of what it has sent.
     */
    shutdown(caller->xp_fd, SHUT_RDWR);
    return;
  }
  try {
    answer_request(*served_desk, request, caller);
  } catch (const std::exception& error) {
    syslog(LOG_ERR, "a call failed: %s", error.what());
    svcerr_systemerr(caller);
  }
}

int program_number() {
  /* As the library's clients find it. */
  char line[64];
  int number = TAVREN_RPC_PROG_DEFAULT;
  if (getenv("TAVREN_HOME") == nullptr) return number;
  const std::string path = std::string(tavren_get_tmp_root()) + "/tavrend_rpc_num";
  if (tavren_read_line_from_file(path.c_str(), line, sizeof line) == 0) tavren_cstring_to_int(line, &number);
  return number;
}

sockaddr_in own_address() {
  sockaddr_in ours{};
  socklen_t size = sizeof ours;
  if (getsockname(transport->xp_fd, reinterpret_cast<sockaddr*>(&ours), &size) == -1) fail("getsockname");
  return ours;
}

bool is_in(const std::vector<int>& numbers, int number) {
  return std::find(numbers.begin(), numbers.end(), number) != numbers.end();
}

/*
 * Closes the connections that have been there longest, so that idle callers leave room for others. callers are those
 * of the last time, in the order in which they came: a descriptor's number says nothing of that.
 */
void limit_connections(std::vector<int>& callers) {
  std::vector<int> open;
  for (int i = 0; i < svc_max_pollfd; ++i) {
    if (svc_pollfd[i].fd != -1 && svc_pollfd[i].fd != transport->xp_fd) open.push_back(svc_pollfd[i].fd);
  }
  callers.erase(std::remove_if(callers.begin(), callers.end(), [&open](int fd) { return !is_in(open, fd); }),
                callers.end());
  std::copy_if(open.begin(), open.end(), std::back_inserter(callers),
               [&callers](int fd) { return !is_in(callers, fd); });
  for (size_t i = 0; callers.size() - i > most_connections; ++i) shutdown(callers[i], SHUT_RDWR);
}

}  // namespace

/* Which program it is is found out once: at the end there may be no memory for it. */
Server::Server(Desk& desk) : program(static_cast<rpcprog_t>(program_number())) {
  served_desk = &desk;
  int limit = largest_request;
  rpc_control(RPC_SVC_CONNMAXREC_SET, &limit);
  const int fd = listening_socket();
  transport = svc_vc_create(fd, 0, 0);
  if (transport == nullptr) {
    close(fd);
    throw ServerError("svc_vc_create failed");
  }
  /* Without a network nothing is registered: rpcbind is told without the RPC library, which would wait for it. */
  if (svc_reg(transport, program, TAVREN_RPC_VERS, dispatch, nullptr) == FALSE) throw ServerError("svc_reg failed");
  register_with_rpcbind();
}

Server::~Server() {
  Rpcbind(program, TAVREN_RPC_VERS).unset();
  svc_destroy(transport);
}

void Server::register_with_rpcbind() {
  const bool was_registered = is_registered;
  Rpcbind rpcbind(program, TAVREN_RPC_VERS);
  if (!is_registered || !rpcbind.names(own_address())) {
    if (was_registered) syslog(LOG_WARNING, "the registration with rpcbind was lost");
    is_registered = rpcbind.set(own_address());
    if (!is_registered && !was_missed) syslog(LOG_WARNING, "there is no rpcbind to register with; trying again");
    if (is_registered && was_missed) syslog(LOG_NOTICE, "registered with rpcbind");
    was_missed = !is_registered;
  }
  next_look_ms = tavren_get_uptime_ms() + (is_registered ? look_interval_ms : retry_interval_ms);
}

int Server::milliseconds_to_next_look() const {
  return static_cast<int>(std::max<int64_t>(next_look_ms - tavren_get_uptime_ms(), 0));
}

void Server::serve(int signal_fd, const std::function<bool(int)>& handle) {
  std::vector<int> callers;
  for (;;) {
    std::vector<pollfd> entries(svc_pollfd, svc_pollfd + svc_max_pollfd);
    entries.push_back({signal_fd, POLLIN, 0});
    int ready = poll(entries.data(), entries.size(), milliseconds_to_next_look());
    if (ready == -1 && errno != EINTR) fail("poll");
    if (milliseconds_to_next_look() == 0) register_with_rpcbind();
    if (ready <= 0) continue;
    signalfd_siginfo info{};
    if ((entries.back().revents & POLLIN) != 0) {
      --ready;
      if (read(signal_fd, &info, sizeof info) == sizeof info && !handle(static_cast<int>(info.ssi_signo))) return;
    }
    if (ready > 0) svc_getreq_poll(entries.data(), static_cast<int>(entries.size()) - 1);
    limit_connections(callers);
  }
}
