#ifndef TESTS_TAVREND_TRACED_PROCESS_H
#define TESTS_TAVREND_TRACED_PROCESS_H

#include <stdint.h>
#include <sys/types.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

/* A system call that is over. */
struct SystemCall {
  uint64_t number = 0;
  uint64_t arguments[6] = {};
  int64_t result = 0; /* negative: an error number */
};

/*
 * A program that stops at each system call of each of its threads, by ptrace. The processes that it starts run as
 * always. To be used by the thread that has made it.
 */
class TracedProcess {
 public:
  /* Starts the program, up to its first instruction. */
  explicit TracedProcess(const std::vector<std::string>& command);
  /* Kills it, if it is still there. */
  ~TracedProcess();
  TracedProcess(const TracedProcess&) = delete;
  TracedProcess& operator=(const TracedProcess&) = delete;

  pid_t pid() const { return leader; }

  /* What is called behind each system call, while its thread stands still. Returns whether the process may go on. */
  using Seen = std::function<bool(const SystemCall&)>;

  /*
   * Lets the process run until it ends, or seen does not let it go on: it is killed there. Returns whether it has ended
   * by itself.
   */
  bool run(const Seen& seen);

 private:
  void end();
  void stop_at_the_next_call(pid_t thread, int status, const Seen& seen);
  bool is_system_call_over(pid_t thread);

  pid_t leader = -1;
  bool goes_on = true;
  std::map<pid_t, SystemCall> calls; /* that a thread has begun */
};

#endif
