#include "sessions.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "tavren_assert.h"
#include "tavren_constants.h"
#include "tavren_share.h"

namespace {

[[noreturn]] void fail(const std::string& what) { throw std::runtime_error(what + ": " + strerror(errno)); }

std::vector<char*> pointers_to(const std::vector<std::string>& words) {
  std::vector<char*> pointers;
  for (const std::string& word : words) pointers.push_back(const_cast<char*>(word.c_str()));
  pointers.push_back(nullptr);
  return pointers;
}

std::string contents(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path).rdbuf();
  return text.str();
}

/* Returns the command line of this program's only child. */
std::vector<std::string> command_of_child() {
  std::string child = contents("/proc/thread-self/children");
  child.resize(child.find(' '));
  std::istringstream in(contents("/proc/" + child + "/cmdline"));
  std::vector<std::string> words;
  for (std::string word; std::getline(in, word, '\0');) words.push_back(word);
  return words;
}

}  // namespace

ArchiveHost::ArchiveHost(const char* program) {
  char message[TAVREN_MESSAGE_SIZE];
  setenv("TAVREN_HOME", from_environment("LAB").c_str(), 1);
  tavren_set_program_name(program);
  if (tavren_setup_tmp_dir(program, message) != 0) throw std::runtime_error(message);
}

ArchiveHost::~ArchiveHost() { tavren_cleanup_tmp_dir(); }

std::string from_environment(const char* name) {
  const char* text = getenv(name);
  if (text == nullptr)
    throw std::runtime_error(std::string(name) + " is not set: run this with tests/lab/archive-host");
  return text;
}

std::string archived(const std::string& name) { return from_environment("LAB_ARCHIVE") + "/" + name; }

void Disconnect::operator()(TavrenHost* host) const {
  host->close_connection();
  delete host;
}

LibrarySession new_session() {
  std::string host = from_environment("LAB_HOST"), dir = from_environment("LAB_ARCHIVE");
  std::string user = from_environment("LAB_USER"), password = from_environment("LAB_PASSWORD");
  std::string host_key = from_environment("LAB_HOST_KEY"), fingerprint;
  LibrarySession session(new TavrenHost(false, false));
  session->set_settings({host.data(), dir.data(), user.data(), password.data(), host_key.data(), fingerprint.data()});
  session->enable();
  return session;
}

LibrarySession connected_session() {
  LibrarySession session = new_session();
  session->open_connection();
  return session;
}

const std::vector<std::string>& client_command() {
  /* The file with the host's key that it names outlives the session. */
  static const std::vector<std::string> words = [] {
    const LibrarySession session = connected_session();
    return command_of_child();
  }();
  return words;
}

void run_program(const std::vector<std::string>& words) {
  char* const no_environment[] = {nullptr};
  posix_spawn_file_actions_t quietly;
  posix_spawn_file_actions_init(&quietly);
  posix_spawn_file_actions_addopen(&quietly, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&quietly, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  pid_t pid = -1;
  const int error = posix_spawn(&pid, words[0].c_str(), &quietly, nullptr, pointers_to(words).data(), no_environment);
  posix_spawn_file_actions_destroy(&quietly);
  int status = 0;
  if (error != 0 || waitpid(pid, &status, 0) != pid || status != 0) throw std::runtime_error(words[0] + " failed");
}

BareSession::BareSession(size_t read_size) : child(-1), master(-1), buffer(read_size, '\0') {
  const std::vector<char*> argv = pointers_to(client_command());
  char* const no_environment[] = {nullptr};
  child = forkpty(&master, nullptr, nullptr, nullptr);
  if (child == 0) {
    termios settings{};
    tcgetattr(STDIN_FILENO, &settings);
    cfmakeraw(&settings);
    tcsetattr(STDIN_FILENO, TCSANOW, &settings);
    execve(argv[0], argv.data(), no_environment);
    _exit(1);
  }
  /* Several of these live at once: a client that held another's terminal would keep it from ending. */
  if (child == -1 || fcntl(master, F_SETFD, FD_CLOEXEC) == -1) fail("forkpty");
  read_until("'s password: ");
  write(from_environment("LAB_PASSWORD") + "\n");
  read_until("SHELL STARTED.\n");
}

BareSession::~BareSession() {
  kill(child, SIGTERM);
  close(master);
  waitpid(child, nullptr, 0);
}

void BareSession::write(const char* data, size_t length) {
  while (length > 0) {
    const ssize_t n = ::write(master, data, length);
    if (n <= 0) fail("write");
    data += n;
    length -= static_cast<size_t>(n);
  }
}

void BareSession::write_pieces(const char* data, size_t length, size_t piece) {
  for (size_t done = 0; done < length; done += piece) write(data + done, std::min(piece, length - done));
}

void BareSession::poll_pieces(const char* data, size_t length, size_t piece) {
  const int flags = fcntl(master, F_GETFL);
  fcntl(master, F_SETFL, flags | O_NONBLOCK);
  for (size_t done = 0; done < length;) {
    const ssize_t n = ::write(master, data + done, std::min(piece - done % piece, length - done));
    if (n > 0) {
      done += static_cast<size_t>(n);
    } else if (n == 0 || errno == EAGAIN) {
      siginfo_t info{};
      waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOHANG | WNOWAIT);
      if (info.si_pid != 0) fail("the client has ended");
      pollfd full{master, POLLOUT, 0};
      poll(&full, 1, 1000);
    } else {
      fail("write");
    }
  }
  fcntl(master, F_SETFL, flags);
}

/* Returns 0 at the end of the output. */
size_t BareSession::read_more() {
  const ssize_t n = read(master, buffer.data(), buffer.size());
  if (n == -1 && errno == EIO) return 0;
  if (n == -1) fail("read");
  unread.append(buffer, 0, static_cast<size_t>(n));
  return static_cast<size_t>(n);
}

void BareSession::read_consent() {
  while (unread.empty()) {
    if (read_more() == 0) fail("the session has ended");
  }
  if (unread.front() != '\0') throw std::runtime_error("the sink says: " + unread);
  unread.erase(0, 1);
}

void BareSession::read_until(const std::string& text) {
  while (unread.size() < text.size() || unread.compare(unread.size() - text.size(), text.size(), text) != 0) {
    if (read_more() == 0) throw std::runtime_error("the session ended with: " + unread);
  }
  unread.clear();
}

/*
 * What the client has left unread can only be seen from its side of the terminal. A moment of emptiness says little: a
 * last piece may still be on its way to the buffer that is looked at.
 */
void BareSession::end_of_file() {
  const int slave = ioctl(master, TIOCGPTPEER, O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (slave == -1) fail("TIOCGPTPEER");
  for (int empty = 0; empty < 5;) {
    poll(nullptr, 0, 1);
    int count = 0;
    if (ioctl(slave, FIONREAD, &count) == -1) fail("FIONREAD");
    empty = count == 0 ? empty + 1 : 0;
  }
  close(slave);
  termios settings{};
  if (tcgetattr(master, &settings) == -1) fail("tcgetattr");
  settings.c_lflag |= ICANON;
  if (tcsetattr(master, TCSANOW, &settings) == -1) fail("tcsetattr");
  write("\x04", 1);
  while (read_more() != 0) {
  }
}

void BareSession::start_file(const std::string& path, size_t size) {
  write("echo '_TAV/REN_' BEGIN; scp -q -t '" + path + "'; echo; echo '_TAV/REN_' END\n");
  /* The sink's first answer may stand behind the marker already. */
  const std::string marker = "_TAV/REN_ BEGIN\n";
  size_t found = 0;
  while ((found = unread.find(marker)) == std::string::npos) {
    if (read_more() == 0) fail("the session has ended");
  }
  unread.erase(0, found + marker.size());
  read_consent();
  write("C0644 " + std::to_string(size) + " " + std::filesystem::path(path).filename().string() + "\n");
  read_consent();
}

void BareSession::end_file() {
  write("\0E\n", 3);
  read_consent(); /* to the data */
  read_consent(); /* to the "E" */
  read_until("_TAV/REN_ END\n");
}

void BareSession::start_stream(const std::string& path) {
  write("echo '_TAV/REN_' BEGIN; /bin/cat >'" + path + "' || /bin/cat >/dev/null\n");
  read_until("_TAV/REN_ BEGIN\n");
}
