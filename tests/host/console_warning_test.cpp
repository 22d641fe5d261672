#include <fcntl.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "TavrenHost.h"
#include "support/process_state.h"
#include "support/recorded_system.h"

using recorded_system::take_console;

namespace {

constexpr char warning[] = "\nWARNING: Log Archiving unable to communicate with archive host archive.example\n";

class ConsoleWarning : public testing::Test {
 protected:
  ConsoleWarning() { recorded_system::reset(); }
  ~ConsoleWarning() override { recorded_system::reset(); }

  TavrenHost host{false, false};
};

}  // namespace

TEST_F(ConsoleWarning, TheWarningNamesTheHost) {
  host.console_error_connection("archive.example");
  EXPECT_EQ(take_console(), std::vector<std::string>{warning});
}

TEST_F(ConsoleWarning, TheWarningNamesNoHostWhenThereIsNone) {
  host.console_error_connection(nullptr);
  EXPECT_EQ(take_console(),
            std::vector<std::string>{"\nWARNING: Log Archiving unable to communicate with archive host \n"});
}

TEST_F(ConsoleWarning, TheWarningIsCutAt127Bytes) {
  host.console_error_connection(std::string(200, 'h').c_str());
  const std::string front = "\nWARNING: Log Archiving unable to communicate with archive host ";
  EXPECT_EQ(take_console(), std::vector<std::string>{front + std::string(127 - front.size(), 'h')});
}

TEST_F(ConsoleWarning, TheWarningIsWrittenInTheUsersLanguage) {
  recorded_system::translate("\nWARNING: Log Archiving unable to communicate with archive host %s\n", "<%s>");
  host.console_error_connection("archive.example");
  EXPECT_EQ(take_console(), std::vector<std::string>{"<archive.example>"});
}

TEST_F(ConsoleWarning, TheConsoleIsOpenedForWritingWithoutWaiting) {
  host.console_error_connection("archive.example");
  EXPECT_EQ(recorded_system::console_flags() & (O_ACCMODE | O_NONBLOCK | O_CLOEXEC), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
}

TEST_F(ConsoleWarning, TheWarningIsNotRepeatedWithin900Seconds) {
  recorded_system::set_time(1000000);
  host.console_error_connection("archive.example");
  recorded_system::set_time(1000900);
  host.console_error_connection("archive.example");
  EXPECT_EQ(take_console().size(), 1u);
}

TEST_F(ConsoleWarning, TheWarningIsRepeatedAfter901Seconds) {
  recorded_system::set_time(1000000);
  host.console_error_connection("archive.example");
  recorded_system::set_time(1000901);
  host.console_error_connection("archive.example");
  EXPECT_EQ(take_console().size(), 2u);
}

/* As if there had been a warning when the epoch began. */
TEST_F(ConsoleWarning, IsSilentInTheFirst900SecondsOfTheEpoch) {
  for (const time_t now : {0, 1, 900}) {
    recorded_system::set_time(now);
    host.console_error_connection("archive.example");
  }
  EXPECT_EQ(take_console().size(), 0u);
  recorded_system::set_time(901);
  host.console_error_connection("archive.example");
  EXPECT_EQ(take_console().size(), 1u);
}

TEST_F(ConsoleWarning, TheSilenceBeginsWhenTheWarningIsWritten) {
  recorded_system::set_time(1000000);
  recorded_system::at_next("console", [] { recorded_system::set_time(1000100); });
  host.console_error_connection("archive.example");
  recorded_system::set_time(1001000);
  host.console_error_connection("archive.example");
  EXPECT_EQ(take_console().size(), 1u);
}

TEST_F(ConsoleWarning, AClockThatWasSetBackDoesNotSilenceTheWarning) {
  recorded_system::set_time(1000000);
  host.console_error_connection("archive.example");
  recorded_system::set_time(999999);
  host.console_error_connection("archive.example");
  EXPECT_EQ(take_console().size(), 2u);
}

TEST_F(ConsoleWarning, ASuppressedWarningDoesNotProlongTheSilence) {
  for (const time_t now : {1000000, 1000899, 1000901}) {
    recorded_system::set_time(now);
    host.console_error_connection("archive.example");
  }
  EXPECT_EQ(take_console().size(), 2u);
}

TEST_F(ConsoleWarning, AMissingConsoleIsIgnored) {
  recorded_system::remove_console();
  EXPECT_NO_THROW(host.console_error_connection("archive.example"));
}

TEST_F(ConsoleWarning, AMissingConsoleDoesNotCountAsAWarning) {
  recorded_system::set_time(1000000);
  recorded_system::remove_console();
  host.console_error_connection("archive.example");
  recorded_system::reset();
  recorded_system::set_time(1000001);
  host.console_error_connection("archive.example");
  EXPECT_EQ(take_console(), std::vector<std::string>{warning});
}

TEST_F(ConsoleWarning, AConsoleThatTakesNothingIsIgnored) {
  recorded_system::refuse_to_write(warning);
  EXPECT_NO_THROW(host.console_error_connection("archive.example"));
}

TEST_F(ConsoleWarning, AWarningThatTheConsoleDidNotTakeIsNotRepeatedEither) {
  recorded_system::set_time(1000000);
  recorded_system::refuse_to_write(warning);
  host.console_error_connection("archive.example");
  recorded_system::refuse_to_write("");
  recorded_system::set_time(1000900);
  host.console_error_connection("archive.example");
  EXPECT_EQ(take_console(), std::vector<std::string>{});
}

TEST_F(ConsoleWarning, TheWarningLeavesNoDescriptorOpen) {
  const std::ptrdiff_t before = count_open_descriptors();
  host.console_error_connection("archive.example");
  EXPECT_EQ(take_console().size(), 1u);
  EXPECT_EQ(count_open_descriptors(), before);
}

TEST_F(ConsoleWarning, AConsoleThatTakesNothingLeavesNoDescriptorOpen) {
  const std::ptrdiff_t before = count_open_descriptors();
  recorded_system::refuse_to_write(warning);
  host.console_error_connection("archive.example");
  EXPECT_EQ(count_open_descriptors(), before);
}

TEST_F(ConsoleWarning, AMissingConsoleLeavesNoDescriptorOpen) {
  const std::ptrdiff_t before = count_open_descriptors();
  recorded_system::remove_console();
  host.console_error_connection("archive.example");
  EXPECT_EQ(count_open_descriptors(), before);
}

TEST_F(ConsoleWarning, EachSessionWarnsForItself) {
  TavrenHost other_host(false, false);
  host.console_error_connection("archive.example");
  other_host.console_error_connection("archive.example");
  EXPECT_EQ(take_console().size(), 2u);
}
