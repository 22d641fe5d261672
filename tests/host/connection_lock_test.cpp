#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <future>
#include <string>
#include <thread>
#include <utility>

#include "TavrenHost.h"
#include "support/client_dialogue.h"
#include "support/host_session.h"
#include "support/process_state.h"
#include "support/real_function.h"
#include "support/recorded_system.h"
#include "support/run_in_child.h"
#include "support/scripted_client.h"

/*
 * Disabling, opening and closing come one after the other; the status, the settings and enabling wait for none of them.
 */
namespace {

/* Run before the next signal is sent, as closing sends one under its lock. */
std::function<void()> at_next_kill;

}  // namespace

STANDS_BEFORE_THE_REAL_ONE int kill(pid_t pid, int number) noexcept {
  if (at_next_kill) std::exchange(at_next_kill, nullptr)();
  return real<int(pid_t, int)>("kill")(pid, number);
}

namespace {

class ConnectionLock : public LoopbackTest {
 protected:
  /* Has another thread open the connection, and waits until the far side writes to the named pipe paused. */
  void begin_opening(const std::string& paused) {
    enable();
    opening = std::async(std::launch::async, [this] { host.open_connection(); });
    wait_at(paused);
  }

  /* Expects the opening, whose far side waits for go, not to be disturbed by one that disables the session. */
  void expect_undisturbed_opening(const std::string& go) {
    std::atomic<pid_t> disabler{0};
    std::atomic<bool> disabled{false};
    auto disabling = std::async(std::launch::async, [&] {
      disabler = gettid();
      host.disable();
      disabled = true;
    });
    /* It sleeps nowhere but at the mutex. */
    while (!disabled && (disabler == 0 || state_of_thread(disabler) != 'S')) std::this_thread::yield();
    release(go);
    EXPECT_NO_THROW(opening.get());
    disabling.get();
  }

  std::future<void> opening;
};

/*
 * A login that hangs at the client's prompt until the test lets it go on. Whoever waited for it would find that it has
 * failed meanwhile.
 */
class HangingLogin : public ConnectionLock {
 protected:
  HangingLogin() : client(ClientDialogue().up_to_prompt() + hang + "take password\n" + shell_starts) {
    set_tunable("loopback_login", "0");
    client.make_fifo("asked");
    set_command("ssh", client.path());
    host.set_connection_status(TAVREN_CONNECTION_OK);
    begin_opening(client.path("asked"));
  }

  void expect_login() {
    release(client.path("go"));
    EXPECT_NO_THROW(opening.get());
  }

  const std::string hang = "echo >$dir/asked; read -r go <$dir/go\n";
  const std::string shell_starts = say(ClientDialogue::shell_started()) + "become_shell\n";
  const ScriptedClient client;
};

}  // namespace

TEST_F(ConnectionLock, DisablingWaitsForAChangeOfDirectoryInProgress) {
  const ScriptedClient meeting("");
  const std::string asked = meeting.make_fifo("asked");
  set_command("cd", "echo >" + asked + "; read go <" + meeting.path("go") + "; cd");
  begin_opening(asked);
  expect_undisturbed_opening(meeting.path("go"));
}

TEST_F(ConnectionLock, DisablingWaitsForAClosingInProgress) {
  open();
  const pid_t child = std::stoi(output_of(host, "echo $$"));
  /* So that the termination, and with it the closing, has to wait. */
  kill(child, SIGSTOP);
  auto closing = std::async(std::launch::async, [this] { host.close_connection(); });
  while (is_alive(child) && !is_pending(child, SIGTERM)) std::this_thread::yield();
  host.disable();
  EXPECT_FALSE(is_alive(child));
  closing.get();
}

/* A thread that takes the lock a second time does not wait for itself, it ends the process. */
TEST_F(ConnectionLock, IsHeldUntilAnOpeningHasSentItsLastLine) {
  expect_assertion("TavrenMutex", "owner != pthread_self()", [this] {
    TavrenHost configured(true, false);
    configured.set_settings(settings.record());
    configured.enable();
    recorded_system::at_next("write umask 022; set +f\n", [&] { configured.disable(); });
    configured.open_connection();
  });
}

TEST_F(ConnectionLock, IsNotTakenToSetTheSettingsOrToEnable) {
  const Outcome outcome = run_in_child([this] {
    open();
    host.disable();
    at_next_kill = [this] { enable(); };
    host.close_connection();
  });
  EXPECT_TRUE(outcome.exited_with(0)) << outcome.err;
}

TEST_F(HangingLogin, IsWaitedForByDisabling) { expect_undisturbed_opening(client.path("go")); }

TEST_F(HangingLogin, DoesNotKeepTheStatusFromBeingReadAndCleared) {
  for (const tavren_connection_status_t expected : {TAVREN_CONNECTION_OK, TAVREN_CONNECTION_NONE}) {
    tavren_connection_status_t status{};
    long when = 0;
    host.get_connection_status(status, when);
    EXPECT_EQ(status, expected);
    host.clear_connection_status();
  }
  expect_login();
}
