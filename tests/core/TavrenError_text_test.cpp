#include <gtest/gtest.h>
#include <stdlib.h>
#include <time.h>

#include <utility>

#include "core/error_lines.h"

namespace {

struct Message {
  int code;
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

const Message messages[] = {
    {TAVREN_E_CHASSIS_CONFLICT, "Another QRV chassis is already using the specified archive directory (first)"},
    {TAVREN_E_CREATE_REMOTE_FILE, "Unable to create file first on remote host"},
    {TAVREN_E_EXPECTED_OUTPUT, "Expected output: \"first\""},
    {TAVREN_E_SSH_START, "Failed to start secure shell session on first"},
    {TAVREN_E_FILE_OPEN, "Failed to open file first, ecode=second"},
    {TAVREN_E_FILE_READ, "Failed to read from file first, ecode=second"},
    {TAVREN_E_HOST_AUTH, "Failed to authenticate the remote host (first)"},
    {TAVREN_E_HOST_KEY_MISMATCH, "The public host key setting does not match the remote host's private key"},
    {TAVREN_E_HOST_KEY_TOO_LARGE, "Host key is too large (first bytes)"},
    {TAVREN_E_INCORRECT_OUTPUT, "Remote command \"first\" produced incorrect output: second line(s) of output"},
    {TAVREN_E_SHELL_STATUS, "Remote shell error: $? evaluated to \"first\""},
    {TAVREN_E_OUTPUT, "Output: \"first\""},
    {TAVREN_E_PROGRAM_EXITED, "Program exited unexpectedly: first"},
    {TAVREN_E_COMMAND_FAILED, "Remote command \"first\" failed with error code second"},
    {TAVREN_E_COMMAND_OUTPUT, "Command output: \"first\""},
    {TAVREN_E_COMMAND_EXCESSIVE_OUTPUT, "Remote command \"first\" produced excessive output"},
    {TAVREN_E_COMMAND_TIMEOUT, "Timeout occurred while running remote command: \"first\""},
    {TAVREN_E_SHELL_START_TIMEOUT, "Timeout occurred while waiting for shell to start on first"},
    {TAVREN_E_CONNECT_TIMEOUT, "Timeout occurred while connecting to first"},
    {TAVREN_E_SSH_FAILED, "Secure shell failed: \"first\""},
    {TAVREN_E_LOGIN_DENIED, "Secure shell login failed: permission denied"},
    {TAVREN_E_SYSCALL, "System call \"first\" failed with error code second"},
    {TAVREN_E_EXCESSIVE_OUTPUT, "first produced excessive output (second bytes)"},
};

TEST(ErrorMessage, IsRenderedWithItsArguments) {
  for (const Message& message : messages) {
    EXPECT_EQ(rendered(message.code, "first", "second"), "  - " + message.text + "\n") << message.code;
  }
}

TEST(ErrorCodes, HaveTheNumbersOfTheDaemonInterface) {
  const std::vector<int> numbers = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 20, 21, 22, 23, 24, 25};
  std::vector<int> found;
  for (const Message& message : messages) found.push_back(message.code);
  EXPECT_EQ(found, numbers);
  EXPECT_EQ(TAVREN_E_NONE, 0);
}

TEST(CodeWithoutMessage, HasNoFormatAndIsRenderedAsUnknown) {
  for (const int code : {0, 18, 19, 26, 27, 1000, -1, -2147483647 - 1, 2147483647}) {
    EXPECT_EQ(rendered(code, "x", "y"), "  - Unknown error: " + std::to_string(code) + ", x, y\n");
    EXPECT_EQ(TavrenError::get_format_string(static_cast<tavren_error_code_t>(code)), nullptr) << code;
  }
}

TEST(MessageFormat, OfACodeIsTheTablesText) {
  EXPECT_STREQ(TavrenError::get_format_string(TAVREN_E_FILE_OPEN), "Failed to open file %s, ecode=%s");
}

TEST(RenderedLine, ShowsNothingForMissingArguments) {
  EXPECT_EQ(rendered(TAVREN_E_HOST_KEY_MISMATCH, "", ""),
            "  - The public host key setting does not match the remote host's private key\n");
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
  EXPECT_EQ(rendered(18, std::string(5000, 'x'), "y"), "  - Unknown error: 18, " + std::string(1023 - 19, 'x') + "\n");
}

TEST(PrintedError, BeginsWithItsLocalTime) {
  const TimeZone zone("EAST-2");
  TavrenError error(TAVREN_E_FILE_OPEN, "/a/b", "2");
  error.time = 1000;
  EXPECT_EQ(printed(error),
            "1970/01/01 02:16:40\n"
            "  - Failed to open file /a/b, ecode=2\n");
  TavrenError without_lines;
  without_lines.time = 1;
  EXPECT_EQ(printed(without_lines), "1970/01/01 02:00:01\n");
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

/* A 32-bit time ends in 2038. The line with its NUL takes all the bytes that there are for it with eight digits. */
#if __TIMESIZE == 64
TEST(PrintedError, ShowsYearsOfUpToEightDigits) {
  const TimeZone zone("UTC0");
  for (const auto& [year, shown] :
       {std::pair{10000, "10000/01/01 00:00:00\n"}, {99999999, "99999999/01/01 00:00:00\n"}, {100000000, ""}}) {
    struct tm first {};
    first.tm_year = year - 1900;
    first.tm_mday = 1;
    TavrenError error(TAVREN_E_LOGIN_DENIED, "", "");
    error.time = timegm(&first);
    EXPECT_EQ(printed(error), std::string(shown) + "  - Secure shell login failed: permission denied\n");
  }
}
#endif

}  // namespace
