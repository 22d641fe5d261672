#include <gtest/gtest.h>
#include <signal.h>

#include <string>

#include "host/measured_time.h"
#include "host/stream_fixture.h"
#include "support/run_in_child.h"

/*
 * How long ending a stream waits for the far side.
 */
namespace {

class StreamTime : public StreamTest, protected MeasuredTime {
 protected:
  std::string timeout_of(const ScriptedClient& writer) const {
    return "  - Timeout occurred while running remote command: \"" + writer.path() + " >'file' (1)\"\n";
  }
};

}  // namespace

TEST_F(StreamTime, DataIsReadWithinTheTimeOfACommand) {
  const pid_t child = std::stoi(output_of(host, "echo $PPID"));
  const ScriptedClient writer("exec sleep 100", "writer");
  set_command("cat", writer.path());
  host.start_send_stream("file");
  kill(child, SIGSTOP);
  host.continue_send_stream("content", 7);
  start_measuring(directory.path());
  EXPECT_EQ(error_body([this] { host.end_send_stream(); }), timeout_of(writer));
  /* It is looked for ten times a second, and not once more. */
  EXPECT_EQ(passed(), command_time);
}

/* One that did not end in time keeps the shell to itself. */
TEST_F(StreamTime, TheEndOfFileAndTheWriterHaveTheTimeOfACommandTogether) {
  const ScriptedClient writer("cat; : >$dir/silence; exec sleep 100", "writer");
  set_command("cat", writer.path());
  for (const int seconds_of_the_end : {0, 1}) {
    host.start_send_stream("file");
    if (seconds_of_the_end != 0) recorded_system::refuse_to_write("\x04", seconds_of_the_end);
    start_measuring(writer.path("silence"));
    EXPECT_EQ(error_body([this] { host.end_send_stream(); }), timeout_of(writer));
    EXPECT_EQ(passed(), all_of(command_time)) << seconds_of_the_end;
    expect_assertion("TavrenHost", "running_command.size() == 0", [this] { host.run_and_check_ecode("pwd"); });
    std::filesystem::remove(writer.path("silence"));
    start_measuring();
    reopen();
  }
}
