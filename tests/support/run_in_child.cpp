#include "support/run_in_child.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <stdio.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <stdexcept>

namespace {

/* A file in memory: the child may write any amount without anybody reading meanwhile. */
int memory_file(const std::string& content = "") {
  const int fd = memfd_create("stream", MFD_CLOEXEC);
  if (fd == -1 || write(fd, content.data(), content.size()) != static_cast<ssize_t>(content.size())) {
    throw std::runtime_error("memfd_create failed");
  }
  lseek(fd, 0, SEEK_SET);
  return fd;
}

std::string take_content(int fd) {
  std::string content(static_cast<size_t>(lseek(fd, 0, SEEK_END)), '\0');
  if (pread(fd, content.data(), content.size(), 0) != static_cast<ssize_t>(content.size())) {
    throw std::runtime_error("pread failed");
  }
  close(fd);
  return content;
}

/* An emulator has the last word in the place of a child that a signal ends. */
std::string without_the_emulators_words(std::string text) {
#ifdef EMULATOR
  const size_t last_line = text.rfind("qemu: uncaught target signal ");
  if (last_line != std::string::npos) text.resize(last_line);
#endif
  return text;
}

}  // namespace

bool Outcome::exited_with(int status) const { return WIFEXITED(wait_status) && WEXITSTATUS(wait_status) == status; }

bool Outcome::killed_by(int signal_number) const {
  return WIFSIGNALED(wait_status) && WTERMSIG(wait_status) == signal_number;
}

Outcome run_in_child(const std::function<void()>& action, const std::string& input) {
  const int in = memory_file(input);
  const int out = memory_file();
  const int err = memory_file();
  fflush(nullptr);
  const pid_t pid = fork();
  if (pid == 0) {
    dup2(in, STDIN_FILENO);
    dup2(out, STDOUT_FILENO);
    dup2(err, STDERR_FILENO);
    const rlimit no_core{0, 0};
    setrlimit(RLIMIT_CORE, &no_core);
    action();
    fflush(nullptr);
    _exit(0);
  }
  int status = 0;
  if (pid == -1 || waitpid(pid, &status, 0) != pid) throw std::runtime_error("fork failed");
  close(in);
  return {status, take_content(out), without_the_emulators_words(take_content(err))};
}

std::string without_line_number(const std::string& diagnostic) {
  const size_t end = diagnostic.find(")\n");
  const size_t colon = diagnostic.rfind(':', end);
  if (end == std::string::npos || colon == std::string::npos) return diagnostic;
  return diagnostic.substr(0, colon) + ":LINE" + diagnostic.substr(end);
}

std::string assertion_diagnostic(const std::string& source, const std::string& expression) {
  return "\nASSERTION ERROR (" + source + ":LINE)\nassertion failed: " + expression + "\n";
}

void expect_assertion(const std::string& source, const std::string& expression, const std::function<void()>& action) {
  const Outcome outcome = run_in_child(action);
  EXPECT_TRUE(outcome.killed_by(SIGABRT)) << "wait status " << outcome.wait_status;
  EXPECT_EQ(without_line_number(outcome.err), assertion_diagnostic(source, expression));
}
