#include "process/ssh_client.h"

#include <string>

#include "TavrenExceptions.h"
#include "process/deadline.h"

namespace {

constexpr char question[] = "Are you sure you want to continue connecting";
constexpr int yes_send_timeout = 5; /* seconds */

}  // namespace

void accept_host_key(TavrenProcess& client, long deadline) {
  std::string line;
  do {
    /* Lines that keep coming must not keep this from ending: read_line looks at the deadline only when it waits. */
    if (seconds_until(deadline) < 1) throw TavrenTimeout();
  } while (!client.read_line(line, deadline, question));
  client.send("yes\n", yes_send_timeout);
}
