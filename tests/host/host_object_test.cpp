#include <gtest/gtest.h>
#include <signal.h>
#include <stdio.h>
#include <sys/wait.h>

#include <functional>
#include <future>
#include <string>
#include <thread>
#include <utility>

#include "TavrenExceptions.h"
#include "TavrenHost.h"
#include "support/client_dialogue.h"
#include "support/host_session.h"
#include "support/process_state.h"
#include "support/recorded_system.h"
#include "support/run_in_child.h"
#include "support/scripted_client.h"

namespace {

using Status = std::pair<tavren_connection_status_t, long>;

Status status_of(TavrenHost& host) {
  Status result{};
  host.get_connection_status(result.first, result.second);
  return result;
}

class HostObject : public LoopbackTest {};

}  // namespace

TEST_F(HostObject, SettingsAreCopiedDeeplyInPlaceOfOldOnes) {
  host.set_settings(settings.record());
  settings.user = "somebody";
  settings.host_key = "ssh-ed25519 AAAA";
  settings.fingerprint = "SHA256:x";
  host.set_settings(settings.record());
  Settings wanted = settings;
  settings.host = "other.example";
  tavren_settings_t copy{};
  host.get_settings(copy);
  const tavren_settings_t record = wanted.record();
  EXPECT_EQ(tavren_settings_are_equal(&copy, &record), 1);
  EXPECT_STREQ(copy.fingerprint, "SHA256:x");
  tavren_settings_free_contents(&copy);
}

/* Freeing the record's strings, which are no blocks of their own, would end the process. */
TEST_F(HostObject, SettingsAreCopiedOverARecordWhoseStringsStay) {
  const Outcome outcome = run_in_child([this] {
    host.set_settings(settings.record());
    Settings old{"old.example", "/old", "old user", "old secret", "old key", "old fingerprint"};
    tavren_settings_t copy = old.record();
    host.get_settings(copy);
    for (const std::string* text : {&old.host, &old.dir, &old.user, &old.password, &old.host_key, &old.fingerprint}) {
      printf("%s, ", text->c_str());
    }
    printf("%s", copy.host);
    tavren_settings_free_contents(&copy);
  });
  EXPECT_EQ(outcome.out, "old.example, /old, old user, old secret, old key, old fingerprint, archive.example");
}

TEST_F(HostObject, EnablingWithoutSettingsAndEnablingOrDisablingTwiceAreFailedAssertions) {
  expect_assertion("TavrenHost", "settings.host != NULL", [this] { host.enable(); });
  host.set_settings(settings.record());
  expect_assertion("TavrenHost", "enabled", [this] { host.disable(); });
  host.enable();
  expect_assertion("TavrenHost", "!enabled", [this] { host.enable(); });
  host.disable();
  expect_assertion("TavrenHost", "enabled", [this] { host.disable(); });
}

TEST_F(HostObject, OpeningAHostThatIsNotEnabledIsCancelledAndLeavesTheStatusAlone) {
  host.set_settings(settings.record());
  EXPECT_THROW(host.open_connection(), TavrenOperationCancelled);
  EXPECT_EQ(status_of(host), Status(TAVREN_CONNECTION_NONE, 0));
  host.enable();
  host.disable();
  EXPECT_THROW(host.open_connection(), TavrenOperationCancelled);
  EXPECT_EQ(status_of(host), Status(TAVREN_CONNECTION_NONE, 0));
  host.enable();
  host.open_connection();
  EXPECT_EQ(output_of(host, "pwd"), directory.path());
}

TEST_F(HostObject, DisablingCancelsWhatFollowsAndLeavesTheChildInPlaceUntilItIsClosed) {
  open();
  const pid_t child = std::stoi(output_of(host, "echo $$"));
  host.disable();
  EXPECT_TRUE(has_survived(child));
  EXPECT_THROW(host.run_and_check_ecode("exec sleep 100"), TavrenOperationCancelled);
  EXPECT_THROW(host.open_connection(), TavrenOperationCancelled);
  host.close_connection();
  host.enable();
  host.open_connection();
  EXPECT_EQ(output_of(host, "pwd"), directory.path());
}

TEST_F(HostObject, DisablingBreaksARunningCommand) {
  open();
  const ScriptedClient meeting("");
  const std::string started = meeting.make_fifo("started");
  const std::string never = meeting.make_fifo("never");
  auto command = std::async(std::launch::async, [&] {
    EXPECT_THROW(host.run_and_check_ecode("echo >" + started + "; read x <" + never), TavrenOperationCancelled);
  });
  wait_at(started);
  host.disable();
  command.get();
}

TEST_F(HostObject, SettingTheStatusStampsTheTimeEachTimeAndClearingItClearsThat) {
  long now = 1000000;
  for (const auto status :
       {TAVREN_CONNECTION_FAILED, TAVREN_CONNECTION_FAILED, TAVREN_CONNECTION_OK, TAVREN_CONNECTION_OK}) {
    recorded_system::set_time(now += 60);
    host.set_connection_status(status);
    EXPECT_EQ(status_of(host), Status(status, now));
  }
  host.clear_connection_status();
  EXPECT_EQ(status_of(host), Status(TAVREN_CONNECTION_NONE, 0));
}

TEST_F(HostObject, TheStatusIsConsistentForOtherThreads) {
  /* The thread sanitizer has the last word on this one. */
  recorded_system::set_time(1000000);
  std::thread reader([this] {
    for (int i = 0; i < 1000; ++i) {
      const auto [status, when] = status_of(host);
      EXPECT_EQ(status == TAVREN_CONNECTION_NONE, when == 0);
    }
  });
  for (int i = 0; i < 1000; ++i) {
    host.set_connection_status(TAVREN_CONNECTION_OK);
    host.clear_connection_status();
  }
  reader.join();
}

/* What stands under the lock of the status: the time is taken there, and a thread that locks twice ends the process. */
TEST_F(HostObject, TheLockOfTheStatusIsTakenToSetClearAndReadIt) {
  const std::pair<const char*, std::function<void()>> accesses[] = {
      {"set", [this] { host.set_connection_status(TAVREN_CONNECTION_FAILED); }},
      {"clear", [this] { host.clear_connection_status(); }},
      {"read", [this] { status_of(host); }},
  };
  for (const auto& [what, access] : accesses) {
    SCOPED_TRACE(what);
    expect_assertion("TavrenMutex", "owner != pthread_self()", [&do_access = access, this] {
      recorded_system::at_next("time", do_access);
      host.set_connection_status(TAVREN_CONNECTION_OK);
    });
  }
}

TEST_F(HostObject, ClosingStopsTheChildAndKillsOneThatIgnoresTermination) {
  enable();
  for (const std::string before : {"", "trap '' TERM; "}) {
    host.open_connection();
    const pid_t child = std::stoi(output_of(host, before + "echo $$"));
    host.close_connection();
    EXPECT_EQ(kill(child, 0), -1) << before;
  }
}

TEST_F(HostObject, ClosingLeavesNoDescriptorOpenAndDoesNothingWithoutAConnection) {
  const std::ptrdiff_t before = count_open_descriptors();
  EXPECT_NO_THROW(host.close_connection());
  open();
  host.close_connection();
  EXPECT_EQ(count_open_descriptors(), before);
}

TEST_F(HostObject, ClosingForgetsATransfer) {
  open();
  host.start_send_stream("stream");
  host.close_connection();
  host.open_connection();
  EXPECT_EQ(output_of(host, "echo ready"), "ready");
}

TEST_F(HostObject, DestructionDeliberatelyKeepsTheChildRunning) {
  auto* session = new TavrenHost(false, false);
  session->set_settings(settings.record());
  session->enable();
  session->open_connection();
  const pid_t child = std::stoi(output_of(*session, "echo $$"));
  delete session;
  EXPECT_TRUE(has_survived(child));
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
}

TEST_F(HostObject, KillSendsTheChildATermination) {
  open();
  EXPECT_EQ(output_of(host, "trap 'echo terminated >outcome' TERM; echo ready"), "ready");
  host.kill_ssh();
  EXPECT_EQ(output_of(host, ": shells run their traps between two commands; cat outcome"), "terminated");
}

TEST_F(HostObject, KillBreaksARunningCommandOfAnotherThread) {
  open();
  const ScriptedClient meeting("");
  const std::string started = meeting.make_fifo("started");
  const std::string never = meeting.make_fifo("never");
  auto command = std::async(std::launch::async, [&] {
    return error_body([&] { host.run_and_check_ecode("echo >" + started + "; read x <" + never); });
  });
  wait_at(started);
  host.kill_ssh();
  EXPECT_EQ(first_lines(command.get(), 1), "  - Program exited unexpectedly: /bin/sh\n");
}

TEST_F(HostObject, KillBreaksALoginThatHangs) {
  set_tunable("loopback_login", "0");
  const ScriptedClient client(ClientDialogue().up_to_prompt() + "take password; echo >$dir/asked; read -r go <$dir/go");
  client.make_fifo("asked");
  set_command("ssh", client.path());
  enable();
  auto opening = std::async(std::launch::async, [&] { return error_body([&] { host.open_connection(); }); });
  /* Once it is answered the session has its child for certain. */
  wait_at(client.path("asked"));
  host.kill_ssh();
  EXPECT_EQ(first_lines(opening.get(), 2),
            "  - Failed to start secure shell session on archive.example\n"
            "  - Program exited unexpectedly: " +
                client.path() + "\n");
}

TEST_F(HostObject, ALoginWithAKeyNeedsThePrivateDirectory) {
  set_tunable("loopback_login", "0");
  settings.host_key = "ssh-ed25519 AAAA";
  enable();
  expect_assertion("TavrenHost", "tavren_get_tmp_dir() != NULL", [this] { host.open_connection(); });
}
