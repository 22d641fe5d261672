#include <errno.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "TavrenError.h"
#include "TavrenExceptions.h"
#include "TavrenProcess.h"
#include "core/assertion.h"
#include "process/deadline.h"
#include "tavren_util.h"

namespace {

constexpr size_t recent_lines_limit = 20;
constexpr int output_limit = 102400; /* bytes of one read operation */
constexpr size_t read_size = 1024;

/* A wait for writing looks after its child this often: nothing else would tell it that a pipe's reader is gone. */
constexpr int64_t child_check_seconds = 1;

/* The end of a terminal's output is 0, or EIO once its last slave is closed and the buffered bytes are read. */
bool is_end(ssize_t n) { return n == 0 || (n == -1 && errno == EIO); }

/*
 * Reads what is there. Only a second end in a row is one: the kernel looks for bytes first and for the closed slave
 * afterwards, so those that a child writes and closes behind in between are still there after the first.
 */
ssize_t read_output(int fd, char* buffer, size_t size) {
  for (bool ended_before = false;;) {
    const ssize_t n = read(fd, buffer, size);
    if (!is_end(n) || ended_before) return n;
    ended_before = true;
  }
}

/* The longest wait that poll's milliseconds can hold is taken for no limit. */
int poll_timeout(int64_t seconds) {
  constexpr int64_t longest = 2147483;
  return seconds < longest ? static_cast<int>(seconds * 1000) : 2147483647;
}

}  // namespace

int TavrenProcess::read_byte(long deadline) {
  TAVREN_ASSERT("TavrenProcess", master_fd != -1);
  if (pending_output.empty()) wait_for_new_data(deadline);
  const auto byte = static_cast<unsigned char>(pending_output.front());
  pending_output.erase(0, 1);
  return byte;
}

bool TavrenProcess::read_line(std::string& line, long deadline, const std::string& prefix) {
  return read_line(line, deadline, Prefixes{&prefix, 1});
}

bool TavrenProcess::read_line(std::string& line, long deadline, Prefixes prefixes) {
  TAVREN_ASSERT("TavrenProcess", master_fd != -1);
  bytes_this_read = static_cast<int>(pending_output.size());
  return get_next_line(line, deadline, prefixes);
}

/* Takes a line if a whole one is there already. Unlike read_line it has nothing to throw in the ordinary case. */
bool TavrenProcess::read_line_if_available(std::string& line) {
  TAVREN_ASSERT("TavrenProcess", master_fd != -1);
  bytes_this_read = static_cast<int>(pending_output.size());
  while (!take_line(line)) {
    if (read_new_data() == 0) return false;
  }
  return true;
}

void TavrenProcess::expect(const std::string& text, std::list<std::string>& lines, long deadline) {
  TAVREN_ASSERT("TavrenProcess", master_fd != -1);
  bytes_this_read = static_cast<int>(pending_output.size());
  do {
    std::string line;
    get_next_line(line, deadline, "");
    lines.push_back(std::move(line));
  } while (lines.back().find(text) == std::string::npos);
}

void TavrenProcess::read_until_line_starts_with(const std::string& prefix, long deadline) {
  read_until_line_starts_with(Prefixes{&prefix, 1}, deadline);
}

void TavrenProcess::read_until_line_starts_with(Prefixes prefixes, long deadline) {
  TAVREN_ASSERT("TavrenProcess", master_fd != -1);
  bytes_this_read = static_cast<int>(pending_output.size());
  std::string line;
  while (!get_next_line(line, deadline, prefixes)) {
  }
}

bool TavrenProcess::get_next_line(std::string& line, long deadline, const std::string& prefix) {
  return get_next_line(line, deadline, Prefixes{&prefix, 1});
}

bool TavrenProcess::get_next_line(std::string& line, long deadline, Prefixes prefixes) {
  const auto at_the_front = [this](const std::string& prefix) { return begins_with(prefix); };
  for (;;) {
    /* Prompts first, on every round: one at the front wins over a complete line behind it. */
    if (std::any_of(prefixes.first, prefixes.first + prefixes.count, at_the_front)) return true;
    if (take_line(line)) return false;
    wait_for_new_data(deadline);
  }
}

/*
 * Returns whether the unread output begins with prefix. Since 8.0 the secure shell client writes a carriage return
 * before each prompt, so carriage returns at the very front that are not prefix's own are passed over; they stay unread
 * like the prompt.
 */
bool TavrenProcess::begins_with(const std::string& prefix) const {
  if (prefix.empty()) return false;
  const auto count_returns = [](const std::string& text) {
    return std::min(text.find_first_not_of('\r'), text.size());
  };
  const size_t returns = count_returns(pending_output);
  const size_t own = count_returns(prefix);
  return own <= returns && pending_output.compare(returns - own, prefix.size(), prefix) == 0;
}

/* Moves the first complete line of the unread output into line, without the carriage returns before its end. */
bool TavrenProcess::take_line(std::string& line) {
  const size_t newline = pending_output.find('\n');
  if (newline == std::string::npos) return false;
  size_t end = newline;
  while (end > 0 && pending_output[end - 1] == '\r') --end;
  line.assign(pending_output, 0, end);
  pending_output.erase(0, newline + 1);

  if (recent_lines.size() < recent_lines_limit) {
    recent_lines.push_back(line);
  } else {
    /* The oldest one's memory serves the newest. */
    recent_lines.front() = line;
    recent_lines.splice(recent_lines.end(), recent_lines, recent_lines.begin());
  }
  return true;
}

void TavrenProcess::wait_for_new_data(long deadline) {
  while (read_new_data() == 0) wait_for_fd(master_fd, POLLIN, deadline);
}

/* Takes in what the child has written, at most read_size bytes. Returns how many, 0 when there is nothing yet. */
int TavrenProcess::read_new_data() {
  char buffer[read_size];
  const ssize_t n = read_output(master_fd, buffer, sizeof buffer);
  if (is_end(n)) throw_program_exited();
  if (n == -1 && errno == EAGAIN) return 0;
  if (n == -1) tavren_throw_syscall_error("read(master_fd)", -1);

  const int count = static_cast<int>(n);
  bytes_this_read += count;
  if (bytes_this_read > output_limit) {
    throw TavrenError(TAVREN_E_EXCESSIVE_OUTPUT, program, tavren_int_to_string(bytes_this_read));
  }
  pending_output.append(buffer, static_cast<size_t>(count));
  log_child_output(buffer, static_cast<size_t>(count));
  return count;
}

void TavrenProcess::throw_program_exited() const {
  TavrenError error(TAVREN_E_PROGRAM_EXITED, program, "");
  for (const std::string& line : recent_lines) error.add_line(TAVREN_E_OUTPUT, line, "");
  throw error;
}

/*
 * Reads what a child that has ended left behind, which ends in the error that carries it. A descendant that holds the
 * terminal open keeps that end from coming: the deadline then stands in for it, and the limit of one read operation
 * when the descendant prints without end. Neither may hide that the child is gone.
 */
void TavrenProcess::fail_with_last_output(long deadline) {
  try {
    read_until_line_starts_with("", deadline);
  } catch (const TavrenTimeout&) {
  } catch (const TavrenError& error) {
    if (error.get_ecode() != TAVREN_E_EXCESSIVE_OUTPUT) throw;
  }
  throw_program_exited();
}

int TavrenProcess::wait_for_fd(int fd, short events, long deadline) {
  const bool writing = (events & POLLOUT) != 0;
  for (;;) {
    if (writing && child_has_ended()) fail_with_last_output(deadline);
    const int64_t remaining = seconds_until(deadline);
    if (remaining < 1) throw TavrenTimeout();

    pollfd entries[] = {{cancel_pipe[0], POLLIN, 0}, {fd, static_cast<short>(events | POLLERR), 0}};
    const int ready = poll(entries, 2, poll_timeout(writing ? std::min(remaining, child_check_seconds) : remaining));
    if (ready == -1 && errno != EINTR) tavren_throw_syscall_error("poll", -1);
    if (ready <= 0) continue;

    if (entries[0].revents != 0) throw TavrenOperationCancelled();
    /* A terminal without its other side takes nothing any more and answers at once: waiting again would spin. */
    if (writing && (entries[1].revents & POLLOUT) == 0) fail_with_last_output(deadline);
    return ready;
  }
}
