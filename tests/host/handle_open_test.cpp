#include <gtest/gtest.h>
#include <sys/wait.h>

#include <new>
#include <stdexcept>
#include <string>

#include "TavrenExceptions.h"
#include "host/handle_fixture.h"
#include "support/failing_memory.h"
#include "support/process_state.h"
#include "support/recorded_system.h"
#include "support/run_in_child.h"

/*
 * The handle that a program can open and close for years.
 */
namespace {

class HandleOpening : public HandleTest {
 protected:
  HandleOpening() { make_handle(); }

  void make_handle() {
    const tavren_settings_t record = settings.record();
    handle = tavren_hp_new(&record, &message);
  }

  void remake_handle() {
    destroy();
    make_handle();
  }

  /* Opens, which must fail. Returns the message. */
  std::string fail_to_open() {
    EXPECT_EQ(tavren_hp_open(handle, &message), -1);
    return take_message();
  }

  /* Opens, which must succeed. Returns the child. */
  pid_t open() {
    EXPECT_EQ(tavren_hp_open(handle, &message), 0) << take_message();
    return std::stoi(output_of(*handle->host, "echo $PPID"));
  }

  /* Whether there is nothing left of a process, not even something to be reaped. */
  static bool is_gone(pid_t pid) { return state_of(pid) == '\0'; }
};

TEST_F(HandleOpening, IsNotPartOfMakingTheHandle) {
  EXPECT_NE(handle, nullptr);
  EXPECT_EQ(message, nullptr);
  EXPECT_EQ(client.starts(), 0);
}

TEST_F(HandleOpening, LogsInAndDoesNotSetUpTheShell) {
  const ScriptedClient with_umask("umask 077\n" + dialogue.login());
  set_command("ssh", with_umask.path());
  message = left_over;
  EXPECT_EQ(tavren_hp_open(handle, &message), 0);
  EXPECT_EQ(message, nullptr);
  EXPECT_EQ(output_of(*handle->host, "pwd"), directory.path());
  EXPECT_EQ(output_of(*handle->host, "umask"), "0077");
}

TEST_F(HandleOpening, KeepsAConnectionThatThereIsThroughWhichFilesGo) {
  const pid_t first = open();
  EXPECT_EQ(open(), first);
  EXPECT_EQ(client.starts(), 1);
  EXPECT_EQ(tavren_hp_start_send_file(handle, "file", 3, 0644, &message), 0);
  EXPECT_EQ(tavren_hp_continue_send_file(handle, "abc", 3, &message), 0);
  EXPECT_EQ(tavren_hp_end_send_file(handle, &message), 0);
  EXPECT_EQ(received("file"), "abc");
}

TEST_F(HandleOpening, AgainAfterAClosingInTheMiddleOfAFileLogsInAgainAndSendsTheNextOne) {
  const pid_t first = open();
  EXPECT_EQ(tavren_hp_start_send_file(handle, "half", 6, 0644, &message), 0);
  EXPECT_EQ(tavren_hp_continue_send_file(handle, "abc", 3, &message), 0);
  tavren_hp_close(handle);
  EXPECT_NE(open(), first);
  EXPECT_EQ(client.starts(), 2);
  EXPECT_EQ(tavren_hp_try_to_create_file(handle, "file", &message), 0);
}

TEST_F(HandleOpening, WithARefusedLoginReportsTheErrorsBodyLogsNothingAndLeavesNoChildAndNoDescriptor) {
  const auto descriptors = count_open_descriptors();
  refuse_login();
  EXPECT_EQ(fail_to_open(), denied);
  EXPECT_EQ(recorded_system::take_log(), std::vector<recorded_system::LogEntry>{});
  EXPECT_TRUE(is_gone(std::stoi(refusing_client->taken("pid"))));
  EXPECT_EQ(count_open_descriptors(), descriptors);
  set_command("ssh", client.path());
  open();
  EXPECT_EQ(output_of(*handle->host, "pwd"), directory.path());
}

TEST_F(HandleOpening, ThatFailsAfterTheLoginLeavesNoChildAndNoDescriptor) {
  settings.dir = "/no/such";
  remake_handle();
  const auto descriptors = count_open_descriptors();
  EXPECT_EQ(first_lines(fail_to_open(), 1), "  - Remote command \"cd '/no/such'\" failed with error code 2\n");
  EXPECT_EQ(count_open_descriptors(), descriptors);
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
}

TEST_F(HandleOpening, ReportsWhateverItMeets) {
  const std::pair<void (*)(), const char*> failures[] = {
      {[] { throw TavrenTimeout(); }, "  - The archive host does not answer\n"},
      {[] { throw std::bad_alloc(); }, "  - Out of memory\n"},
      {[] { throw std::length_error("too long"); }, "  - too long\n"},
  };
  for (const auto& [thrower, text] : failures) {
    failing_memory::at_each_allocation(thrower);
    EXPECT_EQ(fail_to_open(), text);
  }
  failing_memory::at_each_allocation(nullptr);
  handle->host->disable();
  EXPECT_EQ(fail_to_open(), "  - The operation was cancelled\n");
}

TEST_F(HandleOpening, WithoutMemoryAtAnyPointFailsAndLeavesNothing) {
  set_tunable("loopback_login", "1");
  const auto descriptors = count_open_descriptors();
  int failures = 0;
  int result = -1;
  do {
    {
      const failing_memory::FailAllocation exhausted(failures + 1);
      result = tavren_hp_open(handle, &message);
    }
    take_message();
    if (result == 0) break;
    ++failures;
    EXPECT_EQ(count_open_descriptors(), descriptors);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
  } while (failures < 1000);
  EXPECT_EQ(result, 0);
  EXPECT_GT(failures, 10);
}

TEST_F(HandleOpening, WithoutMemoryForAHandleReturnsNullWithoutAMessage) {
  destroy();
  const tavren_settings_t record = settings.record();
  int failures = 0;
  for (; handle == nullptr && failures < 100; ++failures) {
    message = left_over;
    const failing_memory::FailAllocation exhausted(failures + 1);
    handle = tavren_hp_new(&record, &message);
    EXPECT_EQ(message, nullptr);
  }
  EXPECT_NE(handle, nullptr);
  EXPECT_EQ(failures, 9); /* the host, six strings and the handle can be missing */
}

TEST_F(HandleOpening, WithoutAKeyFieldIsAFailedAssertionOfTheHandlesMaking) {
  expect_failed_assertion_without_a_key_field(tavren_hp_new);
}

class HandleClosing : public HandleOpening {};

TEST_F(HandleClosing, StopsAndReapsTheChildAndLeavesNoDescriptor) {
  const auto descriptors = count_open_descriptors();
  const pid_t shell = open();
  tavren_hp_close(handle);
  EXPECT_TRUE(is_gone(shell));
  EXPECT_EQ(count_open_descriptors(), descriptors);
}

TEST_F(HandleClosing, WithoutAConnectionIsHarmless) {
  tavren_hp_close(handle);
  open();
  tavren_hp_close(handle);
  tavren_hp_close(handle);
}

TEST_F(HandleClosing, OfABrokenSessionReapsTheChild) {
  child = open();
  break_session();
  tavren_hp_close(handle);
  EXPECT_TRUE(is_gone(child));
}

}  // namespace
