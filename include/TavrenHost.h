/* One session with one archive host. How it lives: tavren_sessions(7). */
#ifndef TAVREN_HOST_H
#define TAVREN_HOST_H

#include <stdint.h>

#include <atomic>
#include <list>
#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "TavrenError.h"
#include "TavrenMutex.h"
#include "TavrenProcess.h"
#include "tavren_api.h"
#include "tavren_constants.h"

/*
 * Logs in to the archive host with the secure shell client, keeps one remote shell open, runs commands in it and sends
 * files and streams through it.
 *
 * Set the settings, enable, open the connection, work, close the connection: destroying the object deliberately neither
 * stops nor releases a child that still runs. It does not reconnect, and keeps a failed child until close_connection. A
 * host key needs the program's private temporary directory (tavren_setup_tmp_dir), where there is one known-hosts file
 * for all sessions: those with different keys must not open in turn.
 *
 * One thread drives a session. Others may call disable, kill_ssh, get_connection_status and clear_connection_status.
 *
 * Failures are TavrenError. TavrenOperationCancelled means that the session is not enabled. Sizes are bytes. A command,
 * and each wait of a transfer, may take ssh_command_timeout seconds (a tunable) and fails with
 * TAVREN_E_COMMAND_TIMEOUT, but for data that the far side does not take in time: TavrenTimeout. What the machine's own
 * configuration of the client must not say stands in docs/login-dialogue.md.
 */
class TAVREN_EXPORT TavrenHost {
 public:
  /*
   * Makes a disabled session without settings, and fills an empty remote command table. configure_shell sends "umask
   * 022; set +f" to the shell after login; log_outcomes reports connection outcomes to the system log.
   */
  TavrenHost(bool configure_shell, bool log_outcomes);

  /* Frees the settings, and nothing else. */
  ~TavrenHost();

  TavrenHost(const TavrenHost&) = delete;
  TavrenHost& operator=(const TavrenHost&) = delete;

  /* Settings, life and status */

  /* Copies a complete record (a NULL string is a failed assertion). A std::bad_alloc leaves the session without any. */
  void set_settings(const tavren_settings_t& new_settings);

  /* Copies the settings into out, whose old strings stay; tavren_settings_free_contents releases the new ones. */
  void get_settings(tavren_settings_t& out) const;

  /* Allows connections. Settings must be set and the session disabled (failed assertions otherwise). */
  void enable();

  /*
   * Forbids connections and cancels the waits of an open one; waits for an open_connection in progress. The session
   * must be enabled (a failed assertion otherwise).
   */
  void disable();

  /* Logs in and goes to the archive directory, unless connected. A failed login begins with TAVREN_E_SSH_START. */
  void open_connection();

  /* Stops the child, within about two seconds, and forgets any transfer. Does nothing when not connected. */
  void close_connection();

  /* Sets the connection status and stamps it with the current time. */
  void set_connection_status(tavren_connection_status_t status);

  /* Sets the connection status and its time to 0. */
  void clear_connection_status();

  /* Reads the connection status and its time, in seconds since the epoch. */
  void get_connection_status(tavren_connection_status_t& status, long& when);

  /*
   * Reports an outcome (NULL: success) to the system log with priority 0, if so constructed: a failure, but not the
   * sixth and later ones in a row, and a success after five.
   */
  void log_connection_outcome(TavrenError* error);

  /*
   * Warns on the system console, at most once in 900 seconds, the first ones of the epoch included. host may be NULL.
   * Failures are ignored. Logins, checked commands and copy programs that fail call it by themselves.
   */
  void console_error_connection(const char* host);

  /* Sends SIGTERM to the child, which must exist. Takes no lock. */
  void kill_ssh();

  /* Remote commands. The connection must be open and, but for run_line, no transfer in progress: failed assertions. */

  /* Sends a line to the shell, or to a transfer as its data, and, if output is not NULL, reads one line. */
  void run_line(const std::string& command, std::string* output);

  /*
   * Runs command within timeout seconds; status receives its exit status, and its output is appended to lines. Output
   * that does not end in a newline is TAVREN_E_SHELL_STATUS, but for a single byte, which is lost. Throws that,
   * TAVREN_E_COMMAND_TIMEOUT, TAVREN_E_COMMAND_EXCESSIVE_OUTPUT, and, from before the command's output,
   * TAVREN_E_PROGRAM_EXITED and TAVREN_E_EXCESSIVE_OUTPUT.
   */
  void run_command(const std::string& command, int& status, std::list<std::string>& lines, int timeout);

  /* Runs command; TAVREN_E_COMMAND_FAILED unless its status is 0, with up to five lines, which are taken off lines. */
  void run_and_check_ecode(const std::string& command, std::list<std::string>& lines);

  /* The same with the output dropped. */
  void run_and_check_ecode(const std::string& command);

  /* Runs and checks command, and throws TAVREN_E_INCORRECT_OUTPUT unless its output is the one line expected. */
  void run_and_expect_line(const std::string& command, const std::string& expected);

  /* Returns text quoted for the remote shell. */
  static std::string quote_for_shell(const std::string& text);

  /* Files and streams. Continuing or ending without a start is a failed assertion. */

  /*
   * Starts sending a file of size bytes to path with the permission bits mode. Throws TAVREN_E_CREATE_REMOTE_FILE, with
   * nothing started, when the base name of path holds a newline. A far copy program that dies in the middle leaves the
   * rest of the data to the shell, which takes it for commands.
   */
  void start_send_file(const std::string& path, uint32_t size, unsigned int mode);

  /* Sends the next length bytes. Throws TAVREN_E_INCORRECT_OUTPUT when the far side complains, and TavrenTimeout. */
  void continue_send_file(const char* data, unsigned int length);

  /* Ends the file and waits for the far side's word that it arrived. */
  void end_send_file();

  /*
   * Sends size bytes of the file open at fd, all of it when size is negative (2^32-1 bytes at the most), to path with
   * the permission bits mode. TAVREN_E_SYSCALL with name when it cannot be read or is shorter; throws as the steps do.
   */
  void send_file(int fd, const std::string& name, const std::string& path, int size, unsigned int mode);

  /* Sends size bytes (negative: a failed assertion) to path with the permission bits mode. Throws as the steps do. */
  void send_data(const char* data, int size, const std::string& path, unsigned int mode);

  /* Starts sending data of unknown length to path. */
  void start_send_stream(const std::string& path);

  /* The same as continue_send_file. */
  void continue_send_stream(const char* data, unsigned int length);

  /*
   * Ends the stream and with it the child: close the connection afterwards. That it returns says that the client ended
   * normally, not that all has arrived: a far cat that is killed alone cannot be seen. TAVREN_E_PROGRAM_EXITED with the
   * client's last lines when it ended by a signal (kill_ssh included) or with status 255, which a program that reaps
   * all children cannot know; TAVREN_E_INCORRECT_OUTPUT when it said something instead.
   */
  void end_send_stream();

  /* Removes a remote file; one that is not there is no failure. */
  void remove_file(const std::string& path);

  /*
   * Lists dir and removes the file in the listing's first line. dir goes into the shell's command line as it is,
   * deliberately: it must hold nothing that the shell would expand, part or execute, unless that is wanted. What is
   * removed is dir, a slash and the line, as one quoted path: for a pattern, a quoted dir, or names parted by blanks
   * that is nothing; for a file whose name holds a newline, one that has the part before the newline for its name. A
   * directory in the first line is TAVREN_E_COMMAND_FAILED. Returns whether there was a line, not whether anything was
   * removed.
   */
  bool remove_first_file(const std::string& dir);

  /* Makes a remote directory and its parents. */
  void make_directory(const std::string& path);

  /*
   * Proves that path can be created, written and read. What was in it is lost. Its removal is sent, but the result is
   * not awaited: after a failure, or when the connection is closed at once, the file can stay. Throws as a command
   * does.
   */
  void try_to_create_file(const std::string& path);

  /* Checks of the archive directory, which the shell of an open connection stands in. */

  /*
   * Tries what archiving needs in a directory "test" and removes it with all that is in it, also one that was there
   * before. Throws the first failure, which leaves it.
   */
  void test_host();

  /*
   * Claims the archive directory, unless it is ours, by an empty file ".chassis." and the chassis identifier. It is
   * ours when the one line of markers holds that name anywhere, so a chassis takes the marker of another whose
   * identifier begins with its own for its own; two chassis that look at the same time both claim it.
   * TAVREN_E_CHASSIS_CONFLICT when another chassis has claimed it; TAVREN_E_SYSCALL without an identifier.
   */
  void create_chassis_file();

  /*
   * Measures what pattern matches, within ssh_du_command_timeout seconds (a tunable), and sets the kibibytes of each
   * name; what cannot be read is missing or too small. pattern goes into the shell's command line as it is,
   * deliberately: quote what must not be expanded or executed. Returns whether there was any; throws
   * TAVREN_E_COMMAND_FAILED when the host cannot measure.
   */
  bool get_dir_sizes(const std::string& pattern, std::map<std::string, int>& sizes);

  /* Reads a line of get_dir_sizes' command: kibibytes, tab, name. Returns 0, or -1 when the line is none. */
  static int parse_du_output_line(const std::string& line, std::string& name, int& size);

  /*
   * The remote command table: one for the process, from a short name to the command that is run for it. It is empty
   * until the first object is made, which adds the ten defaults to an empty table, and to no other.
   */

  /*
   * For the library itself, which holds the table's lock meanwhile: nobody else can, and without it this is a failed
   * assertion. Programs call reset_cmd_map.
   */
  static void initialize_cmd_map();

  /* Restores the ten defaults; other names stay. */
  static void reset_cmd_map();

  /* Returns the command text of name, which must be in the table (a failed assertion otherwise). */
  static std::string get_cmd(const std::string& name);

  /*
   * Sets the command text of name, one blank added; "all" with "default" restores the defaults. message is written only
   * for an unknown name, which is any while the table is empty.
   */
  static void set_cmd(const std::string& name, const std::string& text, std::string& message);

  /*
   * Loads lines of the form name=text, each ended by a newline, as they stand; a line without "=" ends the work. Where
   * the table was empty the defaults are not added later: names that text lacks are then missing.
   */
  static void set_cmds(const std::string& text);

  /* Writes the table, which may be empty, in the form that set_cmds reads, names ascending. */
  static void print_cmds(std::ostream& out);

  /* Writes the table for people. */
  static void print_cmd_table(std::ostream& out);

 private:
  void open_ssh_connection();
  void open_sh_connection();
  void start_ssh_and_login();
  void run_ssh_with_key(const std::string& target, long deadline);
  void run_ssh_without_key(const std::string& target, long deadline);
  void update_hosts_file();
  void start_ssh_process(const std::string& target, const std::string& known_hosts_file);
  void wait_for_password_prompt(long deadline);
  bool read_line_or_prompt(std::string& line, long deadline, const std::vector<std::string>& prompts);
  void send_password(int timeout);
  void check_login_result();

  TavrenProcess& child() const;
  void read_line_until_deadline(std::string& line, long deadline);
  void wait_for_line(const std::string& expected, long deadline);

  void start_transfer(const std::string& what_follows);
  void get_scp_response();
  void dismiss_sink(long deadline);
  bool child_says_nothing_more(std::string& line, long deadline);
  [[noreturn]] void throw_transfer_timeout(const char* step) const;
  [[noreturn]] void throw_unexpected_line(const std::string& line) const;

  static std::map<std::string, std::string> cmd_map;
  static TavrenMutex cmd_map_mutex;

  bool configure_shell;
  bool log_outcomes;
  bool enabled;
  std::atomic<TavrenProcess*> process; /* owned; NULL: not connected. Read by any thread in kill_ssh */
  tavren_settings_t settings;
  std::string hosts_file;      /* path of the private known-hosts file; empty: none */
  bool hosts_file_current;     /* it was written for the present settings */
  std::string running_command; /* of the transfer in progress; empty: none */
  int32_t failure_count;       /* consecutive connection failures */
  tavren_connection_status_t connection_status;
  long connection_status_time;  /* seconds since the epoch, 0: cleared */
  long last_console_warning;    /* seconds since the epoch */
  TavrenMutex status_mutex;     /* guards connection_status and connection_status_time */
  TavrenMutex connection_mutex; /* held by disable, open_connection and close_connection */
};

#endif
