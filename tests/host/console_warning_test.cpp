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

  /* How many warnings there are when the connection fails at each of these times. */
  size_t warnings_at(const std::vector<time_t>& times) {
    for (const time_t now : times) {
      recorded_system::set_time(now);
      host.console_error_connection("archive.example");
    }
    return take_console().size();
  }

  /* What a session shows that has not warned before. */
  static std::vector<std::string> shown_for(const char* host_name) {
    TavrenHost(false, false).console_error_connection(host_name);
    return take_console();
  }
  TavrenHost host{false, false};
};

}  // namespace

TEST_F(ConsoleWarning, TheWarningNamesTheHostIfThereIsOneAndIsCutAt127Bytes) {
  const std::string front = "\nWARNING: Log Archiving unable to communicate with archive host ";
  EXPECT_EQ(shown_for("archive.example"), std::vector<std::string>{warning});
  EXPECT_EQ(shown_for(nullptr), std::vector<std::string>{front + "\n"});
  EXPECT_EQ(shown_for(std::string(200, 'h').c_str()),
            std::vector<std::string>{front + std::string(127 - front.size(), 'h')});
}

TEST_F(ConsoleWarning, IsWrittenInTheUsersLanguageToAConsoleThatIsNotWaitedFor) {
  recorded_system::translate("\nWARNING: Log Archiving unable to communicate with archive host %s\n", "<%s>");
  EXPECT_EQ(shown_for("archive.example"), std::vector<std::string>{"<archive.example>"});
  EXPECT_EQ(recorded_system::console_flags() & (O_ACCMODE | O_NONBLOCK | O_CLOEXEC), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
}

TEST_F(ConsoleWarning, IsNotRepeatedWithin900Seconds) { EXPECT_EQ(warnings_at({1000000, 1000900}), 1u); }

TEST_F(ConsoleWarning, IsRepeatedAfter901Seconds) { EXPECT_EQ(warnings_at({1000000, 1000901}), 2u); }

/* As if there had been a warning when the epoch began. */
TEST_F(ConsoleWarning, IsSilentInTheFirst900SecondsOfTheEpoch) {
  EXPECT_EQ(warnings_at({0, 1, 900}), 0u);
  EXPECT_EQ(warnings_at({901}), 1u);
}

TEST_F(ConsoleWarning, TheSilenceBeginsWhenTheWarningIsWritten) {
  recorded_system::at_next("console", [] { recorded_system::set_time(1000100); });
  EXPECT_EQ(warnings_at({1000000, 1001000}), 1u);
}

TEST_F(ConsoleWarning, IsNotSilencedByAClockThatWasSetBack) { EXPECT_EQ(warnings_at({1000000, 999999}), 2u); }

TEST_F(ConsoleWarning, ThatIsSuppressedDoesNotProlongTheSilence) {
  EXPECT_EQ(warnings_at({1000000, 1000899, 1000901}), 2u);
}

TEST_F(ConsoleWarning, AMissingConsoleIsIgnoredAndDoesNotCountAsAWarning) {
  recorded_system::remove_console();
  EXPECT_EQ(warnings_at({1000000}), 0u);
  recorded_system::reset();
  EXPECT_EQ(warnings_at({1000001}), 1u);
}

TEST_F(ConsoleWarning, AWarningThatTheConsoleDidNotTakeIsNotRepeatedEither) {
  recorded_system::refuse_to_write(warning);
  EXPECT_EQ(warnings_at({1000000}), 0u);
  recorded_system::refuse_to_write("");
  EXPECT_EQ(warnings_at({1000900}), 0u);
}

TEST_F(ConsoleWarning, LeavesNoDescriptorOpenWhateverBecomesOfIt) {
  const std::ptrdiff_t before = count_open_descriptors();
  EXPECT_EQ(shown_for("archive.example").size(), 1u);
  EXPECT_EQ(count_open_descriptors(), before);
  recorded_system::refuse_to_write(warning);
  EXPECT_EQ(shown_for("archive.example").size(), 0u);
  EXPECT_EQ(count_open_descriptors(), before);
  recorded_system::remove_console();
  shown_for("archive.example");
  EXPECT_EQ(count_open_descriptors(), before);
}

TEST_F(ConsoleWarning, EachSessionWarnsForItself) {
  host.console_error_connection("archive.example");
  EXPECT_EQ(shown_for("archive.example").size(), 2u);
}
