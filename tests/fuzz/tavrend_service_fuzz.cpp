/*
 * The daemon's service, which is sent any bytes by root and by connections that end anywhere: it ends them or answers,
 * and the next caller is served as if nothing had been.
 */
#include <arpa/inet.h>
#include <errno.h>
#include <netinet/in.h>
#include <rpc/rpc.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <filesystem>
#include <thread>

#include "daemon/wire.h"
#include "fuzz/fuzz.h"
#include "service/procedures.h"
#include "service/server.h"
#include "support/files.h"
#include "support/temporary_directory.h"
#include "tavren_rpc.h"

namespace {

constexpr int patience = 60;                /* seconds that only a service that hangs is waited for */
constexpr uint32_t own_program = 555555555; /* the machine's own daemon stays registered */

std::string home_of_own_program(const TemporaryDirectory& directory) {
  setenv("TAVREN_HOME", directory.path().c_str(), 1);
  std::filesystem::create_directory(directory.path("tavren_tmp"));
  write_file(directory.path("tavren_tmp/tavrend_rpc_num"), std::to_string(own_program));
  return directory.path("state");
}

/* The service in a thread of its own, for as long as there are inputs. */
class Service {
 public:
  Service() : store(home_of_own_program(directory)), desk(store, {}, "CH-1"), server(desk) {
    MUST(pipe(signals) == 0);
    thread = std::thread([this] { server.serve(signals[0], [](int) { return false; }); });
  }
  ~Service() {
    signalfd_siginfo end{};
    end.ssi_signo = SIGTERM;
    MUST(write(signals[1], &end, sizeof end) == sizeof end);
    thread.join();
  }
  Service(const Service&) = delete;
  Service& operator=(const Service&) = delete;

 private:
  const TemporaryDirectory directory;
  Store store;
  Desk desk;
  Server server;
  int signals[2] = {-1, -1};
  std::thread thread;
};

/* Where this process listens. */
uint16_t listening_port() {
  sockaddr_in address{};
  for (int fd = 3; fd < 100; ++fd) {
    int listens = 0;
    socklen_t size = sizeof listens;
    if (getsockopt(fd, SOL_SOCKET, SO_ACCEPTCONN, &listens, &size) != 0 || listens == 0) continue;
    size = sizeof address;
    if (getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size) == 0) return address.sin_port;
  }
  MUST(false);
  return 0;
}

class Connection {
 public:
  explicit Connection(uint16_t port) : fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    const timeval limit = {patience, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    const sockaddr_in address = {AF_INET, port, {htonl(INADDR_LOOPBACK)}, {}};
    MUST(connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0);
  }
  ~Connection() { close(fd); }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  /* What cannot be sent any more, because the service has ended the connection, is not. */
  void send_bytes(const std::string& bytes) const { (void)!send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL); }
  void end_sending() const { shutdown(fd, SHUT_WR); }

  /* Returns everything that comes until the service ends the connection, which it must. */
  void read_to_the_end() const {
    char bytes[4096];
    ssize_t n = 0;
    while ((n = recv(fd, bytes, sizeof bytes, 0)) > 0) {
    }
    MUST(n == 0 || errno == ECONNRESET);
  }

  std::string read_bytes(size_t size) const {
    std::string bytes(size, 'x');
    const ssize_t n = recv(fd, bytes.data(), size, MSG_WAITALL);
    bytes.resize(n < 0 ? 0 : static_cast<size_t>(n));
    return bytes;
  }

 private:
  const int fd;
};

std::string call_of(uint32_t procedure) {
  std::string call;
  for (const uint32_t unit : {uint32_t{7}, uint32_t{CALL}, uint32_t{RPC_MSG_VERSION}, own_program,
                              uint32_t{TAVREN_RPC_VERS}, procedure, 0U, 0U, 0U, 0U}) {
    call += wire::unit(unit);
  }
  return call;
}

std::string as_record(const std::string& bytes) {
  return wire::unit(0x80000000U | static_cast<uint32_t>(bytes.size())) + bytes;
}

/* The next caller, who asks for nothing. */
void expect_an_answer(uint16_t port) {
  const Connection connection(port);
  connection.send_bytes(as_record(call_of(TAVREN_RPC_NULL)));
  std::string accepted = wire::unit(7);
  for (const uint32_t unit : {uint32_t{REPLY}, uint32_t{MSG_ACCEPTED}, 0U, 0U, uint32_t{SUCCESS}}) {
    accepted += wire::unit(unit);
  }
  MUST(connection.read_bytes(accepted.size() + 4) == as_record(accepted));
}

}  // namespace

/* The first byte says what is sent: bytes as they are, in a record, or as the argument of a procedure. */
int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const Service service;
  static const uint16_t port = listening_port();
  Input input(data, size);
  const uint8_t kind = input.byte();
  {
    const Connection connection(port);
    std::string bytes = input.rest();
    if (kind >= 2) bytes.insert(0, call_of(kind - 2U));
    connection.send_bytes(kind >= 1 ? as_record(bytes) : bytes);
    connection.end_sending();
    connection.read_to_the_end();
  }
  expect_an_answer(port);
  return 0;
}
