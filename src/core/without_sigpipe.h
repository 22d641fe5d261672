#ifndef SRC_CORE_WITHOUT_SIGPIPE_H
#define SRC_CORE_WITHOUT_SIGPIPE_H

#include <signal.h>

/*
 * Keeps a SIGPIPE from the calling thread while something is written to a reader that may be gone: the host program
 * need not expect one. One that is pending already stays so.
 */
class WithoutSigpipe {
 public:
  WithoutSigpipe();
  ~WithoutSigpipe();
  WithoutSigpipe(const WithoutSigpipe&) = delete;
  WithoutSigpipe& operator=(const WithoutSigpipe&) = delete;

  /* Takes away the signal that a write may have raised. One that another process has sent meanwhile comes through. */
  void discard() const;

 private:
  sigset_t sigpipe;
  sigset_t old_mask;
  bool was_blocked;
  bool was_pending;
};

#endif
