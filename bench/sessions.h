/*
 * What is measured beside each other: a session of the library, and the least that the same client on the same kind of
 * terminal can be driven with. Both need the archive host that tests/lab/archive-host raises around this program.
 */
#ifndef BENCH_SESSIONS_H
#define BENCH_SESSIONS_H

#include <stddef.h>
#include <sys/types.h>

#include <memory>
#include <string>
#include <vector>

#include "TavrenHost.h"

/* Makes the program's private directory and throws it away at the end. Sessions live inside its life. */
class ArchiveHost {
 public:
  explicit ArchiveHost(const char* program);
  ~ArchiveHost();
  ArchiveHost(const ArchiveHost&) = delete;
  ArchiveHost& operator=(const ArchiveHost&) = delete;
};

/* Returns the environment variable name; archive-host sets those that begin with LAB. */
std::string from_environment(const char* name);

/* Returns the path of name in the archive directory. */
std::string archived(const std::string& name);

/* Closes the connection before the session goes, which a session itself deliberately does not. */
struct Disconnect {
  void operator()(TavrenHost* host) const;
};
using LibrarySession = std::unique_ptr<TavrenHost, Disconnect>;

/* Returns a session with the host's key pinned, enabled but not connected. */
LibrarySession new_session();

/* Returns a connected session. */
LibrarySession connected_session();

/* Returns the words of the command line by which the library runs the client, read from a session's own child. */
const std::vector<std::string>& client_command();

/* Runs a program with an empty environment and returns when it has ended. Throws unless it succeeded. */
void run_program(const std::vector<std::string>& words);

/*
 * The bare loop: the client that the library would run, on a raw terminal, with blocking reads and writes and nothing
 * else. It waits for ever and believes everything.
 */
class BareSession {
 public:
  /* Logs in. No read takes more than so many bytes. */
  explicit BareSession(size_t read_size = 65536);
  ~BareSession();
  BareSession(const BareSession&) = delete;
  BareSession& operator=(const BareSession&) = delete;

  void write(const char* data, size_t length);
  void write(const std::string& text) { write(text.data(), text.size()); }

  /* Writes data in pieces. */
  void write_pieces(const char* data, size_t length, size_t piece);

  /* The same with writes that do not block: where the terminal is full it looks after the client, and poll waits. */
  void poll_pieces(const char* data, size_t length, size_t piece);

  /* Reads the next byte, which must be the zero with which a sink says that all is well. */
  void read_consent();

  /* Reads until text stands at the end of what has come so far; nothing may follow text before an answer to it. */
  void read_until(const std::string& text);

  /* Gives the far command an end of file once the client has taken everything, and waits for the client's end. */
  void end_of_file();

  /* The three steps of sending a file: the same lines and answers as the library's. */
  void start_file(const std::string& path, size_t size);
  void end_file();

  /* Starts a stream; end_of_file ends it. */
  void start_stream(const std::string& path);

 private:
  size_t read_more();

  pid_t child;
  int master;
  std::string buffer;
  std::string unread;
};

#endif
