#include <gtest/gtest.h>
#include <stdio.h>

#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "TavrenExceptions.h"
#include "host/handle_fixture.h"
#include "support/failing_memory.h"
#include "support/process_state.h"
#include "support/run_in_child.h"

namespace {

class HandleCreation : public HandleTest {
 protected:
  HandleCreation() { message = left_over; }

  /* Makes a creation throw something else than an error, which must leave it as it is. */
  template <class Exception>
  void expect_passed_on(const std::string& where, const Exception& exception) {
    recorded_system::at_next(where, [exception] { throw exception; });
    EXPECT_THROW(create_from(settings), Exception);
    EXPECT_EQ(message, nullptr);
  }

  /* Expects a creation that fails to keep what its allocation of that number has given. */
  void expect_kept(int allocation, int first_to_fail = -1) {
    const tavren_settings_t record = settings.record();
    failing_memory::watch_allocation(allocation);
    const failing_memory::FailAllocation exhausted(first_to_fail);
    EXPECT_EQ(tavren_hp_create(&record, &message), nullptr);
    take_message();
    EXPECT_TRUE(failing_memory::is_watching());
    EXPECT_FALSE(failing_memory::was_released()) << allocation;
  }

  tavren_hp_t* create_from(const Settings& used) {
    Settings copy = used;
    const tavren_settings_t record = copy.record();
    return tavren_hp_create(&record, &message);
  }
};

/* The allocations of a creation, in their order. */
constexpr int of_the_handle = 1;
constexpr int of_the_host = 2;
constexpr int of_the_settings = 3;
constexpr int of_the_first_command = 3; /* while the host is made, and only in the process's first one */

/* Makes a process's first creation fail while its host is made. Tells what came of it, in a process of its own. */
std::string fail_to_make_the_host(int watched_allocation) {
  return run_in_child([watched_allocation] {
           Settings settings;
           const tavren_settings_t record = settings.record();
           char left_over[] = "left over";
           char* message = left_over;
           failing_memory::watch_allocation(watched_allocation);
           tavren_hp_t* handle = nullptr;
           {
             const failing_memory::FailAllocation exhausted(of_the_first_command);
             handle = tavren_hp_create(&record, &message);
           }
           printf("%s, %s, ", handle == nullptr ? "null" : "a handle", message == nullptr ? "no message" : "a message");
           if (!failing_memory::is_watching()) printf("never made");
           if (failing_memory::is_watching()) printf(failing_memory::was_released() ? "released" : "kept");
         })
      .out;
}

/* Before main: later on the command table is filled, and making a host needs no more memory than the host's own. */
const std::string fate_of_the_handle = fail_to_make_the_host(of_the_handle);
const std::string fate_of_the_host = fail_to_make_the_host(of_the_host);

/* What two sessions know of the commands, the first of which had no memory for all of them. */
const std::string commands_after_a_half_filled_table =
    run_in_child([] {
      Settings settings;
      const tavren_settings_t record = settings.record();
      char* message = nullptr;
      {
        const failing_memory::FailAllocation exhausted(of_the_first_command + 5);
        if (tavren_hp_create(&record, &message) == nullptr) printf("null, ");
      }
      const TavrenHost next(false, false);
      printf("%s, %s", TavrenHost::get_cmd("ssh").c_str(), TavrenHost::get_cmd("rm").c_str());
    }).out;

}  // namespace

TEST_F(HandleCreation, WithoutMemoryForAllCommandsLeavesThemToTheNextOne) {
  EXPECT_EQ(commands_after_a_half_filled_table, "null, /usr/bin/ssh , /bin/rm -f ");
}

TEST_F(HandleCreation, ReturnsAConnectedSessionWithACopyOfTheSettingsAndAShellThatIsNotSetUp) {
  const ScriptedClient with_umask("umask 077\n" + dialogue.login());
  set_command("ssh", with_umask.path());
  handle = create_from(settings);
  ASSERT_NE(handle, nullptr);
  EXPECT_EQ(message, nullptr);
  EXPECT_EQ(output_of(*handle->host, "pwd; umask | tr -d '\\n' >mask"), directory.path());
  EXPECT_EQ(received("mask"), "0077");
  tavren_settings_t kept{};
  handle->host->get_settings(kept);
  const tavren_settings_t wanted = settings.record();
  EXPECT_EQ(tavren_settings_are_equal(&kept, &wanted), 1);
  EXPECT_NE(kept.host, wanted.host);
  tavren_settings_free_contents(&kept);
  destroy();
}

TEST_F(HandleCreation, WithARefusedLoginReturnsTheErrorsBodyAndNoHandleLogsNothingAndDeliberatelyKeepsItsChild) {
  refuse_login();
  EXPECT_EQ(create_from(settings), nullptr);
  EXPECT_EQ(take_message(), denied);
  EXPECT_EQ(recorded_system::take_log(), std::vector<recorded_system::LogEntry>{});
  EXPECT_TRUE(has_survived(std::stoi(refusing_client->taken("pid"))));
}

TEST_F(HandleCreation, WithAMissingDirectoryReturnsNullAndTheErrorsBody) {
  settings.dir = "/no/such";
  EXPECT_EQ(create_from(settings), nullptr);
  EXPECT_EQ(first_lines(take_message(), 1), "  - Remote command \"cd '/no/such'\" failed with error code 2\n");
}

/* Each wait of an opening turns a time-out into an error of its own, so this one comes where nothing is waited for. */
TEST_F(HandleCreation, PassesATimeoutOn) {
  refuse_login();
  expect_passed_on("console", TavrenTimeout());
}

TEST_F(HandleCreation, PassesACancellationAndAnyOtherExceptionOn) {
  expect_passed_on("write " + settings.password + "\n", TavrenOperationCancelled());
  expect_passed_on("write " + settings.password + "\n", std::length_error("too long"));
}

/* The host that was asked is told nothing of it, nor are log and console. */
TEST_F(HandleCreation, ThatIsCancelledIsNoFailedConnection) {
  TavrenHost logging(false, true);
  logging.set_settings(settings.record());
  logging.enable();
  recorded_system::at_next("write " + settings.password + "\n", [] { throw TavrenOperationCancelled(); });
  EXPECT_THROW(logging.open_connection(), TavrenOperationCancelled);
  tavren_connection_status_t status = TAVREN_CONNECTION_OK;
  long when = 1;
  logging.get_connection_status(status, when);
  EXPECT_EQ(status, TAVREN_CONNECTION_NONE);
  EXPECT_EQ(when, 0);
  EXPECT_TRUE(recorded_system::take_log().empty());
  EXPECT_TRUE(recorded_system::take_console().empty());
  logging.close_connection();
}

TEST_F(HandleCreation, WithoutAKeyFieldIsAFailedAssertion) {
  expect_failed_assertion_without_a_key_field(tavren_hp_create);
}

TEST_F(HandleCreation, WithoutMemoryAtAnyPointReturnsNullWithoutAMessage) {
  set_tunable("loopback_login", "1");
  const tavren_settings_t record = settings.record();
  int failures = 0;
  do {
    message = left_over;
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

TEST_F(HandleCreation, ThatFailsDeliberatelyKeepsTheHandleAndTheHost) {
  expect_kept(of_the_handle, of_the_host);
  for (const int allocation : {of_the_handle, of_the_host}) expect_kept(allocation, of_the_settings);
  refuse_login();
  for (const int allocation : {of_the_handle, of_the_host}) expect_kept(allocation);
}

TEST(HandleFirstCreation, WithoutMemoryToMakeTheHostDeliberatelyKeepsTheHandleAndReleasesTheHostsStorage) {
  EXPECT_EQ(fate_of_the_handle, "null, no message, kept");
  EXPECT_EQ(fate_of_the_host, "null, no message, released");
}
