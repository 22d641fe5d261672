#ifndef TESTS_HOST_STREAM_FIXTURE_H
#define TESTS_HOST_STREAM_FIXTURE_H

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "host/polling_shell.h"
#include "support/client_dialogue.h"
#include "support/files.h"
#include "support/host_session.h"
#include "support/recorded_system.h"
#include "support/scripted_client.h"
#include "support/temporary_directory.h"

/* A session on a terminal whose far end sees the end of a stream. */
class StreamTest : public HostTest {
 protected:
  StreamTest() {
    recorded_system::reset();
    settings.dir = directory.path();
    enable();
    open_with(polling_shell);
  }
  ~StreamTest() override { recorded_system::reset(); }

  void send(const std::string& text, const std::string& name = "file") {
    host.start_send_stream(name);
    constexpr size_t piece = 2048;
    for (size_t start = 0; start < text.size(); start += piece) {
      const std::string part = text.substr(start, piece);
      host.continue_send_stream(part.data(), static_cast<unsigned int>(part.size()));
    }
    host.end_send_stream();
  }

  void reopen() {
    host.close_connection();
    host.open_connection();
  }

  /* Opens the session, anew, with a client that becomes a shell by the lines become. */
  void open_with(const std::string& become) {
    client = std::make_unique<ScriptedClient>(become + ClientDialogue().login());
    set_command("ssh", client->path());
    reopen();
  }

  /* Sends until the far side's complaint is there. Returns the error. */
  std::string complaint_about(const std::string& text) {
    return error_body([&] {
      for (int i = 0; i < 1000000; ++i) host.continue_send_stream(text.data(), static_cast<unsigned int>(text.size()));
    });
  }

  std::string received(const std::string& name) const { return read_file(directory.path(name)); }

  static std::string text_of(size_t size) {
    std::string text(size, '\n');
    for (size_t i = 0; i < size; ++i) {
      if (i % 61 != 60) text[i] = static_cast<char>('!' + (i * 7919) % 90);
    }
    return text;
  }

  const TemporaryDirectory directory;
  std::unique_ptr<ScriptedClient> client;
};

#endif
