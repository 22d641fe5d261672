#ifndef TESTS_HOST_LOGIN_FIXTURE_H
#define TESTS_HOST_LOGIN_FIXTURE_H

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "support/client_dialogue.h"
#include "support/host_session.h"
#include "support/scripted_client.h"

/* A session that logs in with a scripted client. */
class LoginTest : public HostTest {
 protected:
  LoginTest() {
    private_directory();
    settings.password = "it's $1\\2";
  }

  /* Connects with a client that runs the lines body. */
  void open(const std::string& body) {
    play(body);
    enable();
    host.open_connection();
  }

  /*
   * The same for a login that must fail. Returns the error's body, which never shows the password, with CLIENT in the
   * place of the client's path.
   */
  std::string open_error(const std::string& body) {
    std::string error = error_body([&] { open(body); });
    EXPECT_EQ(error.find(settings.password), std::string::npos) << error;
    const size_t path = error.find(client->path());
    return path == std::string::npos ? error : error.replace(path, client->path().size(), "CLIENT");
  }

  void play(const std::string& body) {
    client = std::make_unique<ScriptedClient>(body);
    set_command("ssh", client->path());
  }

  /* Makes the host one whose key is known. */
  void use_key() { settings.host_key = "ssh-ed25519 AAAA"; }

  /* Closes the connection and forgets the client, so that another one can be opened. */
  void start_over() {
    host.close_connection();
    host.disable();
  }

  tavren_connection_status_t status() {
    tavren_connection_status_t result{};
    long when = 0;
    host.get_connection_status(result, when);
    return result;
  }

  const std::string failed_to_start = "  - Failed to start secure shell session on archive.example\n";
  const std::string connect_timeout = failed_to_start + "  - Timeout occurred while connecting to archive.example\n";
  const std::string shell_timeout =
      failed_to_start + "  - Timeout occurred while waiting for shell to start on archive.example\n";
  const std::string denied = failed_to_start + "  - Secure shell login failed: permission denied\n";
  const std::string key_mismatch = failed_to_start +
                                   "  - Failed to authenticate the remote host (archive.example)\n"
                                   "  - The public host key setting does not match the remote host's private key\n";
  const std::string client_ended = failed_to_start + "  - Program exited unexpectedly: CLIENT\n";

  /* What follows the prompt in a successful login. */
  const std::string rest = "take password\n" + say(ClientDialogue::shell_started()) + "become_shell\n";

  ClientDialogue dialogue;
  std::unique_ptr<ScriptedClient> client;
};

#endif
