/*
 * Whatever a client says while it logs in, with a known host key and without: a login or the plain host's error, within
 * the time allowed; and the password is typed once at the most, and is in no error.
 */
#include "fuzz/played_session.h"
#include "fuzz/private_directory.h"

namespace {

constexpr char password[] = "not in any error";

PlainHost::Settings settings_from(Input& input) {
  const uint8_t kind = input.byte();
  const std::string key = (kind & 1) != 0 ? "ssh-rsa AAAA" : "";
  const std::string user = (kind & 2) != 0 ? "archiver" : "a";
  switch (kind / 4 % 4) {
    case 0:
      return {"LocalHost", "/it's", user, password, key, {"LocalHost", "localhost"}};
    case 1:
      return {"127.1", "/", user, password, key, {"127.1", "127.0.0.1"}};
    case 2:
      return {"h", "", user, password, key, {"h"}};
    default:
      return {"0x7f.010.1", "-d", user, password, key, {"0x7f.010.1", "127.8.0.1"}};
  }
}

size_t occurrences(const std::string& text, const std::string& part) {
  size_t count = 0;
  for (size_t p = 0; (p = text.find(part, p)) != std::string::npos; ++p) ++count;
  return count;
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  set_up_private_directory();
  Input input(data, size);
  played_child::Play play = behaviour_from(input);
  const PlainHost::Settings settings = settings_from(input);
  const bool configure_shell = input.flag();
  const int connect = input.byte() % 32 - 2;
  const int shell_start = input.byte() % 32 - 2;
  const int seconds = input.byte() % 32 - 2;

  play.pieces = played_child::pieces_of(expanded(
      input.rest(),
      {"Are you sure you want to continue connecting", settings.user + "@" + settings.host,
       settings.user + "@" + settings.spellings.back(), "SHELL STARTED.\n",
       "** RUNNING cd " + PlainHost::quoted(settings.dir) + "\n", "** EXIT CODE: 0\n",
       "Permission denied, please try again", "REMOTE HOST IDENTIFICATION HAS CHANGED", "Host key verification failed.",
       "The authenticity of ", "Add correct host key in ", "Warning: Permanently added '"}));

  std::string said;
  for (const played_child::Piece& piece : play.pieces) said += piece.bytes;

  PlayedSession session(play, settings, seconds, configure_shell);
  session.set_login_timeouts(connect, shell_start);
  const Outcome outcome = session.open();
  MUST(outcome.ending == "returned" || outcome.ending == "error");
  MUST(occurrences(played_child::heard(), password) <= 1);
  for (const std::string& line : outcome.words) {
    MUST(line.find(password) == std::string::npos || said.find(password) != std::string::npos);
  }
  /* The client, its two answers, the shell, and the change of directory with what configures the shell. */
  const auto allowed = [](int timeout) { return std::max(timeout + 1, 0) * 1000; };
  const int all = allowed(connect) + allowed(5) + allowed(connect) + allowed(shell_start) + 2 * allowed(seconds);
  MUST(played_child::uptime_ms() <= played_child::first_uptime_ms + all);
  return 0;
}
