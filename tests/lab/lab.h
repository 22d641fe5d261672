#ifndef TESTS_LAB_LAB_H
#define TESTS_LAB_LAB_H

#include <gtest/gtest.h>

#include <functional>
#include <list>
#include <memory>
#include <string>

#include "TavrenError.h"
#include "TavrenHost.h"
#include "support/settings.h"

/* What the archive host around this process is and what can be done to it. */
namespace lab {

/* Returns the value that archive-host put into the environment under name. */
std::string value(const char* name);

/* Returns settings that log in, without a host key. */
Settings settings();

/* The same but for one of them. */
Settings settings_with(std::string Settings::*setting, const std::string& value);

/* Runs a shell command as root of the archive host; a failing one is a failure of the test. Nothing but $LAB and the
   account may change, since all else is other people's where the archive host is in place. */
void run(const std::string& command);

/* The same for what changes the machine. The test is skipped where that is not the archive host's own. */
void change_machine(const std::string& command);

/* Makes the key $LAB/name with those options of ssh-keygen. Returns its public half: type, blank, encoded key. */
std::string make_key(const std::string& name, const std::string& options);

/* The same with a key of 8,192 bits from the source tree: making one may take minutes. */
std::string take_long_key(const std::string& name);

/* Gives the account another password. */
void set_password(const std::string& password);

/* Puts lines in front of sshd's configuration, where they win (not so MaxStartups), and restarts it. */
void configure_sshd(const std::string& lines);

/* Stops sshd; the sessions that it has started go on. */
void stop_sshd();

/* Has a program listen in sshd's place that says nothing. $LAB/accepted appears once somebody has come. */
void serve_silence();

/* Kills the archive host's sshd with all sessions. */
void kill_sshd_and_sessions();

/* Returns what the system console has shown. Skips the test where the console is somebody else's. */
std::string console();

/* Returns the system log with everything that this program has sent to it. Skips the test where it is somebody else's.
 */
std::string system_log();

/* Returns the path of name in the archive directory, as root of the archive host sees it. */
std::string archived(const std::string& name);

}  // namespace lab

/* A tunable's value for the length of a scope. */
class ScopedTunable {
 public:
  ScopedTunable(const std::string& name, int value);
  ~ScopedTunable();
  ScopedTunable(const ScopedTunable&) = delete;
  ScopedTunable& operator=(const ScopedTunable&) = delete;

 private:
  std::string name;
};

constexpr char no_error[] = "no TavrenError was thrown";

/* Runs action and returns the body text of its TavrenError, the code of the first line before it, or no_error. */
std::string error_of(const std::function<void()>& action);

/* What error_of returns for a login whose key setting is not the host's, and for one that the host refuses. */
constexpr char key_mismatch[] =
    "4\n  - Failed to start secure shell session on localhost\n"
    "  - Failed to authenticate the remote host (localhost)\n"
    "  - The public host key setting does not match the remote host's private key\n";
constexpr char login_denied[] =
    "4\n  - Failed to start secure shell session on localhost\n"
    "  - Secure shell login failed: permission denied\n";

/*
 * A test with the program's private directory and sessions that are closed at the end. It finds the private directory
 * and the archive directory empty and nothing on the console or in the logs, whatever ran before it in the same
 * process. What else it does to the archive host stays done, so a test that does such a thing has one of its own:
 * EXCEPT in tests.cmake.
 */
class LabTest : public testing::Test {
 protected:
  LabTest();
  ~LabTest() override;

  /* Returns a session that is enabled with settings but not connected. With log, it logs how its logins end. */
  TavrenHost& session(Settings settings, bool log = false);

  /* Returns a connected session with lab::settings(). */
  TavrenHost& connected_session();

  /* Returns what comes of a login of a session of its own, as error_of does. */
  std::string outcome_of_login(const Settings& settings, bool log = false);

 private:
  std::list<std::unique_ptr<TavrenHost>> sessions;
};

#endif
