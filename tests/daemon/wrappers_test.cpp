#include <gtest/gtest.h>
#include <signal.h>
#include <string.h>
#include <unistd.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "daemon/daemon_fixture.h"
#include "support/process_state.h"
#include "support/run_in_child.h"

namespace {

/* The functions that open a connection for one call. */
class Wrapper : public DaemonTest {
 protected:
  char buffer[TAVREN_API_TEXT_SIZE] = "untouched";
  tavren_state_t state{};

  /* All of them, each with the procedure that it calls. */
  const std::vector<std::pair<std::string, std::function<int()>>> wrappers = {
      {"get_state", [this] { return tavren_get_state(&state); }},
      {"get_archive_host", [this] { return tavren_get_archive_host(buffer); }},
      {"get_archive_directory", [this] { return tavren_get_archive_directory(buffer); }},
      {"run_task", [] { return tavren_request_to_archive_audit_file(); }},
      {"audit_file_was_archived", [] { return tavren_audit_file_was_archived("x"); }},
  };
};

TEST_F(Wrapper, ReadsTheState) {
  answer("get_state", "1");
  EXPECT_EQ(tavren_get_state(&state), 0);
  EXPECT_EQ(state, TAVREN_STATE_ENABLED);
}

TEST_F(Wrapper, ReadsTheArchiveHostAndDirectory) {
  answer("get_archive_host", "archive.example");
  answer("get_archive_directory", "/var/archive");
  EXPECT_EQ(tavren_get_archive_host(buffer), 0);
  EXPECT_STREQ(buffer, "archive.example");
  EXPECT_EQ(tavren_get_archive_directory(buffer), 0);
  EXPECT_STREQ(buffer, "/var/archive");
}

TEST_F(Wrapper, RequestsTheAuditFile) {
  EXPECT_EQ(tavren_request_to_archive_audit_file(), 0);
  EXPECT_EQ(requests(), "run_task\nLogTypeTask.audit\n");
}

TEST_F(Wrapper, AsksAboutAnAuditFile) {
  for (const int expected : {0, 5, -7}) {
    answer("audit_file_was_archived", std::to_string(expected));
    EXPECT_EQ(tavren_audit_file_was_archived("audit.1"), expected);
  }
}

TEST_F(Wrapper, WithoutADaemonHasNoConnectionAndPrintsNothing) {
  unregister();
  const Outcome outcome = run_in_child([this] {
    for (const auto& [procedure, wrapper] : wrappers) {
      if (wrapper() != TAVREN_API_E_CONNECT) _exit(1);
    }
    _exit(buffer == std::string("untouched") ? 0 : 2);
  });
  EXPECT_TRUE(outcome.exited_with(0)) << outcome.wait_status;
  EXPECT_EQ(outcome.out + outcome.err, "");
}

TEST_F(Wrapper, ClosesItsConnectionAlsoWhenTheDaemonDiesDuringTheCall) {
  answer("audit_file_was_archived", "-7");
  for (const auto& [procedure, wrapper] : wrappers) {
    SCOPED_TRACE(procedure);
    const auto before = count_open_descriptors();
    for (int i = 0; i < 20; ++i) wrapper();
    EXPECT_EQ(count_open_descriptors(), before);
    tell(procedure, "die");
    strcpy(buffer, "untouched");
    EXPECT_EQ(wrapper(), TAVREN_API_E_RPC);
    EXPECT_STREQ(buffer, "untouched");
    EXPECT_EQ(count_open_descriptors(), before);
    stop(SIGKILL); /* it has ended, and is reaped */
    start();
  }
}

}  // namespace
