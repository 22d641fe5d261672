#ifndef TESTS_PROCESS_SIGNAL_STORM_H
#define TESTS_PROCESS_SIGNAL_STORM_H

#include <signal.h>
#include <sys/time.h>

/* Sends this process a SIGALRM, which it catches and forgets, every ten milliseconds while it lives. */
class SignalStorm {
 public:
  SignalStorm() {
    struct sigaction catch_it {};
    catch_it.sa_handler = [](int) {};
    sigaction(SIGALRM, &catch_it, nullptr);
    const itimerval often{{0, 10000}, {0, 10000}};
    setitimer(ITIMER_REAL, &often, nullptr);
  }
  ~SignalStorm() {
    const itimerval never{};
    setitimer(ITIMER_REAL, &never, nullptr);
    signal(SIGALRM, SIG_DFL);
  }
  SignalStorm(const SignalStorm&) = delete;
  SignalStorm& operator=(const SignalStorm&) = delete;
};

#endif
