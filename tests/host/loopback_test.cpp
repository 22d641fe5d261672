#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/host_session.h"
#include "support/scripted_client.h"

namespace {

class Loopback : public LoopbackTest {};

}  // namespace

/* A host whose name only begins like the bad one's is an ordinary one. */
TEST_F(Loopback, OpensALocalShellInTheArchiveDirectoryForAnyNumberButZeroAndAnyHostAndKey) {
  set_tunable("loopback_login", "-1");
  settings.host = "badhost.example";
  settings.host_key = "ssh-ed25519 AAAA";
  open();
  EXPECT_EQ(output_of(host, "pwd"), directory.path());
  EXPECT_EQ(output_of(host, "[ -p /dev/stdin ] && echo pipe"), "pipe");
}

TEST_F(Loopback, RunsTheConfiguredShellWithoutArguments) {
  const ScriptedClient shell("exec /bin/sh");
  set_command("sh", shell.path());
  open();
  EXPECT_EQ(shell.arguments(), std::vector<std::string>{});
}

TEST_F(Loopback, ABadHostHasAShellThatCannotStart) {
  settings.host = "badhost";
  enable();
  EXPECT_EQ(error_body([this] { host.open_connection(); }),
            "  - Program exited unexpectedly: /no-such-command\n"
            "  - Output: \"Failed to run /no-such-command: No such file or directory\"\n");
  tavren_connection_status_t status = TAVREN_CONNECTION_NONE;
  long since = 0;
  host.get_connection_status(status, since);
  EXPECT_EQ(status, TAVREN_CONNECTION_OK); /* the shell was started; its end shows at the first command */
}
