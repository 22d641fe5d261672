#include "service/caller.h"

#include <errno.h>
#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/sock_diag.h>
#include <netinet/in.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

struct Request {
  nlmsghdr header;
  inet_diag_req_v2 body;
};

/* A netlink socket for one question. */
class Question {
 public:
  Question() : fd(socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_SOCK_DIAG)) {}
  ~Question() {
    if (fd != -1) close(fd);
  }
  Question(const Question&) = delete;
  Question& operator=(const Question&) = delete;

  /* Returns the length of the answer, -1 when there is none. */
  ssize_t ask(const Request& request, char* answer, size_t size) const {
    if (fd == -1 || send(fd, &request, sizeof request, 0) != static_cast<ssize_t>(sizeof request)) return -1;
    ssize_t n = 0;
    do {
      n = recv(fd, answer, size, 0);
    } while (n == -1 && errno == EINTR);
    return n;
  }

 private:
  const int fd;
};

bool addresses_of(int fd, sockaddr_in& ours, sockaddr_in& theirs) {
  socklen_t size = sizeof ours;
  if (getsockname(fd, reinterpret_cast<sockaddr*>(&ours), &size) == -1) return false;
  size = sizeof theirs;
  return getpeername(fd, reinterpret_cast<sockaddr*>(&theirs), &size) == 0 && ours.sin_family == AF_INET &&
         theirs.sin_family == AF_INET;
}

/* Asks for the caller's socket, whose own address is what is their address to us. */
Request request_for(const sockaddr_in& ours, const sockaddr_in& theirs) {
  Request request{};
  request.header.nlmsg_len = sizeof request;
  request.header.nlmsg_type = SOCK_DIAG_BY_FAMILY;
  request.header.nlmsg_flags = NLM_F_REQUEST;
  request.body.sdiag_family = AF_INET;
  request.body.sdiag_protocol = IPPROTO_TCP;
  request.body.idiag_states = ~0U;
  request.body.id.idiag_sport = theirs.sin_port;
  request.body.id.idiag_dport = ours.sin_port;
  request.body.id.idiag_src[0] = theirs.sin_addr.s_addr;
  request.body.id.idiag_dst[0] = ours.sin_addr.s_addr;
  request.body.id.idiag_cookie[0] = request.body.id.idiag_cookie[1] = INET_DIAG_NOCOOKIE;
  return request;
}

/* A question that finds no such socket may be answered by another one's, or by one that listens. */
bool is_about(const inet_diag_sockid& asked, const inet_diag_sockid& answered) {
  return asked.idiag_sport == answered.idiag_sport && asked.idiag_dport == answered.idiag_dport &&
         asked.idiag_src[0] == answered.idiag_src[0] && asked.idiag_dst[0] == answered.idiag_dst[0];
}

}  // namespace

std::optional<uid_t> caller_of(int fd) {
  sockaddr_in ours{};
  sockaddr_in theirs{};
  if (!addresses_of(fd, ours, theirs)) return std::nullopt;
  alignas(nlmsghdr) char answer[4096];
  const Request request = request_for(ours, theirs);
  const ssize_t length = Question().ask(request, answer, sizeof answer);
  nlmsghdr header{};
  inet_diag_msg message{};
  if (length < static_cast<ssize_t>(NLMSG_LENGTH(sizeof message))) return std::nullopt;
  memcpy(&header, answer, sizeof header);
  memcpy(&message, answer + NLMSG_HDRLEN, sizeof message);
  if (header.nlmsg_type != SOCK_DIAG_BY_FAMILY || message.idiag_inode == 0) return std::nullopt;
  if (!is_about(request.body.id, message.id)) return std::nullopt;
  return message.idiag_uid;
}
