#include <gtest/gtest.h>
#include <stdint.h>
#include <stdlib.h>
#include <time.h>

#include "core/error_lines.h"

namespace {

struct Message {
  int code;
  std::string name_in_c;
  std::string text; /* with the arguments "first" and "second" */
};

std::string rendered(int code, const std::string& arg1, const std::string& arg2) {
  const std::unique_ptr<TavrenError::error_line_t> line(
      TavrenError::new_error_line(static_cast<tavren_error_code_t>(code), arg1, arg2));
  std::ostringstream text;
  TavrenError::print_line(line.get(), text);
  return text.str();
}

/* Local time for the length of a scope. */
class TimeZone {
 public:
  explicit TimeZone(const char* zone) {
    setenv("TZ", zone, 1);
    tzset();
  }
  ~TimeZone() {
    unsetenv("TZ");
    tzset();
  }
  TimeZone(const TimeZone&) = delete;
  TimeZone& operator=(const TimeZone&) = delete;
};

#define MESSAGE(code, text) \
  Message { code, #code, text }

const Message messages[] = {
    MESSAGE(TAVREN_E_CHASSIS_CONFLICT, "Another QRV chassis is already using the specified archive directory (first)"),
    MESSAGE(TAVREN_E_CREATE_REMOTE_FILE, "Unable to create file first on remote host"),
    MESSAGE(TAVREN_E_EXPECTED_OUTPUT, "Expected output: \"first\""),
    MESSAGE(TAVREN_E_SSH_START, "Failed to start secure shell session on first"),
    MESSAGE(TAVREN_E_FILE_OPEN, "Failed to open file first, ecode=second"),
    MESSAGE(TAVREN_E_FILE_READ, "Failed to read from file first, ecode=second"),
    MESSAGE(TAVREN_E_HOST_AUTH, "Failed to authenticate the remote host (first)"),
    MESSAGE(TAVREN_E_HOST_KEY_MISMATCH, "The public host key setting does not match the remote host's private key"),
    MESSAGE(TAVREN_E_HOST_KEY_TOO_LARGE, "Host key is too large (first bytes)"),
    MESSAGE(TAVREN_E_INCORRECT_OUTPUT, "Remote command \"first\" produced incorrect output: second line(s) of output"),
    MESSAGE(TAVREN_E_SHELL_STATUS, "Remote shell error: $? evaluated to \"first\""),
    MESSAGE(TAVREN_E_OUTPUT, "Output: \"first\""),
    MESSAGE(TAVREN_E_PROGRAM_EXITED, "Program exited unexpectedly: first"),
    MESSAGE(TAVREN_E_COMMAND_FAILED, "Remote command \"first\" failed with error code second"),
    MESSAGE(TAVREN_E_COMMAND_OUTPUT, "Command output: \"first\""),
    MESSAGE(TAVREN_E_COMMAND_EXCESSIVE_OUTPUT, "Remote command \"first\" produced excessive output"),
    MESSAGE(TAVREN_E_COMMAND_TIMEOUT, "Timeout occurred while running remote command: \"first\""),
    MESSAGE(TAVREN_E_SHELL_START_TIMEOUT, "Timeout occurred while waiting for shell to start on first"),
    MESSAGE(TAVREN_E_CONNECT_TIMEOUT, "Timeout occurred while connecting to first"),
    MESSAGE(TAVREN_E_SSH_FAILED, "Secure shell failed: \"first\""),
    MESSAGE(TAVREN_E_LOGIN_DENIED, "Secure shell login failed: permission denied"),
    MESSAGE(TAVREN_E_SYSCALL, "System call \"first\" failed with error code second"),
    MESSAGE(TAVREN_E_EXCESSIVE_OUTPUT, "first produced excessive output (second bytes)"),
};

class EachMessage : public testing::TestWithParam<Message> {};

TEST_P(EachMessage, IsRenderedWithItsArguments) {
  EXPECT_EQ(rendered(GetParam().code, "first", "second"), "  - " + GetParam().text + "\n");
}

INSTANTIATE_TEST_SUITE_P(OfTheTable, EachMessage, testing::ValuesIn(messages),
                         [](const auto& parameter) { return parameter.param.name_in_c; });

TEST(ErrorCodes, HaveTheNumbersOfTheDaemonInterface) {
  const std::vector<int> numbers = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 20, 21, 22, 23, 24, 25};
  std::vector<int> found;
  for (const Message& message : messages) found.push_back(message.code);
  EXPECT_EQ(found, numbers);
  EXPECT_EQ(TAVREN_E_NONE, 0);
}

class CodeWithoutMessage : public testing::TestWithParam<int> {};

TEST_P(CodeWithoutMessage, IsRenderedAsUnknown) {
  EXPECT_EQ(rendered(GetParam(), "x", "y"), "  - Unknown error: " + std::to_string(GetParam()) + ", x, y\n");
}

TEST_P(CodeWithoutMessage, HasNoFormat) {
  EXPECT_EQ(TavrenError::get_format_string(static_cast<tavren_error_code_t>(GetParam())), nullptr);
}

INSTANTIATE_TEST_SUITE_P(Each, CodeWithoutMessage,
                         testing::Values(0, 18, 19, 26, 27, 1000, -1, -2147483647 - 1, 2147483647));

TEST(MessageFormat, OfACodeIsTheTablesText) {
  EXPECT_STREQ(TavrenError::get_format_string(TAVREN_E_FILE_OPEN), "Failed to open file %s, ecode=%s");
}

TEST(RenderedLine, WithoutArgumentsIsItsFixedSentence) {
  EXPECT_EQ(rendered(TAVREN_E_HOST_KEY_MISMATCH, "", ""),
            "  - The public host key setting does not match the remote host's private key\n");
}

TEST(RenderedLine, ShowsNothingForMissingArguments) {
  EXPECT_EQ(rendered(TAVREN_E_FILE_OPEN, "", ""), "  - Failed to open file , ecode=\n");
  EXPECT_EQ(rendered(TAVREN_E_FILE_OPEN, "/a/b", ""), "  - Failed to open file /a/b, ecode=\n");
  EXPECT_EQ(rendered(18, "", ""), "  - Unknown error: 18, , \n");
}

TEST(RenderedLine, TakesNoFormatFromItsArguments) {
  EXPECT_EQ(rendered(TAVREN_E_OUTPUT, "%s%n%d", ""), "  - Output: \"%s%n%d\"\n");
}

TEST(RenderedLine, KeepsTheFirst1023BytesOfItsMessage) {
  const std::string kept = "Program exited unexpectedly: " + std::string(1023 - 29, 'x');
  EXPECT_EQ(rendered(TAVREN_E_PROGRAM_EXITED, std::string(1023 - 29, 'x'), ""), "  - " + kept + "\n");
  EXPECT_EQ(rendered(TAVREN_E_PROGRAM_EXITED, std::string(5000, 'x'), ""), "  - " + kept + "\n");
}

TEST(RenderedLine, OfAnUnknownCodeKeepsTheFirst1023BytesOfItsMessage) {
  const std::string kept = "Unknown error: 18, " + std::string(1023 - 19, 'x');
  EXPECT_EQ(rendered(18, std::string(5000, 'x'), "y"), "  - " + kept + "\n");
}

TEST(PrintedError, BeginsWithItsLocalTime) {
  const TimeZone zone("EAST-2");
  TavrenError error(TAVREN_E_FILE_OPEN, "/a/b", "2");
  error.time = 1000;
  EXPECT_EQ(printed(error),
            "1970/01/01 02:16:40\n"
            "  - Failed to open file /a/b, ecode=2\n");
}

TEST(PrintedError, ListsItsLinesFromTheFirstToTheLast) {
  TavrenError error(TAVREN_E_OUTPUT, "x", "");
  error.add_line(TAVREN_E_LOGIN_DENIED, "", "");
  error.add_first_line(TAVREN_E_SSH_START, "h", "");
  EXPECT_EQ(body_of(error),
            "  - Failed to start secure shell session on h\n"
            "  - Output: \"x\"\n"
            "  - Secure shell login failed: permission denied\n");
}

/* A 32-bit time ends in 2038. */
#if __TIMESIZE == 64
TEST(PrintedError, ShowsAYearOfFiveDigitsWhole) {
  const TimeZone zone("UTC0");
  TavrenError error;
  error.time = static_cast<time_t>(INT64_C(253402300800));
  EXPECT_EQ(printed(error), "10000/01/01 00:00:00\n");
}

/* The first second of a year. */
TavrenError error_of_year(int64_t year) {
  struct tm first {};
  first.tm_year = static_cast<int>(year - 1900);
  first.tm_mday = 1;
  TavrenError error;
  error.time = timegm(&first);
  return error;
}

/* The line with its NUL takes all the bytes that there are for it. */
TEST(PrintedError, ShowsAYearOfEightDigitsWhole) {
  const TimeZone zone("UTC0");
  EXPECT_EQ(printed(error_of_year(99999999)), "99999999/01/01 00:00:00\n");
}

TEST(PrintedError, LeavesItsTimeOutWhenTheYearHasNineDigits) {
  const TimeZone zone("UTC0");
  TavrenError error = error_of_year(100000000);
  error.add_line(TAVREN_E_LOGIN_DENIED, "", "");
  EXPECT_EQ(printed(error), "  - Secure shell login failed: permission denied\n");
}
#endif

TEST(PrintedError, WithoutLinesIsItsTimeAlone) {
  const TimeZone zone("UTC0");
  TavrenError error;
  error.time = 1;
  EXPECT_EQ(printed(error), "1970/01/01 00:00:01\n");
}

}  // namespace
