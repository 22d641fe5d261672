/* Texts quoted for the shell: a real one, kept open beside the target, must read of each what went in. */
#include <errno.h>
#include <spawn.h>
#include <sys/socket.h>
#include <unistd.h>

#include "TavrenHost.h"
#include "fuzz/fuzz.h"

namespace {

/* A shell that reads commands from a socket and writes to it. It ends when the target does. */
class Shell {
 public:
  Shell() {
    int ends[2];
    MUST(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0);
    posix_spawn_file_actions_t actions;
    MUST(posix_spawn_file_actions_init(&actions) == 0);
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO})
      MUST(posix_spawn_file_actions_adddup2(&actions, ends[1], fd) == 0);
    char* argv[] = {const_cast<char*>("sh"), nullptr};
    char* environment[] = {nullptr};
    MUST(posix_spawn(&pid, "/bin/sh", &actions, nullptr, argv, environment) == 0);
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    socket = ends[0];
  }

  /* Lets the shell execute a line. */
  void type(const std::string& line) const {
    for (size_t p = 0; p < line.size();) {
      const ssize_t n = send(socket, line.data() + p, line.size() - p, MSG_NOSIGNAL);
      MUST(n > 0 || errno == EINTR);
      if (n > 0) p += static_cast<size_t>(n);
    }
  }

  /* Returns what the shell writes up to the next NUL byte. */
  std::string answer() {
    size_t end = 0;
    while ((end = output.find('\0')) == std::string::npos) {
      char buffer[4096];
      const ssize_t n = read(socket, buffer, sizeof buffer);
      MUST(n > 0 || (n == -1 && errno == EINTR));
      if (n > 0) output.append(buffer, static_cast<size_t>(n));
    }
    const std::string text = output.substr(0, end);
    output.erase(0, end + 1);
    return text;
  }

 private:
  pid_t pid = -1;
  int socket = -1;
  std::string output;
};

/* The length that quoting must give: two quotes, and three characters more for each quote inside. */
size_t quoted_length(const std::string& text) {
  return text.size() + 2 + 3 * static_cast<size_t>(std::count(text.begin(), text.end(), '\''));
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static Shell& shell = *new Shell; /* never destroyed: the shell ends when the socket does */
  const std::string any = Input(data, size).rest();
  MUST(TavrenHost::quote_for_shell(any).size() == quoted_length(any));

  /* No shell can be given a NUL byte. */
  const std::string text = up_to_nul(any.substr(0, 4000));
  const std::string quoted = TavrenHost::quote_for_shell(text);
  shell.type("printf '%s\\0' " + quoted + "\n");
  MUST(shell.answer() == text);

  /* As a part of a longer word, and where another word follows. */
  shell.type("x=a" + quoted + "b; printf '%s\\0%s\\0' \"$x\" " + quoted + "$?\n");
  MUST(shell.answer() == "a" + text + "b");
  MUST(shell.answer() == text + "0");
  return 0;
}
