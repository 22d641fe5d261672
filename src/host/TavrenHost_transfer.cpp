#include <ctype.h>
#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <unistd.h>

#include <algorithm>

#include "TavrenExceptions.h"
#include "TavrenHost.h"
#include "TavrenTunables.h"
#include "core/assertion.h"
#include "process/deadline.h"
#include "tavren_util.h"

/*
 * Files go to the remote copy program, which is the receiving end of the secure copy protocol; streams go to a remote
 * cat. Both run in the session's one shell.
 */
namespace {

constexpr unsigned int SCP_CHUNK_SIZE = 2048; /* bytes passed to one continue_send_file */
constexpr int leave_send_timeout = 5;         /* seconds */
constexpr int64_t largest_file = 0xFFFFFFFF;  /* bytes that a transfer can announce */

constexpr char begin_marker[] = "_TAV/REN_ BEGIN";
constexpr char end_marker[] = "_TAV/REN_ END";
/* Quoted in two pieces, so that a terminal's echo of the typed line is not taken for the marker. */
constexpr char echo_begin_marker[] = "echo '_TAV/REN_' BEGIN; ";
constexpr char echo_end_marker[] = "; echo; echo '_TAV/REN_' END\n";

/* Behind the command in a time-out's text: at which end of the transfer it was. */
constexpr char starting[] = " (0)";
constexpr char ending[] = " (1)";

int command_timeout() { return TavrenTunables::instance().get_ssh_command_timeout(); }

/* Returns path quoted as an argument of a program, which would take a name with a leading hyphen for an option. */
std::string path_argument(const std::string& path) {
  const bool looks_like_an_option = !path.empty() && path.front() == '-';
  return TavrenHost::quote_for_shell(looks_like_an_option ? "./" + path : path);
}

/* Returns the number of bytes in the file open at fd, and goes to its beginning. */
int64_t file_size(int fd, const std::string& name) {
  const off_t size = lseek(fd, 0, SEEK_END);
  if (size == -1 || lseek(fd, 0, SEEK_SET) == -1) tavren_throw_syscall_error("lseek(" + name + ")", -1);
  if (size > largest_file) tavren_throw_syscall_error("lseek(" + name + ")", EFBIG);
  return size;
}

/* Reads at most length bytes of the file open at fd. Throws when it fails or has ended. */
unsigned int read_piece(int fd, const std::string& name, char* buffer, size_t length) {
  const ssize_t n = read(fd, buffer, length);
  if (n <= 0) tavren_throw_syscall_error("read(" + name + ")", n == 0 ? 0 : -1);
  return static_cast<unsigned int>(n);
}

/*
 * Returns whether the secure shell client ended without the far shell's having ended well: by a signal, or by itself
 * because the connection or the shell was gone.
 */
bool was_cut_off(const siginfo_t& end) {
  constexpr int lost_connection = 255;
  return end.si_pid != 0 && (end.si_code != CLD_EXITED || end.si_status == lost_connection);
}

}  // namespace

void TavrenHost::throw_transfer_timeout(const char* step) const {
  throw TavrenError(TAVREN_E_COMMAND_TIMEOUT, running_command + step, "");
}

/* The far side says nothing while all is well, so a line is a complaint. */
void TavrenHost::throw_unexpected_line(const std::string& line) const {
  TavrenError error(TAVREN_E_INCORRECT_OUTPUT, running_command, "1");
  error.add_line(TAVREN_E_COMMAND_OUTPUT, line, "");
  error.add_line(TAVREN_E_EXPECTED_OUTPUT, "", "");
  throw error;
}

/* Reads the sink's answer: a zero byte, or another one and a message. */
void TavrenHost::get_scp_response() {
  const long deadline = deadline_after(command_timeout());
  const int byte = child().read_byte(deadline);
  if (byte == 0) return;

  std::string message;
  try {
    child().read_line(message, deadline, "");
  } catch (const TavrenTimeout&) {
  } catch (const TavrenError&) {
    /* What has been understood so far is worth more than why there is no more of it. */
  }
  /* No sink answers in print: this is the shell, complaining that there is no copy program. */
  if (isprint(byte) != 0) message.insert(message.begin(), static_cast<char>(byte));
  if (byte == 1) dismiss_sink(deadline);

  TavrenError error(TAVREN_E_COMMAND_FAILED, running_command, tavren_int_to_string(byte));
  error.add_line(TAVREN_E_COMMAND_OUTPUT, message, "");
  console_error_connection(nullptr);
  throw error;
}

/* Makes a sink that has given a warning exit. One that has exited by itself must not hide its warning. */
void TavrenHost::dismiss_sink(long deadline) {
  try {
    child().send("E\n", leave_send_timeout);
    child().read_byte(deadline);
  } catch (const TavrenTimeout&) {
  } catch (const TavrenError&) {
  }
}

void TavrenHost::start_send_file(const std::string& path, uint32_t size, unsigned int mode) {
  const std::string name = tavren_basename(path);
  /*
   * A newline ends the protocol's header: the sink would take what follows for the file's data, and the shell would
   * execute the bytes that are then too many.
   */
  if (name.find('\n') != std::string::npos) throw TavrenError(TAVREN_E_CREATE_REMOTE_FILE, path, "");

  running_command = get_cmd("scp") + path_argument(path);
  char header[32];
  snprintf(header, sizeof header, "C%04o %lld ", mode, static_cast<long long>(size));
  try {
    start_transfer(echo_end_marker);
    get_scp_response();
    child().send(header + name + "\n", command_timeout());
    get_scp_response();
  } catch (const TavrenTimeout&) {
    throw_transfer_timeout(starting);
  }
}

/*
 * Runs running_command in the shell, followed by what_follows, and waits for its marker: a shell that reads its input
 * in blocks takes bytes that come before the command has started for commands.
 */
void TavrenHost::start_transfer(const std::string& what_follows) {
  const int timeout = command_timeout();
  const long deadline = deadline_after(timeout);
  child().send(echo_begin_marker + running_command + what_follows, timeout);
  wait_for_line(begin_marker, deadline);
}

void TavrenHost::continue_send_file(const char* data, unsigned int length) {
  TAVREN_ASSERT("TavrenHost", running_command.size() != 0);
  child().send_bytes(data, length, command_timeout());
  std::string line;
  if (child().read_line_if_available(line)) throw_unexpected_line(line);
}

void TavrenHost::end_send_file() {
  TAVREN_ASSERT("TavrenHost", running_command.size() != 0);
  const int timeout = command_timeout();
  const long deadline = deadline_after(timeout);
  try {
    child().send_bytes("\0E\n", 3, timeout);
    get_scp_response(); /* to the data */
    get_scp_response(); /* to the "E" */
    wait_for_line(end_marker, deadline);
    running_command.clear();
  } catch (const TavrenTimeout&) {
    throw_transfer_timeout(ending);
  }
}

void TavrenHost::send_file(int fd, const std::string& name, const std::string& path, int size, unsigned int mode) {
  const int64_t total = size < 0 ? file_size(fd, name) : size;
  start_send_file(path, static_cast<uint32_t>(total), mode);
  char piece[SCP_CHUNK_SIZE];
  for (int64_t remaining = total; remaining > 0;) {
    const auto wanted = static_cast<size_t>(std::min<int64_t>(remaining, SCP_CHUNK_SIZE));
    const unsigned int length = read_piece(fd, name, piece, wanted);
    continue_send_file(piece, length);
    remaining -= length;
  }
  end_send_file();
}

void TavrenHost::send_data(const char* data, int size, const std::string& path, unsigned int mode) {
  TAVREN_ASSERT("TavrenHost", size >= 0);
  start_send_file(path, static_cast<uint32_t>(size), mode);
  for (unsigned int rest = static_cast<unsigned int>(size); rest > 0;) {
    const unsigned int length = std::min(rest, SCP_CHUNK_SIZE);
    continue_send_file(data, length);
    data += length;
    rest -= length;
  }
  end_send_file();
}

void TavrenHost::start_send_stream(const std::string& path) {
  const std::string cat = get_cmd("cat");
  running_command = cat + ">" + quote_for_shell(path);
  try {
    /* When the file cannot be opened the second cat swallows the data, so that the shell never executes it. */
    start_transfer(" || " + cat + ">/dev/null\n");
  } catch (const TavrenTimeout&) {
    throw_transfer_timeout(starting);
  }
}

void TavrenHost::continue_send_stream(const char* data, unsigned int length) { continue_send_file(data, length); }

void TavrenHost::end_send_stream() {
  TAVREN_ASSERT("TavrenHost", running_command.size() != 0);
  const int timeout = command_timeout();
  const long deadline = deadline_after(timeout);
  try {
    child().send_eof(timeout);
    std::string line;
    if (child_says_nothing_more(line, deadline)) return;
    throw_unexpected_line(line);
  } catch (const TavrenTimeout&) {
    throw_transfer_timeout(ending);
  }
}

/*
 * Returns true when the child has come to its end without another word, false with the line that it said instead. A
 * child that was killed, or has lost the far shell, has not come to its end.
 */
bool TavrenHost::child_says_nothing_more(std::string& line, long deadline) {
  try {
    child().read_line(line, deadline, "");
    return false;
  } catch (const TavrenError& error) {
    if (error.get_ecode() != TAVREN_E_PROGRAM_EXITED || was_cut_off(child().wait_for_end(deadline))) throw;
    return true;
  }
}

void TavrenHost::remove_file(const std::string& path) { run_and_check_ecode(get_cmd("rm") + path_argument(path)); }

void TavrenHost::make_directory(const std::string& path) {
  run_and_check_ecode(get_cmd("mkdir") + path_argument(path));
}

bool TavrenHost::remove_first_file(const std::string& dir) {
  std::list<std::string> lines;
  /* The directory is not quoted, so that it may hold shell patterns. */
  run_and_check_ecode(get_cmd("ls") + dir + " 2>/dev/null | " + get_cmd("head"), lines);
  if (lines.empty()) return false;
  remove_file(dir + "/" + lines.front());
  return true;
}

void TavrenHost::try_to_create_file(const std::string& path) {
  const std::string quoted = path_argument(path);
  run_and_expect_line("echo file-is-writable >" + quoted + " && echo OK", "OK");
  run_and_expect_line(get_cmd("cat") + quoted, "file-is-writable");
  run_line(get_cmd("rm") + quoted, nullptr);
}
