#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <filesystem>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

#include "host/handle_fixture.h"
#include "support/failing_memory.h"
#include "support/process_state.h"

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

}  // namespace

TEST_F(Handle, DestructionReleasesTheHandleAndTheHost) {
  for (const bool is_the_host : {false, true}) {
    create();
    handle->host->close_connection();
    failing_memory::watch(is_the_host ? static_cast<const void*>(handle->host) : handle);
    tavren_hp_destroy(std::exchange(handle, nullptr));
    EXPECT_TRUE(failing_memory::was_released()) << is_the_host;
  }
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
  EXPECT_TRUE(has_survived(child));
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

TEST_F(Handle, ProvesThatAFileCanBeCreatedAndRemovesOne) {
  create();
  recorded_system::record_writes();
  EXPECT_EQ(tavren_hp_try_to_create_file(handle, "file", &message), 0);
  EXPECT_EQ(recorded_system::take_writes().back(), "/bin/rm -f 'file'\n");
  write_file(directory.path("other"), "content");
  EXPECT_EQ(tavren_hp_remove_file(handle, "other", &message), 0);
  EXPECT_FALSE(std::filesystem::exists(directory.path("other")));
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
