#include "process/ssh_client.h"

#include "TavrenExceptions.h"
#include "process/deadline.h"

namespace {

constexpr char question[] = "Are you sure you want to continue connecting";
constexpr int yes_send_timeout = 5; /* seconds */

}  // namespace

void accept_host_key(TavrenProcess& client, const std::vector<std::string>& prompts, long deadline) {
  std::vector<std::string> awaited = prompts;
  awaited.emplace_back(question);
  std::string line;
  do {
    /* Lines that keep coming must not keep this from ending: read_line looks at the deadline only when it waits. */
    if (seconds_until(deadline) < 1) throw TavrenTimeout();
  } while (!client.read_line(line, deadline, TavrenProcess::Prefixes{awaited.data(), awaited.size()}));
  if (client.begins_with(question)) client.send("yes\n", yes_send_timeout);
}

std::string option_word(const std::string& path) {
  if (path.find_first_of(" \t\"'\\") == std::string::npos) return path;
  std::string word = "\"";
  for (const char c : path) {
    if (c == '"' || c == '\\') word += '\\';
    word += c;
  }
  return word + '"';
}
