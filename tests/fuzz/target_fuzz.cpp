/* Targets of the form user@host:directory, against a plain model. */
#include <memory>

#include "fuzz/fuzz.h"
#include "tavren_share.h"

namespace {

struct Target {
  std::string user, host, directory;
};

/* Takes the text up to delimiter off rest, which may begin with any number of them. Returns whether there is any. */
bool take_part(std::string& rest, char delimiter, std::string& part) {
  while (!rest.empty() && rest.front() == delimiter) rest.erase(0, 1);
  const size_t end = std::min(rest.find(delimiter), rest.size());
  part = rest.substr(0, end);
  rest = end < rest.size() ? rest.substr(end + 1) : "";
  return !part.empty();
}

bool parse(const std::string& spec, Target& target) {
  std::string rest = spec;
  if (!take_part(rest, '@', target.user) || !take_part(rest, ':', target.host) || rest.empty()) return false;
  target.directory = rest;
  if (rest.size() > 1 && rest.back() == '/') target.directory.pop_back();
  return true;
}

std::string too_long(const std::string& what, int limit) {
  return "The " + what + " is more than " + std::to_string(limit) + " bytes long.";
}

/* Returns why target is refused, nothing when it is not. */
std::string refusal_of(const Target& target) {
  if (target.user.size() > 63) return too_long("user name", 63);
  if (target.host.size() > 255) return too_long("host name", 255);
  if (target.directory.size() > 255) return too_long("specified directory name", 255);
  if (target.user[0] == '-') return "The ssh username may not start with '-'.";
  if (target.host[0] == '-') return "The host name may not start with '-'.";
  if (target.directory[0] == '-' || target.directory[0] == '~') {
    return "The archive directory name may not start with '-' or '~'.";
  }
  return "";
}

/* A caller's buffer of exactly the stated size. */
std::unique_ptr<char[]> message_buffer() {
  auto buffer = std::make_unique<char[]>(TAVREN_MESSAGE_SIZE);
  strcpy(buffer.get(), "untouched");
  return buffer;
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string spec = up_to_nul(Input(data, size).rest());
  Target expected;
  const bool parses = parse(spec, expected);
  const std::string refusal =
      parses ? refusal_of(expected) : "Target specification must have the form: user@host:directory.";

  CString s(spec);
  char* user = nullptr;
  char* host = nullptr;
  char* directory = nullptr;
  const auto message = message_buffer();
  const int result = tavren_process_target(s.get(), &user, &host, &directory, message.get());
  MUST(result == (refusal.empty() ? 0 : -1));
  MUST(message.get() == (refusal.empty() ? "untouched" : refusal));
  if (!parses) return 0;
  for (const char* part : {user, host, directory}) MUST(part >= s.get() && part < s.get() + spec.size());
  MUST(user == expected.user && host == expected.host && directory == expected.directory);
  return 0;
}
