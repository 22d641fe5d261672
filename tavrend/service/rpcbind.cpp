#include "service/rpcbind.h"

#include <arpa/inet.h>
#include <rpc/rpcb_prot.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <string_view>
#include <vector>

#include "service/as_filter.h"

namespace {

constexpr timeval patience = {1, 0};

char netid[] = "tcp";
char owner[] = ""; /* rpcbind asks the kernel */

/* Returns address as rpcbind writes it: the port in two numbers behind the four others. */
std::string universal(const sockaddr_in& address) {
  char host[INET_ADDRSTRLEN] = "";
  inet_ntop(AF_INET, &address.sin_addr, host, sizeof host);
  const unsigned int port = ntohs(address.sin_port);
  return std::string(host) + "." + std::to_string(port >> 8) + "." + std::to_string(port & 0xFF);
}

/* Returns a socket that is connected with rpcbind, or -1. Where too many wait for it, that takes its time, too. */
int connected_socket(sockaddr_un& rpcbind) {
  rpcbind.sun_family = AF_UNIX;
  strcpy(rpcbind.sun_path, _PATH_RPCBINDSOCK);
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd == -1) return -1;
  setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
  if (connect(fd, reinterpret_cast<const sockaddr*>(&rpcbind), sizeof rpcbind) == 0) return fd;
  close(fd);
  return -1;
}

}  // namespace

Rpcbind::Rpcbind(rpcprog_t program_number, rpcvers_t program_version)
    : program(program_number), version(program_version) {
  sockaddr_un rpcbind{};
  fd = connected_socket(rpcbind);
  netbuf address{sizeof rpcbind, sizeof rpcbind, &rpcbind};
  if (fd != -1) client = clnt_vc_create(fd, &address, RPCBPROG, RPCBVERS, 0, 0);
}

Rpcbind::~Rpcbind() {
  if (client != nullptr) clnt_destroy(client);
  if (fd != -1) close(fd);
}

template <class Argument, class Result>
bool Rpcbind::call(rpcproc_t procedure, bool_t (*argument_filter)(XDR*, Argument*), Argument* argument,
                   bool_t (*result_filter)(XDR*, Result*), Result* result) {
  if (client == nullptr) return false;
  if (clnt_call(client, procedure, as_filter(argument_filter), reinterpret_cast<char*>(argument),
                as_filter(result_filter), reinterpret_cast<char*>(result), patience) == RPC_SUCCESS) {
    return true;
  }
  clnt_destroy(client);
  client = nullptr;
  return false;
}

bool Rpcbind::change(rpcproc_t procedure, const std::string& address) {
  std::string text = address; /* the record's members could be written to */
  rpcb what{program, version, netid, text.data(), owner};
  bool_t done = FALSE;
  return call(procedure, xdr_rpcb, &what, xdr_bool, &done) && done != FALSE;
}

bool Rpcbind::names(const sockaddr_in& address) {
  rpcblist_ptr all = nullptr;
  if (!call<void>(RPCBPROC_DUMP, xdr_nothing, nullptr, xdr_rpcblist_ptr, &all)) return false;
  std::vector<std::string> named;
  for (const rp__list* entry = all; entry != nullptr; entry = entry->rpcb_next) {
    const rpcb& map = entry->rpcb_map;
    if (map.r_prog == program && map.r_vers == version && std::string_view(map.r_netid) == netid)
      named.emplace_back(map.r_addr);
  }
  xdr_free(as_filter(xdr_rpcblist_ptr), reinterpret_cast<char*>(&all));
  return named == std::vector<std::string>{universal(address)};
}

bool Rpcbind::set(const sockaddr_in& address) {
  unset();
  return change(RPCBPROC_SET, universal(address));
}

void Rpcbind::unset() { change(RPCBPROC_UNSET, ""); }
