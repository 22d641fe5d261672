#include "tavrend/traced_process.h"

#include <errno.h>
#include <signal.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>

namespace {

/* The flag in the signal number that tells a system call from a SIGTRAP of the process's own. */
constexpr int at_a_call = SIGTRAP | 0x80;

/* The processes that the program starts are none of its threads, and are let alone. */
constexpr long options = PTRACE_O_TRACESYSGOOD | PTRACE_O_TRACECLONE | PTRACE_O_TRACEEXEC | PTRACE_O_EXITKILL;

[[noreturn]] void become(const std::vector<std::string>& command) {
  std::vector<char*> arguments;
  for (const std::string& argument : command) arguments.push_back(const_cast<char*>(argument.c_str()));
  arguments.push_back(nullptr);
  ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
  raise(SIGSTOP);
  execv(arguments[0], arguments.data());
  _exit(127);
}

}  // namespace

TracedProcess::TracedProcess(const std::vector<std::string>& command) : leader(fork()) {
  if (leader == 0) become(command);
  int status = 0;
  if (leader == -1 || waitpid(leader, &status, 0) != leader || !WIFSTOPPED(status) ||
      ptrace(PTRACE_SETOPTIONS, leader, nullptr, options) != 0) {
    throw std::runtime_error("nobody may trace a process here");
  }
}

TracedProcess::~TracedProcess() { end(); }

/* The leader's end is told when all other threads have theirs. */
void TracedProcess::end() {
  if (leader == -1) return;
  kill(leader, SIGKILL);
  int status = 0;
  for (pid_t thread = 0; leader != -1 && (thread = waitpid(-1, &status, __WALL)) != -1;) {
    if (thread == leader && !WIFSTOPPED(status)) leader = -1;
  }
}

bool TracedProcess::run(const Seen& seen) {
  goes_on = true;
  ptrace(PTRACE_SYSCALL, leader, nullptr, nullptr);
  while (goes_on) {
    int status = 0;
    const pid_t thread = waitpid(-1, &status, __WALL);
    if (thread == -1) throw std::runtime_error("nothing is left to be traced");
    if (WIFSTOPPED(status)) {
      stop_at_the_next_call(thread, status, seen);
    } else if (thread == leader) {
      leader = -1;
      return true;
    }
  }
  end();
  return false;
}

void TracedProcess::stop_at_the_next_call(pid_t thread, int status, const Seen& seen) {
  const int number = WSTOPSIG(status);
  const bool is_own = number == at_a_call || number == SIGTRAP || number == SIGSTOP;
  if (number == at_a_call && is_system_call_over(thread)) goes_on = seen(calls[thread]);
  if (goes_on) ptrace(PTRACE_SYSCALL, thread, nullptr, is_own ? 0L : static_cast<long>(number));
}

/* Notes what the thread does. */
bool TracedProcess::is_system_call_over(pid_t thread) {
  __ptrace_syscall_info info{};
  if (ptrace(PTRACE_GET_SYSCALL_INFO, thread, sizeof info, &info) <= 0) return false;
  SystemCall& call = calls[thread];
  if (info.op == PTRACE_SYSCALL_INFO_ENTRY) {
    call.number = info.entry.nr;
    std::copy(std::begin(info.entry.args), std::end(info.entry.args), std::begin(call.arguments));
  } else if (info.op == PTRACE_SYSCALL_INFO_EXIT) {
    call.result = info.exit.rval;
    return true;
  }
  return false;
}
