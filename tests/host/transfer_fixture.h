#ifndef TESTS_HOST_TRANSFER_FIXTURE_H
#define TESTS_HOST_TRANSFER_FIXTURE_H

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "support/files.h"
#include "support/host_session.h"
#include "support/recorded_system.h"
#include "support/scripted_client.h"

/* An open session; files go to a directory of the test's own, through the real copy program unless told otherwise. */
class TransferTest : public LoopbackTest {
 protected:
  TransferTest() {
    recorded_system::reset();
    open();
  }
  ~TransferTest() override { recorded_system::reset(); }

  void start_over() {
    host.close_connection();
    host.open_connection();
  }

  /* Puts a script in the place of the remote copy program. It may use next_line NAME, which reads one line. */
  void use_sink(const std::string& body) {
    sink = std::make_unique<ScriptedClient>(
        "next_line() { IFS= read -r line; printf '%s\n' \"$line\" >>\"$dir/$1\"; }\n" + body, "sink");
    set_command("scp", sink->path());
  }

  /* What the sink was started with: the command in errors. */
  std::string sink_command(const std::string& path) const { return sink->path() + " '" + path + "'"; }

  std::string received(const std::string& name) const { return read_file(directory.path(name)); }

  std::unique_ptr<ScriptedClient> sink;
};

/* The same with the parts of a script for a sink that takes three bytes. */
class SinkTest : public TransferTest {
 protected:
  /* The errors of a file: its sink says output behind a byte of that code, or nothing at the step "0" or "1". */
  std::string failure(const std::string& code, const std::string& output) const {
    return "  - Remote command \"" + sink_command("file") + "\" failed with error code " + code +
           "\n  - Command output: \"" + output + "\"\n";
  }
  std::string timeout(const std::string& step) const {
    return "  - Timeout occurred while running remote command: \"" + sink_command("file") + " (" + step + ")\"\n";
  }

  /* Script lines: up to the answer to the header, to the data, and to the "E". */
  const std::string header = "printf '\\0'; next_line header\n";
  const std::string data = header + "printf '\\0'; head -c 4 >$dir/data\n";
  const std::string end = data + "printf '\\0'; next_line end\n";
  const std::string wait_forever = "exec sleep 100\n";
};

/* Bytes of all values, in no simple order. */
inline std::string some_bytes(size_t size) {
  std::string bytes(size, '\0');
  unsigned int state = 1;
  for (char& byte : bytes) {
    state = state * 1103515245 + 12345;
    byte = static_cast<char>(state >> 16);
  }
  return bytes;
}

#endif
