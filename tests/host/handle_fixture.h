#ifndef TESTS_HOST_HANDLE_FIXTURE_H
#define TESTS_HOST_HANDLE_FIXTURE_H

#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>

#include <memory>
#include <stdexcept>
#include <string>

#include "host/polling_shell.h"
#include "support/client_dialogue.h"
#include "support/complete_settings.h"
#include "support/files.h"
#include "support/host_session.h"
#include "support/recorded_system.h"
#include "support/run_in_child.h"
#include "support/scripted_client.h"
#include "tavren_host_util.h"

/* The handle as the library has it: what a C program does not see. */
struct tavren_hp_t {
  TavrenHost* host;
};

/* A session behind a handle, with a client that logs in. */
class HandleTest : public HostTest {
 protected:
  HandleTest() : client(polling_shell + dialogue.login()) {
    recorded_system::reset();
    settings.dir = directory.path();
    set_command("ssh", client.path());
  }
  ~HandleTest() override {
    destroy();
    recorded_system::reset();
  }

  void expect_failed_assertion_without_a_key_field(tavren_hp_t* (*make)(const tavren_settings_t*, char**)) {
    tavren_settings_t record = settings.record();
    record.host_key = nullptr;
    expect_assertion("tavren_api", settings_are_complete, [&] { make(&record, &message); });
  }

  void create() {
    const tavren_settings_t record = settings.record();
    handle = tavren_hp_create(&record, &message);
    /* Thrown, so that no test goes on to signal a child that it has not got. */
    if (handle == nullptr) throw std::runtime_error(take_message());
    child = std::stoi(output_of(*handle->host, "echo $PPID"));
  }

  /* Stops the child first, which destroying the handle alone does not do. */
  void destroy() {
    if (handle == nullptr) return;
    handle->host->close_connection();
    tavren_hp_destroy(handle);
    handle = nullptr;
  }

  /* Makes the next login fail, its child waiting. */
  void refuse_login() {
    refusing_client = std::make_unique<ScriptedClient>("echo $$ >$dir/pid\n" + dialogue.up_to_prompt() +
                                                       "take password\n" + say(dialogue.refusal()) + "exec sleep 100");
    set_command("ssh", refusing_client->path());
  }

  /* Ends the child, so that every further request fails. socat can miss a termination, nobody misses this. */
  void break_session() {
    kill(child, SIGKILL);
    wait_for_exit(child);
  }

  std::string take_message() {
    const std::string text = message == nullptr ? "" : message;
    free(message);
    message = nullptr;
    return text;
  }

  std::string received(const std::string& name) const { return read_file(directory.path(name)); }

  static constexpr char denied[] =
      "  - Failed to start secure shell session on archive.example\n"
      "  - Secure shell login failed: permission denied\n";

  ClientDialogue dialogue;
  const TemporaryDirectory directory;
  const ScriptedClient client;
  std::unique_ptr<ScriptedClient> refusing_client;
  tavren_hp_t* handle = nullptr;
  pid_t child = -1;
  char* message = nullptr;
  char left_over[10] = "left over"; /* what a message may be before a call */
};

#endif
