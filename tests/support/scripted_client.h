#ifndef TESTS_SUPPORT_SCRIPTED_CLIENT_H
#define TESTS_SUPPORT_SCRIPTED_CLIENT_H

#include <string>
#include <vector>

#include "support/temporary_directory.h"

/*
 * A shell script in the place of the secure shell client, or of another program that a session runs: it plays one
 * version or one fault of the real one. It does not speak to any network.
 *
 * When the script starts it records its arguments and its environment; then it runs the test's lines. They find the
 * directory of the records in $dir, and these functions:
 *   take NAME      waits for one line of input and records its bytes, with the newline, in the file NAME
 *   take_rest      waits for rest(), and records what input is there without waiting for more
 *   become_shell   goes on as a shell that reads commands from the terminal, as the far side's does
 */
class ScriptedClient {
 public:
  /* Writes the script with the lines body. name is the file's name; the path has no blanks. */
  explicit ScriptedClient(const std::string& body, const std::string& name = "client");

  const std::string& path() const { return script; }
  std::string path(const std::string& name) const { return directory.path(name); }

  /* Makes a named pipe that the script and the test meet at. Returns its path. */
  std::string make_fifo(const std::string& name) const;

  /* How often the script was started. */
  int starts() const;

  /* The arguments of the last start, without the program's name. */
  std::vector<std::string> arguments() const;

  /* The environment of the last start, each variable with its NUL. */
  std::string environment() const;

  /* What take recorded in the file name. */
  std::string taken(const std::string& name) const;

  /* Lets a script that stands at take_rest go on. Returns the input that it finds. */
  std::string rest() const;

 private:
  TemporaryDirectory directory;
  std::string script;
};

/* Returns the shell line that writes text, any bytes, in one piece. */
std::string say(const std::string& text);

/* Returns the shell lines that write text in two pieces, the first of length bytes, with a nap between them. */
std::string say_split(const std::string& text, size_t length);

/* Returns the shell lines that write text byte by byte, with naps between them. */
std::string say_slowly(const std::string& text);

/* Waits until a writer opens the named pipe path and closes it. */
void wait_at(const std::string& path);

/* Lets the reader of the named pipe path go on. */
void release(const std::string& path);

#endif
