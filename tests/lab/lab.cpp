#include "lab/lab.h"

#include <stdio.h>
#include <stdlib.h>
#include <syslog.h>

#include <filesystem>
#include <sstream>
#include <stdexcept>

#include "TavrenTunables.h"
#include "support/files.h"
#include "support/own_machine.h"
#include "tavren_assert.h"
#include "tavren_share.h"

namespace lab {

std::string value(const char* name) {
  const char* text = getenv(name);
  if (text == nullptr) throw std::runtime_error(std::string(name) + " is not set: not in the lab");
  return text;
}

Settings settings() {
  return {value("LAB_HOST"), value("LAB_ARCHIVE"), value("LAB_USER"), value("LAB_PASSWORD"), "", ""};
}

Settings settings_with(std::string Settings::*setting, const std::string& value) {
  Settings changed = settings();
  changed.*setting = value;
  return changed;
}

void run(const std::string& command) {
  if (system(command.c_str()) != 0) throw std::runtime_error("failed: " + command);
}

void change_machine(const std::string& command) {
  need_own_machine(command);
  run(command);
}

namespace {

std::string public_half(const std::string& name) {
  const std::string line = read_file(value("LAB") + "/" + name + ".pub");
  return line.substr(0, line.find_last_not_of(" \n") + 1);
}

}  // namespace

std::string make_key(const std::string& name, const std::string& options) {
  run("rm -f $LAB/" + name + "; ssh-keygen -q -N '' -C '' -f $LAB/" + name + " " + options);
  return public_half(name);
}

std::string take_long_key(const std::string& name) {
  run("install -m 600 " RSA_8192 " $LAB/" + name);
  run("ssh-keygen -y -f $LAB/" + name + " >$LAB/" + name + ".pub");
  return public_half(name);
}

void set_password(const std::string& password) {
  FILE* program = popen(value("LAB_SET_PASSWORD").c_str(), "w");
  if (program == nullptr || fputs(password.c_str(), program) == EOF || pclose(program) != 0) {
    throw std::runtime_error("cannot set the password");
  }
}

void configure_sshd(const std::string& lines) {
  const std::string config = value("LAB_SSHD_CONFIG");
  write_file(config, lines + "\n" + read_file(config));
  run("\"$LAB_RESTART_SSHD\"");
}

void stop_sshd() { run("kill $(cat $LAB/sshd.pid); while [ -e $LAB/sshd.pid ]; do sleep 0.01; done"); }

/* Connections to the stopped sshd may be left: they hold the port unless reuseaddr, and are in the table of sockets. */
void serve_silence() {
  stop_sshd();
  run("socat TCP-LISTEN:22,bind=127.0.0.1,fork,reuseaddr SYSTEM:'touch $LAB/accepted; sleep 100' & "
      "until grep -q ':0016 00000000:0000 0A ' /proc/net/tcp; do sleep 0.01; done");
}

void kill_sshd_and_sessions() { run("pkill -KILL -f \"^sshd: (.*$LAB_SSHD_CONFIG|$LAB_USER)\""); }

std::string console() {
  if (value("LAB_CONSOLE").empty()) skip("the console is in other hands");
  return read_file(value("LAB_CONSOLE"));
}

/* The log socket keeps what one program sends in order, so a last line tells that all others have arrived. */
std::string system_log() {
  if (value("LAB_SYSLOG").empty()) skip("the system log is in other hands");
  static int count = 0;
  const std::string last = "end of the log " + std::to_string(++count) + ".";
  syslog(LOG_INFO, "%s", last.c_str());
  run("for i in $(seq 2000); do grep -q '" + last + "' $LAB_SYSLOG && exit 0; sleep 0.01; done; exit 1");
  return read_file(value("LAB_SYSLOG"));
}

std::string archived(const std::string& name) { return value("LAB_ARCHIVE") + "/" + name; }

}  // namespace lab

ScopedTunable::ScopedTunable(const std::string& tunable, int value) : name(tunable) {
  std::string error;
  TavrenTunables::instance().set_tunable(name, std::to_string(value), error);
  if (!error.empty()) throw std::runtime_error(error);
}

ScopedTunable::~ScopedTunable() {
  std::string ignored;
  TavrenTunables::instance().set_tunable(name, "default", ignored);
}

std::string error_of(const std::function<void()>& action) {
  try {
    action();
  } catch (const TavrenError& error) {
    std::ostringstream text;
    text << error.get_ecode() << "\n";
    error.print_body(text);
    return text.str();
  }
  return no_error;
}

namespace {

void remove_what_is_in(const std::string& directory) {
  for (const auto& entry : std::filesystem::directory_iterator(directory)) std::filesystem::remove_all(entry.path());
}

/* The directory around them stays, and the log in it: the library makes and opens them once in a process. */
void remove_private_directories() {
  const std::string root = lab::value("LAB") + "/tavren_tmp";
  if (!std::filesystem::exists(root)) return;
  for (const auto& entry : std::filesystem::directory_iterator(root)) {
    if (entry.is_directory()) std::filesystem::remove_all(entry.path());
  }
}

}  // namespace

LabTest::LabTest() {
  remove_private_directories();
  remove_what_is_in(lab::value("LAB_ARCHIVE"));
  std::filesystem::permissions(lab::value("LAB_ARCHIVE"), std::filesystem::perms{0755});
  for (const char* log : {"LAB_CONSOLE", "LAB_SYSLOG", "LAB_SSHD_LOG"}) {
    if (!lab::value(log).empty()) write_file(lab::value(log), "");
  }
  setenv("TAVREN_HOME", lab::value("LAB").c_str(), 1);
  tavren_set_program_name("lab");
  char message[TAVREN_MESSAGE_SIZE];
  if (tavren_setup_tmp_dir("lab", message) != 0) throw std::runtime_error(message);
}

LabTest::~LabTest() {
  for (const auto& host : sessions) host->close_connection();
  tavren_cleanup_tmp_dir();
}

TavrenHost& LabTest::session(Settings settings, bool log) {
  sessions.push_back(std::make_unique<TavrenHost>(false, log));
  sessions.back()->set_settings(settings.record());
  sessions.back()->enable();
  return *sessions.back();
}

TavrenHost& LabTest::connected_session() {
  TavrenHost& host = session(lab::settings());
  host.open_connection();
  return host;
}

std::string LabTest::outcome_of_login(const Settings& settings, bool log) {
  return error_of([&] { session(settings, log).open_connection(); });
}
