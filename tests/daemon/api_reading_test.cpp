#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <sstream>
#include <string>

#include "TavrenError.h"
#include "daemon/api_calls.h"
#include "daemon/daemon_fixture.h"
#include "support/run_in_child.h"

namespace {

class ApiReading : public ApiTest {
 protected:
  /* Returns the text that the call of that procedure stores, and frees it; "NULL" for none. */
  std::string text_of(const std::string& procedure) {
    char unset = 0;
    char* text = &unset;
    EXPECT_EQ(call_for_text(procedure, &handle, &text), 0);
    if (text == nullptr) return "NULL";
    const std::string copy = text;
    free(text);
    return copy;
  }
};

TEST_F(ApiReading, OfTheState) {
  tavren_state_t state = TAVREN_STATE_DISABLED;
  answer("get_state", "1");
  EXPECT_EQ(tavren_api_get_state(&handle, &state), 0);
  EXPECT_EQ(state, TAVREN_STATE_ENABLED);
  answer("get_state", "0");
  EXPECT_EQ(tavren_api_get_state(&handle, &state), 0);
  EXPECT_EQ(state, TAVREN_STATE_DISABLED);
  EXPECT_EQ(requests(), "get_state\nget_state\n");
}

TEST_F(ApiReading, OfTheConfigurationIsADeepCopy) {
  answer("get_config", "h\n/d\nu\np\nssh-x AA\nSHA256:x\n10\n-1\n");
  tavren_config_t config{};
  ASSERT_EQ(tavren_api_get_config(&handle, &config), 0);
  EXPECT_STREQ(config.settings.host, "h");
  EXPECT_STREQ(config.settings.dir, "/d");
  EXPECT_STREQ(config.settings.user, "u");
  EXPECT_STREQ(config.settings.password, "p");
  EXPECT_STREQ(config.settings.host_key, "ssh-x AA");
  EXPECT_STREQ(config.settings.fingerprint, "SHA256:x");
  EXPECT_EQ(config.space_limit[0], 10);
  EXPECT_EQ(config.space_limit[1], TAVREN_SPACE_UNLIMITED);
  tavren_config_free_contents(&config);
}

TEST_F(ApiReading, OfAnEmptyConfigurationGivesEmptyStrings) {
  tavren_config_t config{};
  ASSERT_EQ(tavren_api_get_config(&handle, &config), 0);
  EXPECT_STREQ(config.settings.host, "");
  EXPECT_STREQ(config.settings.fingerprint, "");
  tavren_config_free_contents(&config);
}

TEST_F(ApiReading, OfTheStatus) {
  answer("get_status", "1000\n2\n1\n-2\n3\n4\n5\n-6\n");
  tavren_status_t status{};
  ASSERT_EQ(tavren_api_get_status(&handle, &status), 0);
  EXPECT_EQ(status.connection_time, 1000);
  EXPECT_EQ(status.connection_status, TAVREN_CONNECTION_FAILED);
  EXPECT_EQ(status.compartment_status[0].word2, -2);
  EXPECT_EQ(status.compartment_status[1].word1, 4);
  EXPECT_EQ(status.compartment_status[1].word3, -6);
}

TEST_F(ApiReading, OfTheArchiveHostAndDirectoryCutsThemTo255Bytes) {
  for (const size_t size : {15U, 255U, 300U}) {
    answer("get_archive_host", std::string(size, 'h'));
    answer("get_archive_directory", std::string(size, 'd'));
    char buffer[TAVREN_API_TEXT_SIZE];
    EXPECT_EQ(tavren_api_get_archive_host(&handle, buffer), 0);
    EXPECT_EQ(buffer, std::string(std::min<size_t>(size, 255), 'h'));
    EXPECT_EQ(tavren_api_get_archive_directory(&handle, buffer), 0);
    EXPECT_EQ(buffer, std::string(std::min<size_t>(size, 255), 'd'));
    EXPECT_EQ(requests(), "get_archive_host\nget_archive_directory\n");
  }
}

/* The library waits for twenty-five seconds. */
TEST_F(ApiReading, OfWhatTheDaemonAnswersAfter24Seconds) {
  answer("get_archive_host", "archive.example");
  tell("get_archive_host", "sleep 24");
  const int64_t start = tavren_get_uptime_ms();
  char buffer[TAVREN_API_TEXT_SIZE];
  EXPECT_EQ(tavren_api_get_archive_host(&handle, buffer), 0) << message(handle);
  EXPECT_GE(tavren_get_uptime_ms() - start, 24000);
  EXPECT_STREQ(buffer, "archive.example");
}

TEST_F(ApiReading, OfTheTablesWhichMayBeEmpty) {
  for (const std::string procedure : {"get_tunable_table", "get_remote_command_table", "get_interval_table"}) {
    EXPECT_EQ(text_of(procedure), "");
    answer(procedure, "answer to " + procedure + "\n");
    EXPECT_EQ(text_of(procedure), "answer to " + procedure + "\n");
  }
}

TEST_F(ApiReading, OfATableOfAMegabyte) {
  const std::string table(1 << 20, 'x');
  answer("get_tunable_table", table);
  EXPECT_TRUE(text_of("get_tunable_table") == table);
}

TEST_F(ApiReading, OfWhetherTheDaemonSleeps) {
  for (const int expected : {0, 1, -3}) {
    answer("is_tavrend_sleeping", std::to_string(expected));
    int sleeping = 7;
    EXPECT_EQ(tavren_api_is_tavrend_sleeping(&handle, &sleeping), 0);
    EXPECT_EQ(sleeping, expected);
  }
}

/* Stored errors as a daemon keeps them. */
std::string serialised(const std::vector<TavrenError>& errors) {
  std::ostringstream out;
  out << errors.size() << '\0';
  for (const TavrenError& error : errors) error.serialize(out);
  return out.str();
}

std::string printed(const std::vector<TavrenError>& errors) {
  std::ostringstream out;
  for (const TavrenError& error : errors) error.print(out);
  return out.str();
}

TEST_F(ApiReading, OfNoErrorsGivesNull) {
  answer("get_errors", serialised({}));
  EXPECT_EQ(text_of("get_errors"), "NULL");
}

TEST_F(ApiReading, OfErrorsPrintsThemInOrder) {
  std::vector<TavrenError> errors;
  for (int i = 0; i < 100; ++i) {
    errors.emplace_back(TAVREN_E_FILE_OPEN, std::to_string(i) + "\xc3\xa4\xff\x80" + std::string(4096, 'a'), "2");
    errors.back().time = 1000000 * i;
  }
  answer("get_errors", serialised(errors));
  EXPECT_TRUE(text_of("get_errors") == printed(errors));
}

TEST_F(ApiReading, OfMalformedErrorsIsAFailedAssertion) {
  answer("get_errors", std::string("1\0TavrenErrox\0", 14));
  expect_assertion("TavrenError", "s == \"TavrenError\"", [] {
    tavren_api_handle_t own{};
    char* text = nullptr;
    if (tavren_api_open(&own) == 0) tavren_api_get_errors(&own, &text);
  });
}

/* An error that is parsed by then would be found by the address sanitizer if it stayed. */
TEST_F(ApiReading, OfErrorsThatEndEarlyOrHaveNoNumberIsAnException) {
  std::string stored = serialised({TavrenError(TAVREN_E_OUTPUT, "x", "")});
  stored.front() = '2';
  for (const std::string& errors : {stored, std::string()}) {
    answer("get_errors", errors);
    char unset = 0;
    char* text = &unset;
    EXPECT_THROW(tavren_api_get_errors(&handle, &text), std::ios_base::failure);
    EXPECT_EQ(text, &unset);
  }
}

}  // namespace
