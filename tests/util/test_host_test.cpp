#include "tavren_test_host.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>
#include <string>

#include "TavrenExceptions.h"
#include "support/failing_memory.h"
#include "support/files.h"
#include "support/host_session.h"
#include "support/process_state.h"
#include "support/recorded_system.h"
#include "support/run_in_child.h"

namespace {

/* The far side is a local shell in a directory of the test's own; it leaves its process id behind. */
class TestHost : public HostTest {
 protected:
  TestHost() {
    recorded_system::reset();
    set_tunable("loopback_login", "1");
    settings.dir = directory.path("archive");
    std::filesystem::create_directory(settings.dir);
    set_command("mkdir", "echo $$ >" + directory.path("pid") + "; /bin/mkdir -p");
  }
  ~TestHost() override {
    if (std::filesystem::exists(directory.path("pid"))) kill(shell(), SIGKILL);
    recorded_system::reset();
  }

  /*
   * Returns the body of the error of a test that must fail. Such a test leaks its host object on purpose, and the
   * address sanitizer is told so by the name of this function: a test that passes must not.
   */
  std::string failed_test() {
    tavren_settings_t record = settings.record();
    return error_body([&] { tavren_test_host(&record, &message); });
  }

  pid_t shell() const { return std::stoi(read_file(directory.path("pid"))); }

  TemporaryDirectory directory;
  char unset = 0;
  char* message = &unset;
};

/* What it allocates first is its host object. */
TEST_F(TestHost, PassesAndLeavesNothingButItsClaimAndItsChild) {
  recorded_system::record_writes();
  tavren_settings_t record = settings.record();
  failing_memory::watch_allocation(1);
  EXPECT_EQ(tavren_test_host(&record, &message), 0);
  EXPECT_TRUE(failing_memory::was_released());
  EXPECT_EQ(message, nullptr);
  std::string written;
  for (const std::string& piece : recorded_system::take_writes()) written += piece;
  EXPECT_NE(written.find("umask 022; set +f\n"), std::string::npos);
  EXPECT_TRUE(std::filesystem::exists(settings.dir + "/.chassis.CHASSIS-7"));
  EXPECT_FALSE(std::filesystem::exists(settings.dir + "/test"));
  EXPECT_TRUE(has_survived(shell()));
}

TEST_F(TestHost, WhoseStepFailsThrowsThatAndDeliberatelyKeepsItsHostObject) {
  set_command("rm", "false");
  failing_memory::watch_allocation(1);
  EXPECT_EQ(failed_test(), "  - Remote command \"false -r test\" failed with error code 1\n");
  EXPECT_TRUE(failing_memory::is_watching());
  EXPECT_FALSE(failing_memory::was_released());
  EXPECT_EQ(message, nullptr);
  EXPECT_FALSE(std::filesystem::exists(settings.dir + "/.chassis.CHASSIS-7"));
  EXPECT_TRUE(has_survived(shell()));
}

TEST_F(TestHost, ThrowsTheFailureOfTheLoginAndLogsNothing) {
  const ScriptedClient client("echo no route");
  set_tunable("loopback_login", "0");
  set_command("ssh", client.path());
  EXPECT_EQ(failed_test(),
            "  - Failed to start secure shell session on archive.example\n"
            "  - Program exited unexpectedly: " +
                client.path() + "\n  - Output: \"no route\"\n");
  EXPECT_TRUE(recorded_system::take_log().empty());
}

/* The far side takes nothing of the first file. */
TEST_F(TestHost, ThrowsATimeoutAsItIs) {
  recorded_system::stop_uptime();
  recorded_system::refuse_to_write("test file\n");
  EXPECT_THROW(failed_test(), TavrenTimeout);
}

TEST_F(TestHost, ThrowsTheConflictWithAnotherChassis) {
  write_file(settings.dir + "/.chassis.CHASSIS-8", "");
  EXPECT_EQ(first_lines(failed_test(), 1),
            "  - Another QRV chassis is already using the specified archive directory (" + settings.dir + ")\n");
}

TEST_F(TestHost, WithoutSettingsIsAFailedAssertion) {
  expect_assertion("tavren_test_host", "s != NULL", [this] { tavren_test_host(nullptr, &message); });
}

}  // namespace
