#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <utility>

#include "TavrenError.h"
#include "tavren_version.h"
#include "tools/ctl_fixture.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;

TEST_F(TavrenCtl, ShowsAndSetsTheState) {
  answer("get_state", "1");
  EXPECT_EQ(shown_by("state"), "Enabled\n");
  EXPECT_EQ(ctl("disable"), 0);
  EXPECT_EQ(ctl("enable"), 0);
  EXPECT_EQ(requests(), "get_state\nset_state\n0\nset_state\n1\n");
}

TEST_F(TavrenCtl, ShowsTheConfigurationWithoutThePassword) {
  answer("get_config", "h\n/d\nu\nsecret\nssh-x AA\nSHA256:x\n1000\n-1\n");
  EXPECT_EQ(shown_by("config"),
            "Target:       u@h:/d\nPassword:     set\nHost key:     SHA256:x\nLimit audit:  1000 MB\n"
            "Limit logs:   Unlimited\n");
}

TEST_F(TavrenCtl, ShowsStoredErrorsOrThatThereAreNone) {
  answer("get_errors", std::string("0\0", 2));
  EXPECT_EQ(shown_by("errors"), "No errors\n");
  std::ostringstream stored;
  stored << 1 << '\0';
  const TavrenError error(TAVREN_E_CONNECT_TIMEOUT, "archive.example", "");
  error.serialize(stored);
  answer("get_errors", stored.str());
  EXPECT_THAT(shown_by("errors"), HasSubstr("\n  - Timeout occurred while connecting to archive.example\n"));
}

TEST_F(TavrenCtl, ShowsTheTables) {
  answer("get_tunable_table", "tunables\n");
  answer("get_remote_command_table", "commands\n");
  answer("get_interval_table", "intervals\n");
  for (const char* table : {"tunables", "commands", "intervals"}) {
    EXPECT_EQ(shown_by(table), std::string(table) + "\n");
  }
}

TEST_F(TavrenCtl, MakesRequests) {
  answer("get_interval_table", "TASK INTERVAL\nLogTypeTask.n 5\n");
  EXPECT_EQ(ctl("set-tunable n v"), 0);
  EXPECT_EQ(ctl("set-command n 't t'"), 0);
  EXPECT_EQ(ctl("set-interval LogTypeTask.n 5"), 0);
  EXPECT_EQ(ctl("clear"), 0);
  EXPECT_EQ(ctl("run LogTypeTask.n"), 0);
  EXPECT_EQ(ctl("audit"), 0);
  EXPECT_EQ(requests(),
            "set_tunable\nn\nv\nset_remote_command\nn\nt t\nset_interval\nLogTypeTask.n\n5\n"
            "clear_stored_data\nget_interval_table\nrun_task\nLogTypeTask.n\nrun_task\nLogTypeTask.audit\n");
}

TEST_F(TavrenCtl, KnowsTasksByTheirShortNames) {
  answer("get_interval_table", "TASK INTERVAL\nLogTypeTask.audit 5\nSpaceTask 60\n");
  EXPECT_EQ(ctl("run audit"), 0);
  EXPECT_EQ(ctl("run space"), 0);
  EXPECT_EQ(ctl("run SpaceTask"), 0);
  EXPECT_EQ(ctl("set-interval messages default"), 0);
  EXPECT_EQ(requests(),
            "get_interval_table\nrun_task\nLogTypeTask.audit\nget_interval_table\nrun_task\nSpaceTask\n"
            "get_interval_table\nrun_task\nSpaceTask\n"
            "set_interval\nLogTypeTask.messages\ndefault\n");
}

TEST_F(TavrenCtl, SendsIntervalsInSeconds) {
  const std::pair<const char*, const char*> intervals[] = {
      {"90", "90"}, {"90s", "90"}, {"30min", "1800"}, {"012h", "43200"}, {"365d", "31536000"}};
  for (const auto& [text, seconds] : intervals) {
    EXPECT_EQ(ctl(std::string("set-interval audit ") + text), 0) << err();
    EXPECT_EQ(requests(), std::string("set_interval\nLogTypeTask.audit\n") + seconds + "\n");
  }
}

TEST_F(TavrenCtl, RefusesWhatIsNoInterval) {
  for (const char* text : {"0", "-5", "+5", "min", "5m", "5 min", "1.5h", "366d", "31536001", "99999999999999999999",
                           "''", "' 5'", "0x10", "Default"}) {
    EXPECT_EQ(ctl(std::string("set-interval audit ") + text), 2) << text;
    EXPECT_EQ(requests(), "") << text;
  }
  EXPECT_EQ(err(),
            "tavren_ctl: not an interval: Default (a number of seconds, or with s, min, h, d; from 1 s to 365 d; or "
            "default)\n");
}

TEST_F(TavrenCtl, ShowsARefusalAndSaysSoInItsStatus) {
  const std::pair<const char*, const char*> requests[] = {{"set_tunable", "set-tunable n v"},
                                                          {"set_remote_command", "set-command n t"},
                                                          {"set_interval", "set-interval n 1"},
                                                          {"clear_stored_data", "clear"}};
  for (const auto& [procedure, arguments] : requests) {
    answer(procedure, std::string("No ") + procedure + ".");
    EXPECT_EQ(shown_by(arguments), std::string("1: tavren_ctl: No ") + procedure + ".\n");
  }
}

TEST_F(TavrenCtl, SaysThatTheDaemonDiedAtTheRequest) {
  tell("get_state", "die");
  EXPECT_THAT(shown_by("state"), StartsWith("2: tavren_ctl: Archiving API error: RPC failure: RPC: "));
}

TEST_F(TavrenCtl, SaysThatNobodyTakesItsOutput) {
  answer("get_tunable_table", std::string(1 << 16, 't'));
  for (const char* command : {"state", "tunables", "watch", "--help"}) {
    EXPECT_EQ(exit_status(TAVREN_CTL " " + std::string(command) + " >/dev/full 2>$LAB/err"), 2) << command;
    EXPECT_EQ(err(), "tavren_ctl: cannot write the output\n");
  }
}

TEST_F(TavrenCtl, ShowsWhereLogsGoAndWhetherTheDaemonSleeps) {
  answer("get_archive_host", "archive.example");
  answer("get_archive_directory", "/var/archive");
  answer("is_tavrend_sleeping", "1");
  EXPECT_EQ(shown_by("host"), "archive.example\n");
  EXPECT_EQ(shown_by("directory"), "/var/archive\n");
  EXPECT_EQ(shown_by("sleeping"), "Sleeping\n");
  answer("is_tavrend_sleeping", "0");
  EXPECT_EQ(shown_by("sleeping"), "Awake\n");
}

TEST_F(TavrenCtl, ShowsWhatBecameOfAnAuditFileAndOfWhichLogTypeItIs) {
  answer("audit_file_was_archived", "1");
  EXPECT_EQ(shown_by("archived audit.1"), "1\n");
  answer("audit_file_was_archived", "-7");
  EXPECT_EQ(shown_by("archived audit.1"), "1: tavren_ctl: Internal log archiving API error (error code -7)\n");
  answer("audit_file_was_archived", "-2");
  EXPECT_EQ(shown_by("archived /var/log/x"), "1: tavren_ctl: no file of the log type audit: /var/log/x\n");
}

TEST_F(TavrenCtl, ExplainsItsUsage) {
  EXPECT_THAT(shown_by(""), StartsWith("2: Usage: tavren_ctl COMMAND"));
  for (const char* arguments : {"--help", "status --help"}) {
    EXPECT_THAT(shown_by(arguments), StartsWith("Usage: tavren_ctl COMMAND"));
  }
}

TEST_F(TavrenCtl, SaysWhatIsWrongWithACommandLine) {
  EXPECT_EQ(shown_by("nonsense"), "2: tavren_ctl: unknown command: nonsense (tavren_ctl --help shows all)\n");
  for (const std::string command : {"state x", "run", "set-tunable n", "state --json"}) {
    EXPECT_EQ(shown_by(command), "2: tavren_ctl: " + command.substr(0, command.find(' ')) +
                                     ": wrong number of arguments (tavren_ctl --help shows them)\n");
  }
}

TEST_F(TavrenCtl, SaysWithoutTheDaemonThatThereIsNoneAndHowToSetOneUp) {
  unregister();
  EXPECT_EQ(shown_by("state"),
            "2: tavren_ctl: Cannot connect to archiving daemon: RPC: Program not registered\n"
            "Check that the daemon tavrend and rpcbind are running: systemctl status tavrend rpcbind\n");
  EXPECT_EQ(shown_by("--version"), "tavren_ctl " TAVREN_VERSION_TEXT "\n");
  EXPECT_THAT(shown_by("setup --help"), StartsWith("Usage: tavren_ctl setup [options] user@host:directory\n"));
}

TEST_F(TavrenCtl, RunsNoTaskThatTheDaemonDoesNotKnow) {
  answer("get_interval_table", "TASK INTERVAL\nLogTypeTask.audits 60\nSpaceTask 60\n");
  EXPECT_EQ(shown_by("run audit"), "1: tavren_ctl: no such task: audit (tavren_ctl intervals shows all)\n");
  EXPECT_EQ(ctl("run audits"), 0) << err();
  EXPECT_EQ(ctl("run space"), 0) << err();
}

}  // namespace
