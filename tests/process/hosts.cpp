#include "process/hosts.h"

#include <errno.h>
#include <signal.h>
#include <sys/wait.h>

#include <thread>

namespace {

void ignore_sigchld() { signal(SIGCHLD, SIG_IGN); }

void reap_in_a_handler() {
  struct sigaction reap {};
  reap.sa_handler = [](int) {
    const int error = errno;
    while (waitpid(-1, nullptr, WNOHANG) > 0) {
    }
    errno = error;
  };
  sigaction(SIGCHLD, &reap, nullptr);
}

void reap_in_a_thread() {
  std::thread([] {
    for (;;) {
      if (waitpid(-1, nullptr, 0) == -1) std::this_thread::yield();
    }
  }).detach();
}

}  // namespace

const Named<Host> hosts_that_reap[3] = {
    {"ThatIgnoresSigchld", {ignore_sigchld}},
    {"ThatReapsInAHandler", {reap_in_a_handler}},
    {"ThatReapsInAThread", {reap_in_a_thread}},
};
