#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "host/handle_fixture.h"
#include "support/failing_memory.h"
#include "support/process_state.h"
#include "support/run_in_child.h"

namespace {

class Handle : public HandleTest {};

/* A session whose child is the shell itself. */
class HandleKill : public HandleTest {
 protected:
  void create_shell() {
    set_tunable("loopback_login", "1");
    const tavren_settings_t record = settings.record();
    handle = tavren_hp_create(&record, &message);
    if (handle == nullptr) throw std::runtime_error(take_message());
    shell = std::stoi(output_of(*handle->host, "echo $$"));
  }

  pid_t shell = -1;
};

class HandleCreation : public HandleTest {
 protected:
  /* Makes the next login fail, its child waiting. */
  void refuse_login() {
    refusing_client = std::make_unique<ScriptedClient>("echo $$ >$dir/pid\n" + dialogue.up_to_prompt() +
                                                       "take password\n" + say(dialogue.refusal()) + "exec sleep 100");
    set_command("ssh", refusing_client->path());
  }

  tavren_hp_t* create_from(const Settings& used) {
    Settings copy = used;
    const tavren_settings_t record = copy.record();
    return tavren_hp_create(&record, &message);
  }

  std::unique_ptr<ScriptedClient> refusing_client;
};

}  // namespace

TEST_F(HandleCreation, ReturnsAConnectedSession) {
  handle = create_from(settings);
  ASSERT_NE(handle, nullptr);
  EXPECT_EQ(output_of(*handle->host, "pwd"), directory.path());
}

TEST_F(HandleCreation, SetsTheMessageToNull) {
  char text[] = "left over";
  message = text;
  handle = create_from(settings);
  EXPECT_EQ(message, nullptr);
}

TEST_F(HandleCreation, CopiesTheSettings) {
  handle = create_from(settings);
  tavren_settings_t kept{};
  handle->host->get_settings(kept);
  const tavren_settings_t wanted = settings.record();
  EXPECT_EQ(tavren_settings_are_equal(&kept, &wanted), 1);
  EXPECT_NE(kept.host, wanted.host);
  tavren_settings_free_contents(&kept);
}

TEST_F(HandleCreation, DoesNotSetUpTheShell) {
  const ScriptedClient with_umask("umask 077\n" + dialogue.login());
  set_command("ssh", with_umask.path());
  handle = create_from(settings);
  EXPECT_EQ(output_of(*handle->host, "umask"), "0077");
  destroy();
}

TEST_F(HandleCreation, WithARefusedLoginReturnsNullAndTheErrorsBody) {
  refuse_login();
  EXPECT_EQ(create_from(settings), nullptr);
  EXPECT_EQ(take_message(),
            "  - Failed to start secure shell session on archive.example\n"
            "  - Secure shell login failed: permission denied\n");
}

TEST_F(HandleCreation, WithAMissingDirectoryReturnsNullAndTheErrorsBody) {
  settings.dir = "/no/such";
  EXPECT_EQ(create_from(settings), nullptr);
  EXPECT_EQ(first_lines(take_message(), 1), "  - Remote command \"cd '/no/such'\" failed with error code 2\n");
}

TEST_F(HandleCreation, ThatFailsLogsNothing) {
  refuse_login();
  create_from(settings);
  take_message();
  EXPECT_EQ(recorded_system::take_log(), std::vector<recorded_system::LogEntry>{});
}

TEST_F(HandleCreation, ThatFailsDeliberatelyKeepsItsChild) {
  refuse_login();
  create_from(settings);
  take_message();
  EXPECT_TRUE(is_alive(std::stoi(refusing_client->taken("pid"))));
}

TEST_F(HandleCreation, WithoutAKeyFieldIsAFailedAssertion) {
  tavren_settings_t record = settings.record();
  record.host_key = nullptr;
  expect_assertion("tavren_api",
                   "src->host != NULL && src->dir != NULL && src->user != NULL && src->password != NULL && "
                   "src->host_key != NULL && src->fingerprint != NULL",
                   [&] { tavren_hp_create(&record, &message); });
}

TEST_F(HandleCreation, WithoutMemoryForTheHandleReturnsNullWithoutAMessage) {
  char text[] = "left over";
  message = text;
  const tavren_settings_t record = settings.record();
  const failing_memory::FailAllocation exhausted(1);
  EXPECT_EQ(tavren_hp_create(&record, &message), nullptr);
  EXPECT_EQ(message, nullptr);
}

TEST_F(HandleCreation, WithoutMemoryAtAnyPointReturnsNullWithoutAMessage) {
  set_tunable("loopback_login", "1");
  const tavren_settings_t record = settings.record();
  int failures = 0;
  do {
    message = nullptr;
    const failing_memory::FailAllocation exhausted(failures + 1);
    handle = tavren_hp_create(&record, &message);
    EXPECT_EQ(message, nullptr);
    ++failures;
  } while (handle == nullptr && failures < 1000);
  EXPECT_NE(handle, nullptr);
  EXPECT_GT(failures, 10);
}

TEST_F(HandleCreation, SettingsThatCannotBeCopiedWholeAreNoSettings) {
  const tavren_settings_t record = settings.record();
  {
    const failing_memory::FailAllocation exhausted(6);
    EXPECT_THROW(host.set_settings(record), std::bad_alloc);
  }
  expect_assertion("TavrenHost", "settings.host != NULL", [this] { host.enable(); });
}

TEST_F(Handle, DestructionReleasesTheHandle) {
  create();
  handle->host->close_connection();
  failing_memory::watch(handle);
  tavren_hp_destroy(handle);
  handle = nullptr;
  EXPECT_TRUE(failing_memory::was_released());
}

TEST_F(Handle, DestructionReleasesTheHost) {
  create();
  handle->host->close_connection();
  failing_memory::watch(handle->host);
  tavren_hp_destroy(handle);
  handle = nullptr;
  EXPECT_TRUE(failing_memory::was_released());
}

TEST_F(Handle, DestructionOfAHandleWithoutAHostReleasesTheHandle) {
  auto* const empty = new tavren_hp_t{nullptr};
  failing_memory::watch(empty);
  tavren_hp_destroy(empty);
  EXPECT_TRUE(failing_memory::was_released());
}

TEST_F(Handle, DestructionDeliberatelyKeepsTheChild) {
  create();
  tavren_hp_destroy(handle);
  handle = nullptr;
  EXPECT_EQ(waitpid(child, nullptr, WNOHANG), 0);
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
}

TEST_F(Handle, SendsAFile) {
  create();
  const char content[] = "two\0lines\n";
  EXPECT_EQ(tavren_hp_start_send_file(handle, "file", 10, 0640, &message), 0);
  EXPECT_EQ(tavren_hp_continue_send_file(handle, content, 4, &message), 0);
  EXPECT_EQ(tavren_hp_continue_send_file(handle, content + 4, 6, &message), 0);
  EXPECT_EQ(tavren_hp_end_send_file(handle, &message), 0);
  EXPECT_EQ(received("file"), std::string(content, 10));
}

TEST_F(Handle, TheSizeAndTheModeBecomeTheHeader) {
  create();
  recorded_system::record_writes();
  EXPECT_EQ(tavren_hp_start_send_file(handle, "file", 4294967295U, 0600, &message), 0);
  EXPECT_EQ(recorded_system::take_writes().back(), "C0600 4294967295 file\n");
}

TEST_F(Handle, SendsAStream) {
  create();
  EXPECT_EQ(tavren_hp_start_send_stream(handle, "file", &message), 0);
  EXPECT_EQ(tavren_hp_continue_send_stream(handle, "two\n", 4, &message), 0);
  EXPECT_EQ(tavren_hp_continue_send_stream(handle, "lines\n", 6, &message), 0);
  EXPECT_EQ(tavren_hp_end_send_stream(handle, &message), 0);
  EXPECT_EQ(received("file"), "two\nlines\n");
}

TEST_F(Handle, ProvesThatAFileCanBeCreated) {
  create();
  recorded_system::record_writes();
  EXPECT_EQ(tavren_hp_try_to_create_file(handle, "file", &message), 0);
  EXPECT_EQ(recorded_system::take_writes().back(), "/bin/rm -f 'file'\n");
}

TEST_F(Handle, RemovesAFile) {
  create();
  write_file(directory.path("file"), "content");
  EXPECT_EQ(tavren_hp_remove_file(handle, "file", &message), 0);
  EXPECT_FALSE(std::filesystem::exists(directory.path("file")));
}

TEST_F(HandleKill, TerminatesTheChild) {
  create_shell();
  tavren_hp_kill_ssh(handle);
  int status = 0;
  EXPECT_EQ(waitpid(shell, &status, 0), shell);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM) << status;
}

TEST_F(HandleKill, BreaksARequestOfAnotherThread) {
  create_shell();
  const ScriptedClient writer("echo >$dir/started; exec sleep 100", "writer");
  writer.make_fifo("started");
  set_command("rm", writer.path());
  std::thread killer([&] {
    wait_at(writer.path("started"));
    tavren_hp_kill_ssh(handle);
  });
  EXPECT_EQ(tavren_hp_remove_file(handle, "file", &message), -1);
  killer.join();
  EXPECT_EQ(first_lines(take_message(), 1), "  - Program exited unexpectedly: /bin/sh\n");
}
