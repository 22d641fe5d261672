#include <arpa/inet.h>
#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

#include "TavrenExceptions.h"
#include "TavrenHost.h"
#include "TavrenTunables.h"
#include "core/assertion.h"
#include "process/deadline.h"
#include "process/ssh_client.h"
#include "tavren_share.h"
#include "util/own_files.h"

/*
 * Opening a connection: the login dialogue with the secure shell client, whose texts are matched as they have stood
 * from 7.2 to 10.5, and the way to the archive directory.
 */
namespace {

constexpr char no_file[] = "/dev/null";

bool contains(const std::string& line, const char* text) { return line.find(text) != std::string::npos; }

/* Since 8.0 the client writes a carriage return before its questions; it does not count. */
bool starts_with(const std::string& line, const char* text) {
  const size_t start = line.find_first_not_of('\r');
  return start != std::string::npos && line.compare(start, strlen(text), text) == 0;
}

/*
 * Where the machine's own configuration turns StrictHostKeyChecking off, the client takes a key that is not the pinned
 * one and only says so. Without the apostrophe it speaks of another address of a host whose key is the pinned one, as
 * it does by itself up to 8.4.
 */
constexpr char unknown_key_accepted[] = "Warning: Permanently added '";

bool says_host_key_is_wrong(const std::string& line) {
  return contains(line, "REMOTE HOST IDENTIFICATION HAS CHANGED") || contains(line, "Host key verification failed.") ||
         starts_with(line, "The authenticity of ") || starts_with(line, "Add correct host key in ") ||
         starts_with(line, unknown_key_accepted);
}

/* Returns the canonical form of an IPv4 address, or an empty text when host is none. */
std::string canonical_address(const char* host) {
  in_addr address{};
  char canonical[INET_ADDRSTRLEN];
  if (inet_aton(host, &address) == 0 || inet_ntop(AF_INET, &address, canonical, sizeof canonical) == nullptr) return "";
  return canonical;
}

/*
 * Returns how the client may write user and host in its password prompt. It prints the host in lower case, and an
 * address in its canonical form; older ones print it as given. Up to 7.9 it cuts both.
 */
std::vector<std::string> prompt_spellings(const tavren_settings_t& settings) {
  constexpr size_t longest_user = 30;
  constexpr size_t longest_host = 128;
  const std::string user = settings.user;
  const std::string user_at = user + "@";
  const std::string cut_user_at = user.substr(0, longest_user) + "@";
  const std::string host = settings.host;
  std::string lower_case = host;
  std::transform(lower_case.begin(), lower_case.end(), lower_case.begin(),
                 [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });

  std::vector<std::string> spellings;
  for (const std::string& spelling : {host, lower_case, canonical_address(settings.host)}) {
    if (spelling.empty()) continue;
    spellings.push_back(user_at + spelling);
    if (user.size() > longest_user || spelling.size() > longest_host) {
      spellings.push_back(cut_user_at + spelling.substr(0, longest_host));
    }
  }
  return spellings;
}

/* Returns the names under which the client may look for the host in a known-hosts file. */
std::string known_host_names(const char* host) {
  const std::string canonical = canonical_address(host);
  return canonical.empty() || canonical == host ? host : host + ("," + canonical);
}

/* Returns the blank-separated words of a command text. */
std::list<std::string> words_of(const std::string& text) {
  std::list<std::string> words;
  for (size_t start = 0; (start = text.find_first_not_of(' ', start)) != std::string::npos;) {
    const size_t end = std::min(text.find(' ', start), text.size());
    words.push_back(text.substr(start, end - start));
    start = end;
  }
  return words;
}

/* A line to be typed that is wiped before its memory is given back. It is built in one place, so there is one copy. */
struct SecretLine {
  explicit SecretLine(const char* secret) {
    text.reserve(strlen(secret) + 1);
    text += secret;
    text += '\n';
  }
  ~SecretLine() { explicit_bzero(text.data(), text.size()); }
  SecretLine(const SecretLine&) = delete;
  SecretLine& operator=(const SecretLine&) = delete;

  std::string text;
};

/* Throws the system-call error for call on path; a half-written file is taken away first. */
[[noreturn]] void throw_file_error(const char* call, const std::string& path, bool remove) {
  const int error = errno;
  if (remove) unlink(path.c_str());
  tavren_throw_syscall_error(call + ("(" + path + ")"), error);
}

}  // namespace

void TavrenHost::open_connection() {
  const TavrenAutoLock lock(connection_mutex);
  if (!enabled) throw TavrenOperationCancelled();
  if (process != nullptr) return;

  try {
    if (TavrenTunables::instance().get_loopback_login() != 0) {
      open_sh_connection();
    } else {
      open_ssh_connection();
    }
    set_connection_status(TAVREN_CONNECTION_OK);
    log_connection_outcome(nullptr);
  } catch (TavrenError& error) {
    set_connection_status(TAVREN_CONNECTION_FAILED);
    log_connection_outcome(&error);
    error.add_first_line(TAVREN_E_SSH_START, settings.host, "");
    console_error_connection(settings.host);
    throw;
  }

  run_and_check_ecode(get_cmd("cd") + quote_for_shell(settings.dir));
  if (configure_shell) run_line("umask 022; set +f", nullptr);
}

void TavrenHost::open_ssh_connection() {
  start_ssh_and_login();
  check_login_result();
}

void TavrenHost::open_sh_connection() {
  /* A host that cannot be reached can so be tried without a network. */
  const bool unreachable = strcmp(settings.host, "badhost") == 0;
  process = new TavrenProcess(unreachable ? "/no-such-command" : get_cmd("sh"), {}, true);
}

void TavrenHost::start_ssh_and_login() {
  const std::string target = std::string(settings.user) + "@" + settings.host;
  const int timeout = TavrenTunables::instance().get_ssh_connect_timeout();
  const long deadline = deadline_after(timeout);
  try {
    if (settings.host_key[0] != '\0') {
      run_ssh_with_key(target, deadline);
    } else {
      run_ssh_without_key(target, deadline);
    }
    wait_for_password_prompt(deadline);
    send_password(timeout);
  } catch (const TavrenTimeout&) {
    throw TavrenError(TAVREN_E_CONNECT_TIMEOUT, settings.host, "");
  }
}

void TavrenHost::run_ssh_with_key(const std::string& target, long deadline) {
  if (!hosts_file_current) {
    update_hosts_file();
    hosts_file_current = true;
  }
  start_ssh_process(target, hosts_file);

  const std::vector<std::string> prompts = prompt_spellings(settings);
  std::string line;
  while (!read_line_or_prompt(line, deadline, prompts)) {
    if (says_host_key_is_wrong(line)) {
      TavrenError error(TAVREN_E_HOST_AUTH, settings.host, "");
      error.add_line(TAVREN_E_HOST_KEY_MISMATCH, "", "");
      throw error;
    }
  }
}

void TavrenHost::run_ssh_without_key(const std::string& target, long deadline) {
  /* No host is known there, so the client asks, unless the machine's own configuration tells it not to. */
  start_ssh_process(target, no_file);
  accept_host_key(child(), prompt_spellings(settings), deadline);
}

void TavrenHost::wait_for_password_prompt(long deadline) {
  const std::vector<std::string> prompts = prompt_spellings(settings);
  child().read_until_line_starts_with(TavrenProcess::Prefixes{prompts.data(), prompts.size()}, deadline);
}

/* Reads a line, and returns false, or finds one of prompts at the front of the unread output, and returns true. */
bool TavrenHost::read_line_or_prompt(std::string& line, long deadline, const std::vector<std::string>& prompts) {
  if (seconds_until(deadline) < 1) throw TavrenTimeout();
  return child().read_line(line, deadline, TavrenProcess::Prefixes{prompts.data(), prompts.size()});
}

/*
 * In one piece: the client throws away what was typed before it asks, and of two pieces it could throw away one and
 * take the other for a password.
 */
void TavrenHost::send_password(int timeout) {
  const SecretLine line(settings.password);
  child().send(line.text, timeout);
}

void TavrenHost::update_hosts_file() {
  if (!hosts_file.empty()) {
    unlink(hosts_file.c_str());
    hosts_file.clear();
  }
  TAVREN_ASSERT("TavrenHost", tavren_get_tmp_dir() != NULL);
  const std::string path = std::string(tavren_get_tmp_dir()) + "/known_hosts";

  const mode_t old_umask = umask(022);
  FILE* file = make_own_file(path.c_str());
  const int open_error = errno;
  umask(old_umask);
  errno = open_error;
  if (file == nullptr) throw_file_error("fopen", path, false);

  /*
   * The second line is for a port that the machine's own configuration sets: the client then looks for [HOST]:PORT, and
   * where that configuration also turns the checking off, a host that is found nowhere would be given the password.
   */
  const char* key = settings.host_key;
  if (fprintf(file, "%s %s\n[*]:* %s\n", known_host_names(settings.host).c_str(), key, key) < 0) {
    const int error = errno;
    fclose(file);
    errno = error;
    throw_file_error("fprintf", path, true);
  }
  if (fclose(file) != 0) throw_file_error("fclose", path, true);
  hosts_file = path;
}

void TavrenHost::start_ssh_process(const std::string& target, const std::string& known_hosts_file) {
  const std::string ssh = get_cmd("ssh");
  if (ssh.find(' ') == ssh.size() - 1) {
    const std::string sh = get_cmd("sh");
    /*
     * Everything arrives on the error stream, so that it comes in order, and the marker tells that the password was
     * accepted.
     */
    const std::string remote_command = sh + "-c 'echo SHELL STARTED. >&2; " + sh + ">&2'";
    process = new TavrenProcess(ssh,
                                {"-2", "-4", "-T", "-oPreferredAuthentications=password",
                                 "-oGlobalKnownHostsFile=" + option_word(known_hosts_file),
                                 "-oUserKnownHostsFile=/dev/null", target, remote_command},
                                false);
    return;
  }
  /*
   * Words of its own replace the whole command line, deliberately: target and remote command included. A blank that is
   * not the last character makes it one, also where no second word follows.
   */
  std::list<std::string> words = words_of(ssh);
  if (words.empty()) words.emplace_back(); /* nothing to run, which the child then reports */
  const std::string executable = words.front();
  words.pop_front();
  process = new TavrenProcess(executable, words, false);
}

void TavrenHost::check_login_result() {
  const long deadline = deadline_after(TavrenTunables::instance().get_ssh_shell_start_timeout());
  try {
    std::string line;
    do {
      read_line_until_deadline(line, deadline);
      if (contains(line, "Permission denied, please try again")) throw TavrenError(TAVREN_E_LOGIN_DENIED, "", "");
    } while (!contains(line, "SHELL STARTED."));
  } catch (const TavrenTimeout&) {
    TavrenError error(TAVREN_E_SHELL_START_TIMEOUT, settings.host, "");
    for (const std::string& line : child().get_recent_lines()) error.add_line(TAVREN_E_OUTPUT, line, "");
    throw error;
  }
}
