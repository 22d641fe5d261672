#include "core/without_sigpipe.h"

#include <time.h>
#include <unistd.h>

namespace {

bool sigpipe_is_pending() {
  sigset_t pending;
  return sigpending(&pending) == 0 && sigismember(&pending, SIGPIPE) == 1;
}

}  // namespace

WithoutSigpipe::WithoutSigpipe() {
  sigemptyset(&sigpipe);
  sigaddset(&sigpipe, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &sigpipe, &old_mask);
  was_blocked = sigismember(&old_mask, SIGPIPE) == 1;
  was_pending = was_blocked && sigpipe_is_pending();
}

WithoutSigpipe::~WithoutSigpipe() {
  if (!was_blocked) pthread_sigmask(SIG_SETMASK, &old_mask, nullptr);
}

void WithoutSigpipe::discard() const {
  constexpr timespec at_once{};
  siginfo_t info;
  if (was_pending || sigtimedwait(&sigpipe, &info, &at_once) != SIGPIPE) return;
  if (info.si_pid != getpid()) kill(getpid(), SIGPIPE);
}
