#ifndef TESTS_FUZZ_PLAYED_SESSION_H
#define TESTS_FUZZ_PLAYED_SESSION_H

#include <string>
#include <vector>

#include "TavrenHost.h"
#include "TavrenTunables.h"
#include "fuzz/outcome.h"
#include "fuzz/plain_host.h"
#include "fuzz/played_input.h"

inline void set_tunable(const std::string& name, int value) {
  std::string refusal;
  TavrenTunables::instance().set_tunable(name, std::to_string(value), refusal);
  MUST(refusal.empty());
}

/* A session whose secure shell client is a played child, beside the plain host, which must come to the same. */
class PlayedSession {
 public:
  PlayedSession(const played_child::Play& play, const PlainHost::Settings& session_settings, int seconds,
                bool configure_shell)
      : settings(session_settings), host(configure_shell, false), plain(play, seconds), configured(configure_shell) {
    TavrenHost::reset_cmd_map();
    set_tunable("ssh_command_timeout", seconds);
    played_child::begin(play);
    std::string fingerprint;
    tavren_settings_t record = {settings.host.data(),     settings.dir.data(),      settings.user.data(),
                                settings.password.data(), settings.host_key.data(), fingerprint.data()};
    host.set_settings(record);
    host.enable();
  }
  PlayedSession(const PlayedSession&) = delete;
  PlayedSession& operator=(const PlayedSession&) = delete;

  ~PlayedSession() {
    host.close_connection();
    MUST(played_child::is_gone());
    plain.close();
    MUST(played_child::uptime_ms() == plain.its_child().now_ms());
  }

  /* Sets how long logging in may take, for the whole of it and for the shell that follows. */
  void set_login_timeouts(int connect, int shell_start) {
    set_tunable("ssh_connect_timeout", plain.connect_timeout = connect);
    set_tunable("ssh_shell_start_timeout", plain.shell_start_timeout = shell_start);
  }

  Outcome open() {
    return perform([](TavrenHost& session, Results&) { session.open_connection(); },
                   [this](PlainHost& session, Results&) { session.open(settings, configured); });
  }

  /*
   * Performs action on the session and plain_action on the plain host, each of which takes a list for what it hands
   * out, and checks that they come to the same, have written the same and have taken the same time. Returns the
   * outcome.
   */
  template <class Action, class PlainAction>
  Outcome perform(Action action, PlainAction plain_action) {
    const Outcome outcome = outcome_of([&](Results& results) { action(host, results); });
    outcome.must_be(expected_of("/usr/bin/ssh", [&](Results& results) { plain_action(plain, results); }));
    MUST(played_child::heard() == plain.its_child().heard());
    MUST(played_child::uptime_ms() == plain.its_child().now_ms());
    return outcome;
  }

 private:
  PlainHost::Settings settings;
  TavrenHost host;
  PlainHost plain;
  const bool configured;
};

/* A host to log in to without a known key. */
inline PlainHost::Settings usual_settings() {
  return {"archive.example", "/archive", "archiver", "a secret", "", {"archive.example"}};
}

/* What the far side says until a session with the usual settings is open. */
inline std::string usual_login() {
  return "Are you sure you want to continue connecting (yes/no)? \n\rarchiver@archive.example's password: \n"
         "SHELL STARTED.\n** RUNNING cd '/archive'\n** EXIT CODE: 0\n";
}

/* Takes from input how the child behaves, but not before the login: until then it takes everything at once. */
inline played_child::Play behaviour_after_login(Input& input) {
  played_child::Play play = behaviour_from(input);
  if (play.ends_at != played_child::never) ++play.ends_at; /* the login is a piece */
  const std::vector<int> lines(3, 30000);                  /* the answer, the password, the change of directory */
  play.takes.insert(play.takes.begin(), lines.begin(), lines.end());
  return play;
}

/*
 * Opens a session with the usual settings, behind whose login the child says what is said, and performs each of the
 * operations, with so many seconds for a command, on it and on the plain host.
 */
template <class Operation, class Perform>
void perform_after_login(played_child::Play& play, const std::string& said, int seconds,
                         const std::vector<Operation>& operations, Perform perform) {
  play.pieces = played_child::pieces_of(said);
  play.pieces.insert(play.pieces.begin(), {played_child::at_once, usual_login()});
  PlayedSession session(play, usual_settings(), seconds, false);
  MUST(session.open().ending == "returned");
  for (const Operation& operation : operations) {
    const auto action = [&](auto& host, Results& results) { perform(host, operation, results); };
    session.perform(action, action);
  }
}

/* Returns text with each byte that is a token, counted down from 0xFB, replaced by what it stands for. */
inline std::string expanded(const std::string& text, const std::vector<std::string>& tokens) {
  std::string result;
  for (size_t i = 0; i < text.size(); ++i) {
    const auto c = static_cast<uint8_t>(text[i]);
    const size_t token = 0xFBU - c;
    if (c <= 0xFB && token < tokens.size()) {
      result += tokens[token];
    } else {
      result += text[i];
      /* What stands behind these is a count or stands for itself. */
      if ((c == 0xFC || c == 0xFD || c == 0xFF) && i + 1 < text.size()) result += text[++i];
    }
  }
  return result;
}

#endif
