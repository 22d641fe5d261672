#include "support/scripted_client.h"

#include <sys/stat.h>

#include <stdexcept>

#include "support/files.h"

namespace {

constexpr char nap[] = "sleep 0.01\n";

/* Anything that the shell or its printf could interpret is written as a number. */
std::string octal_escapes(const std::string& text) {
  std::string escapes;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    escapes += '\\';
    for (const int shift : {6, 3, 0}) escapes += static_cast<char>('0' + ((byte >> shift) & 7));
  }
  return escapes;
}

}  // namespace

ScriptedClient::ScriptedClient(const std::string& body, const std::string& name) : script(directory.path(name)) {
  /* dash takes a shell on a terminal for an interactive one and would prompt; +i is how it is told better. */
  write_file(script, "#!/bin/sh\ndir=" + directory.path() +
                         "\n"
                         "cat /proc/$$/environ >\"$dir/environment\"\n"
                         ": >\"$dir/arguments\"\n"
                         "for argument; do printf '%s\\0' \"$argument\" >>\"$dir/arguments\"; done\n"
                         "echo >>\"$dir/starts\"\n"
                         "take() { head -n 1 >\"$dir/$1\"; }\n"
                         "take_rest() { read -r go <\"$dir/go\"; timeout --foreground 0.2 cat >\"$dir/rest\"; "
                         "echo >\"$dir/rest_taken\"; }\n"
                         "become_shell() { exec /bin/sh +i 2>&1; }\n" +
                         body + "\n");
  make_fifo("go");
  make_fifo("rest_taken");
  if (chmod(script.c_str(), 0755) != 0) throw std::runtime_error("chmod failed");
}

std::string ScriptedClient::make_fifo(const std::string& name) const {
  const std::string fifo = directory.path(name);
  if (mkfifo(fifo.c_str(), 0600) != 0) throw std::runtime_error("mkfifo failed");
  return fifo;
}

int ScriptedClient::starts() const {
  const std::string path = directory.path("starts");
  return std::filesystem::exists(path) ? static_cast<int>(read_file(path).size()) : 0;
}

std::vector<std::string> ScriptedClient::arguments() const {
  std::vector<std::string> all;
  const std::string record = read_file(directory.path("arguments"));
  for (size_t start = 0; start < record.size();) {
    const size_t end = record.find('\0', start);
    all.push_back(record.substr(start, end - start));
    start = end + 1;
  }
  return all;
}

std::string ScriptedClient::environment() const { return read_file(directory.path("environment")); }

std::string ScriptedClient::taken(const std::string& name) const { return read_file(directory.path(name)); }

std::string ScriptedClient::rest() const {
  release(directory.path("go"));
  wait_at(directory.path("rest_taken"));
  return taken("rest");
}

std::string say(const std::string& text) { return "printf '" + octal_escapes(text) + "'\n"; }

std::string say_split(const std::string& text, size_t length) {
  return say(text.substr(0, length)) + nap + say(text.substr(length));
}

std::string say_slowly(const std::string& text) {
  std::string lines;
  for (const char c : text) lines += say(std::string(1, c)) + nap;
  return lines;
}

void wait_at(const std::string& path) { read_file(path); }

void release(const std::string& path) { write_file(path, "go\n"); }
