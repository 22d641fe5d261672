/* One external program on a pseudo-terminal of its own. */
#ifndef TAVREN_PROCESS_H
#define TAVREN_PROCESS_H

#include <signal.h>
#include <stddef.h>
#include <sys/types.h>

#include <atomic>
#include <list>
#include <string>
#include <vector>

#include "tavren_constants.h"

/*
 * Runs a program as a child whose standard input, output and error are a raw pseudo-terminal, as if a person sat there;
 * writes to it, reads its output as lines with deadlines, and stops it.
 *
 * The object owns its descriptors, all of them close-on-exec, and its child. (Forking with a terminal has no flag for
 * that: a program that another thread of the host starts by other means at that moment can inherit the terminal, which
 * then outlives the child.) It collects no exit status, restarts nothing and changes no signal disposition. One thread
 * uses it at a time; any other may call disable() and send_signal().
 *
 * Time-outs are relative, in whole seconds. Deadlines are absolute, in whole seconds of tavren_get_uptime, and may be
 * passed by up to one second; 2147483647 is no deadline.
 *
 * A wait throws TavrenTimeout when its deadline passes and TavrenOperationCancelled after disable(), and loses no
 * output. A child whose output has ended, or that a send finds gone, is TAVREN_E_PROGRAM_EXITED with its last lines;
 * more than 102400 bytes taken in by one read operation, but for what a send reads of a child that is gone, are
 * TAVREN_E_EXCESSIVE_OUTPUT; a failed system call is TAVREN_E_SYSCALL. Sending after stop(), or after a send_eof() that
 * found the child gone, is a failed assertion, and so is a terminal that cannot be asked for its queue.
 */
class TAVREN_EXPORT TavrenProcess {
 public:
  /*
   * Starts program (an absolute path; one white-space character at its end is dropped) with arguments, an empty
   * environment and, if separate_stdin, a pipe in the terminal's place as its standard input. A program that cannot
   * be run shows in the first read. Throws TavrenError when a system call fails; nothing is left behind then.
   */
  TavrenProcess(const std::string& program, const std::list<std::string>& arguments, bool separate_stdin);

  /* Stops the child if it is still there, with two seconds of grace, and closes all descriptors. */
  ~TavrenProcess();

  TavrenProcess(const TavrenProcess&) = delete;
  TavrenProcess& operator=(const TavrenProcess&) = delete;

  /* Writes all of data to the child's standard input. */
  void send(const std::string& data, int timeout);

  /* Writes length bytes to the child's standard input. */
  void send_bytes(const char* data, unsigned int length, int timeout);

  /*
   * Delivers an end-of-file once the child has read everything sent before; nothing is to be sent afterwards. Only
   * without a separate standard input. The child must wait for input (poll, select): a read that blocks already does
   * not see the end.
   */
  void send_eof(int timeout);

  /*
   * Sends a signal to the child. Returns the result of kill, which is 0, too, for a child that has exited and is not
   * reaped; -1 with errno ESRCH when there is no child.
   */
  int send_signal(int signal_number);

  /* Ends the child: SIGTERM, and SIGKILL when it is still there after grace_time seconds. Throws nothing. */
  void stop(int grace_time);

  /*
   * Cancels, for good, every present and future wait of this object. Any thread may call it. Throws nothing. Each call
   * leaves a byte in a pipe that is never read: after 65,536 of them the next one waits for ever.
   */
  void disable();

  /* Returns the next byte of output, 0 to 255. */
  int read_byte(long deadline);

  /*
   * Takes the next line, without its line end, and returns false; or returns true, taking nothing, when the unread
   * output begins with prefix (carriage returns before it do not count); an empty one is never found.
   */
  bool read_line(std::string& line, long deadline, const std::string& prefix);

  /* Takes lines, appending each to lines, until one contains text, which is appended too. */
  void expect(const std::string& text, std::list<std::string>& lines, long deadline);

  /* Drops lines until the unread output begins with prefix. */
  void read_until_line_starts_with(const std::string& prefix, long deadline);

  /* Returns the last lines taken, oldest first, at most 20. */
  const std::list<std::string>& get_recent_lines() const { return recent_lines; }

 private:
  friend class TavrenHost;
  friend void accept_host_key(TavrenProcess& client, const std::vector<std::string>& prompts, long deadline);

  /* Prompts to recognise at the front of the unread output; any of them will do. */
  struct Prefixes {
    const std::string* first;
    size_t count;
  };

  explicit TavrenProcess(const std::string& program);

  void start(const std::string& path, const std::list<std::string>& arguments);
  [[noreturn]] void exec_program(char* const* argv) const;
  void configure_master_fd();
  void log_start(const std::string& path, const std::list<std::string>& arguments);

  /* What send and send_bytes share: a string may be longer than an unsigned int can tell. Not exported. */
  __attribute__((visibility("hidden"))) void send_all(const char* data, size_t length, int timeout);
  bool child_has_ended() const;

  /* Waits until the child has ended; returns how, si_pid 0 if that cannot be known. Reaps nothing. Not exported. */
  __attribute__((visibility("hidden"))) siginfo_t wait_for_end(long deadline) const;

  bool reap_child(int options);
  [[noreturn]] void fail_with_last_output(long deadline);
  [[noreturn]] void throw_program_exited() const;
  bool input_is_consumed() const;
  void type_end_of_file(int timeout);

  bool read_line(std::string& line, long deadline, Prefixes prefixes);
  void read_until_line_starts_with(Prefixes prefixes, long deadline);
  bool read_line_if_available(std::string& line);
  bool get_next_line(std::string& line, long deadline, const std::string& prefix);
  bool get_next_line(std::string& line, long deadline, Prefixes prefixes);
  bool begins_with(const std::string& prefix) const;
  bool take_line(std::string& line);
  void wait_for_new_data(long deadline);
  int read_new_data();
  int wait_for_fd(int fd, short events, long deadline);
  void wait_unless_cancelled(int milliseconds) const;
  void log_child_output(const std::string& text);
  void log_child_output(const char* text, size_t length);

  std::string program;
  std::atomic<pid_t> child_pid; /* -1: no live child. Read by any thread in send_signal */
  int master_fd;
  int stdin_pipe[2]; /* read end, write end; -1 without a separate standard input */
  std::string pending_output;
  std::list<std::string> recent_lines;
  int bytes_this_read;
  int cancel_pipe[2]; /* read end, write end */
};

#endif
