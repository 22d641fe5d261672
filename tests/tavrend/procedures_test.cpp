#include <gmock/gmock.h>
#include <signal.h>
#include <stdint.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <time.h>

#include <sstream>
#include <string>

#include "TavrenHost.h"
#include "TavrenTunables.h"
#include "tavrend/procedures_fixture.h"

using testing::HasSubstr;
using testing::Not;

TEST_F(Procedure, NullAnswersRootAndStrangersAndNoOtherVersion) {
  start(sections());
  lab::run("! rpcinfo -t 127.0.0.1 100171 2 >/dev/null 2>&1");
  for (int i = 0; i < 2; ++i) {
    port();
    lab::run("rpcinfo -n $(cat $LAB/port) -t 127.0.0.1 100171 1 >/dev/null");
    lab::run("setpriv --reuid 4711 --clear-groups rpcinfo -n $(cat $LAB/port) -t 127.0.0.1 100171 1 >/dev/null");
    restart();
  }
}

TEST_F(Procedure, StateIsOffAtFirstAndKept) {
  start(sections());
  EXPECT_EQ(state_now(), TAVREN_STATE_DISABLED);
  EXPECT_EQ(set_state(TAVREN_STATE_ENABLED), 0);
  EXPECT_EQ(state_now(), TAVREN_STATE_ENABLED);
  restart();
  EXPECT_EQ(state_now(), TAVREN_STATE_ENABLED);
  EXPECT_EQ(set_state(TAVREN_STATE_DISABLED), 0);
  EXPECT_EQ(state_now(), TAVREN_STATE_DISABLED);
  restart();
  EXPECT_EQ(state_now(), TAVREN_STATE_DISABLED);
}

TEST_F(Procedure, WithoutAConfigurationThereAreEmptyTextsAndArchivingWaits) {
  start("[messages]\nfollow = " + log("messages") + "\ninterval = 1\n");
  append("messages", "one\n");
  EXPECT_EQ(configuration(), "[] [] [] [] [] [] -1 -1");
  EXPECT_EQ(archive_host(), "");
  EXPECT_EQ(archive_directory(), "");
  EXPECT_EQ(set_state(TAVREN_STATE_ENABLED), 0);
  EXPECT_EQ(run_task("LogTypeTask.messages"), 0);
  EXPECT_EQ(sleeping(), 1);
  restart();
  EXPECT_EQ(configuration(), "[] [] [] [] [] [] -1 -1");
  EXPECT_EQ(status().connection_status, TAVREN_CONNECTION_NONE);
  ASSERT_EQ(set_config(), 0);
  wait_until("a line", [] { return archive_of("messages") == "one\n"; });
}

TEST_F(Procedure, AConfigurationReplacesTheOldOneAndNoneKeepsIt) {
  start(sections());
  EXPECT_EQ(configure("one.example", "/one", "first", 10, -1, false), 0);
  EXPECT_EQ(configure("two.example", "/two", "second", -1, 0, false), 0);
  const std::string expected = "[two.example] [/two] [second] [a secret] [key] [fingerprint] -1 0";
  EXPECT_EQ(configuration(), expected);
  EXPECT_EQ(state_now(), TAVREN_STATE_DISABLED);
  EXPECT_EQ(set_state_by_configuration(true), 0);
  EXPECT_EQ(state_now(), TAVREN_STATE_ENABLED);
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(configuration(), expected);
    EXPECT_EQ(archive_host(), "two.example");
    EXPECT_EQ(archive_directory(), "/two");
    restart();
  }
  EXPECT_EQ(set_state_by_configuration(false), 0);
  EXPECT_EQ(state_now(), TAVREN_STATE_DISABLED);
}

TEST_F(Procedure, WhatIsRefusedChangesNothingAndIsInTheSystemLog) {
  start(sections());
  EXPECT_EQ(configure("one.example", "/one", "first", 10, 20, false), 0);
  EXPECT_EQ(configure("", "/two", "second", 1, 1, true), TAVREN_API_E_RPC);
  EXPECT_EQ(configure("two.example", "", "second", 1, 1, true), TAVREN_API_E_RPC);
  EXPECT_EQ(configure("two.example", "/two", "", 1, 1, true), TAVREN_API_E_RPC);
  EXPECT_EQ(configure("two.example", "/two", "second", -2, 1, true), TAVREN_API_E_RPC);
  EXPECT_EQ(configure("two.example", "/two", "second", 1, INT32_MIN, true), TAVREN_API_E_RPC);
  char words[TAVREN_API_TEXT_SIZE] = "";
  call([&words](auto* handle) {
    Settings no_host{"", "/two", "second", "", "", ""};
    const tavren_config_t refused = {no_host.record(), {-1, -1}};
    const int result = tavren_api_set_config(handle, &refused, 1);
    tavren_api_errmsg(handle, words);
    return result;
  });
  EXPECT_THAT(std::string(words), HasSubstr("Remote system error"));
  EXPECT_EQ(configuration(), "[one.example] [/one] [first] [a secret] [key] [fingerprint] 10 20");
  EXPECT_EQ(state_now(), TAVREN_STATE_DISABLED);
  EXPECT_EQ(run_task("LogTypeTask.other"), 0);
  EXPECT_EQ(run_task("LogTypeTask.audit"), 0);
  const std::string system_log = lab::system_log();
  EXPECT_THAT(system_log, HasSubstr("there is no task \"LogTypeTask.other\""));
  EXPECT_THAT(system_log, Not(HasSubstr("there is no task \"LogTypeTask.audit\"")));
  for (const char* reason : {"no host", "no directory", "no user", "a limit below -1"}) {
    EXPECT_THAT(system_log, HasSubstr("a configuration was refused: " + std::string(reason)));
  }
}

TEST_F(Procedure, StatusHasTheSpaceThatIsUsed) {
  append("audit.log.1", std::string(1500000, 'x'));
  start(sections());
  EXPECT_EQ(used(0), -1);
  ASSERT_EQ(set_config(lab::value("LAB_PASSWORD"), 100, -1, false), 0);
  EXPECT_EQ(used(0), -2);
  EXPECT_EQ(used(1), -1);
  ASSERT_EQ(set_state(TAVREN_STATE_ENABLED), 0);
  ASSERT_EQ(run_task("LogTypeTask.audit"), 0);
  wait_until("an item", [] { return archived_since_the_start(0) == 1; });
  EXPECT_EQ(used(0), 2);
  ASSERT_EQ(set_state(TAVREN_STATE_DISABLED), 0);
  restart();
  EXPECT_EQ(used(0), -2);
  EXPECT_EQ(archived_since_the_start(0), 0);
  ASSERT_EQ(set_state(TAVREN_STATE_ENABLED), 0);
  ASSERT_EQ(run_task("SpaceTask"), 0);
  wait_until("a measurement", [] { return used(0) == 2; });
  EXPECT_EQ(used(1), -1);
  ASSERT_EQ(set_config(lab::value("LAB_PASSWORD"), 100, 100), 0);
  EXPECT_EQ(used(1), -2);
  ASSERT_EQ(run_task("SpaceTask"), 0);
  wait_until("a measurement of both", [] { return used(0) == 2 && used(1) == 0; });
}

TEST_F(Procedure, StatusSaysThatTheSpaceCouldNotBeMeasured) {
  append("audit.log.1", "one\n");
  start(sections());
  ASSERT_EQ(set_remote_command("du", "/no/such/program"), "");
  for (const char* task : {"LogTypeTask.audit", "SpaceTask"}) {
    ASSERT_EQ(set_config(lab::value("LAB_PASSWORD"), 100, -1), 0);
    ASSERT_EQ(used(0), -2);
    ASSERT_EQ(run_task(task), 0);
    wait_until("a measurement that fails", [] { return used(0) == -3 && sleeping() == 1; });
  }
  ASSERT_EQ(set_remote_command("all", "default"), "");
  ASSERT_EQ(run_task("SpaceTask"), 0);
  wait_until("a measurement", [] { return used(0) == 0; });
  ASSERT_EQ(set_tunable("ssh_du_command_timeout", "1"), "");
  ASSERT_EQ(set_remote_command("du", "sleep 30;"), "");
  ASSERT_EQ(run_task("SpaceTask"), 0);
  wait_until("a measurement that takes too long", [] { return used(0) == -3; });
}

/* A program that says nothing has not measured what is there, and an archive without items needs none. */
TEST_F(Procedure, StatusSaysThatNothingWasMeasured) {
  append("audit.log.1", "one\n");
  start(sections());
  ASSERT_EQ(set_remote_command("du", "true"), "");
  ASSERT_EQ(set_config(lab::value("LAB_PASSWORD"), 100, -1), 0);
  ASSERT_EQ(run_task("SpaceTask"), 0);
  wait_until("a measurement of nothing", [] { return used(0) == 0; });
  ASSERT_EQ(run_task("LogTypeTask.audit"), 0);
  wait_until("an item", [] { return archived_since_the_start(0) == 1; });
  ASSERT_EQ(run_task("SpaceTask"), 0);
  wait_until("a measurement that fails", [] { return used(0) == -3; });
  const std::string reason = "audit' 2>/dev/null\" produced incorrect output: 0 line(s) of output";
  wait_until("the reason", [&reason] { return errors().find(reason) != std::string::npos; });
}

/* Of three sections one has no directory yet, which is no failure. */
TEST_F(Procedure, StatusSaysThatOneOfSeveralDirectoriesWasNotMeasured) {
  append("a.1", std::string(1500000, 'x'));
  append("b.1", "one\n");
  start(closed("a.*", "a") + closed("b.*", "b") + closed("c.*", "c"));
  ASSERT_EQ(set_config(lab::value("LAB_PASSWORD"), -1, 100), 0);
  wait_until("two items", [] { return archived_since_the_start(1) == 2; });
  ASSERT_EQ(set_config(lab::value("LAB_PASSWORD"), -1, 100), 0);
  EXPECT_EQ(used(1), -2);
  ASSERT_EQ(run_task("SpaceTask"), 0);
  wait_until("a measurement", [] { return used(1) == 2; });
  const char* const but_b = "all_but_b() { for i; do [ $i = ./b ] || /usr/bin/du -sk $i; done; }; all_but_b";
  ASSERT_EQ(set_remote_command("du", but_b), "");
  ASSERT_EQ(run_task("SpaceTask"), 0);
  wait_until("a measurement that fails", [] { return used(1) == -3; });
  const std::string reason = "'./c' 2>/dev/null\" produced incorrect output: 1 line(s) of output";
  wait_until("the reason", [&reason] { return errors().find(reason) != std::string::npos; });
}

TEST_F(Procedure, StatusHasTheConnectionThatThereIsAndTheItemsThatAreWaiting) {
  append("audit.log.1", std::string(20000000, 'x'));
  lab::run("touch -d 2026-01-01 " + log("audit.log.1"));
  append("audit.log.2", "two\n");
  append("messages", many_lines(20000000));
  start(sections());
  EXPECT_EQ(status().connection_status, TAVREN_CONNECTION_NONE);
  EXPECT_EQ(status().connection_time, 0);
  const auto before = static_cast<int32_t>(time(nullptr));
  slow_the_network();
  ASSERT_EQ(set_config(), 0);
  ASSERT_EQ(run_task("LogTypeTask.audit"), 0);
  wait_until_half_is_sent("audit");
  EXPECT_EQ(status().connection_status, TAVREN_CONNECTION_OK);
  EXPECT_GE(status().connection_time, before);
  EXPECT_EQ(waiting(0), 2);
  EXPECT_EQ(waiting(1), 1);
  ASSERT_EQ(run_task("LogTypeTask.messages"), 0);
  wait_until_half_is_sent("messages");
  EXPECT_EQ(waiting(0), 0);
  EXPECT_EQ(archived_since_the_start(0), 2);
  EXPECT_EQ(waiting(1), 1);
  EXPECT_EQ(archived_since_the_start(1), 0);
  wait_until("the end", [] { return archived_since_the_start(1) == 1 && sleeping() == 1; });
  EXPECT_EQ(waiting(1), 0);
  EXPECT_EQ(status().connection_status, TAVREN_CONNECTION_OK);
}

TEST_F(Procedure, StatusHasTheItemsThatFailed) {
  append("audit.log.1", std::string(2000000, 'x'));
  append("audit.log.2", "two\n");
  append("messages", many_lines(2000000));
  start(sections());
  ASSERT_EQ(set_config(lab::value("LAB_PASSWORD"), 1, 1), 0);
  ASSERT_EQ(run_task("LogTypeTask.audit"), 0);
  ASSERT_EQ(run_task("LogTypeTask.messages"), 0);
  wait_until("the end", [] { return archived_since_the_start(0) == 1 && sleeping() == 1; });
  EXPECT_EQ(waiting(0), 1);
  wait_until("the log", [] { return waiting(1) == 1 && sleeping() == 1; });
}

TEST_F(Procedure, ErrorsAreKeptUntilTheyAreCleared) {
  append("audit.log.1", "one\n");
  start(sections());
  EXPECT_EQ(errors(), "");
  ASSERT_EQ(set_config("wrong"), 0);
  ASSERT_EQ(run_task("LogTypeTask.audit"), 0);
  wait_until("an error", [] { return !errors().empty(); });
  EXPECT_EQ(status().connection_status, TAVREN_CONNECTION_FAILED);
  EXPECT_EQ(items("audit").size(), 0U);
  ASSERT_EQ(set_config(lab::value("LAB_PASSWORD")), 0);
  ASSERT_EQ(run_task("LogTypeTask.audit"), 0);
  wait_until("an item", [] { return archived_since_the_start(0) == 1; });
  EXPECT_EQ(status().connection_status, TAVREN_CONNECTION_OK);
  restart();
  EXPECT_THAT(errors(), HasSubstr("Secure shell login failed: permission denied"));
  EXPECT_EQ(refusal_of(tavren_api_clear_stored_data), "");
  EXPECT_EQ(errors(), "");
  EXPECT_EQ(audit_answer(log("audit.log.1")), 1);
  restart();
  EXPECT_EQ(errors(), "");
  EXPECT_EQ(audit_answer(log("audit.log.1")), 1);
}

TEST_F(Procedure, TunablesAreThoseOfTheDaemon) {
  start(sections());
  EXPECT_EQ(set_tunable("ssh_command_timeout", "33"), "");
  EXPECT_NE(set_tunable("ssh_command_timeout", "soon"), "");
  EXPECT_EQ(set_tunable("a\nb", "1"), "A newline is not allowed here.");
  EXPECT_EQ(set_tunable("log_dir_prefix", "/a\n"), "A newline is not allowed here.");
  const auto loaded = [] {
    EXPECT_EQ(call(tavren_api_load_tunables), 0);
    std::ostringstream out;
    TavrenTunables::instance().print_tunables(out);
    return out.str();
  };
  EXPECT_EQ(loaded(), "ssh_command_timeout=33\n");
  restart();
  EXPECT_EQ(loaded(), "ssh_command_timeout=33\n");
  EXPECT_THAT(refusal_of(tavren_api_get_tunable_table), HasSubstr("ssh_command_timeout      33 (default: 60)\n"));
  EXPECT_EQ(set_tunable("ssh_command_timeout", "default"), "");
  restart();
  EXPECT_THAT(refusal_of(tavren_api_get_tunable_table), Not(HasSubstr("default:")));
}

TEST_F(Procedure, RemoteCommandsAreThoseOfTheDaemon) {
  start(sections());
  EXPECT_EQ(set_remote_command("ls", "/bin/ls -1A"), "");
  EXPECT_EQ(set_remote_command("ls", "a\nb"), "A newline is not allowed here.");
  EXPECT_EQ(set_remote_command("l\ns", "a"), "A newline is not allowed here.");
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(call(tavren_api_load_remote_commands), 0);
    EXPECT_EQ(TavrenHost::get_cmd("ls"), "/bin/ls -1A ");
    EXPECT_THAT(refusal_of(tavren_api_get_remote_command_table), HasSubstr("ls          /bin/ls -1A "));
    restart();
  }
  EXPECT_EQ(set_remote_command("ls", "default"), "");
  restart();
  EXPECT_THAT(refusal_of(tavren_api_get_remote_command_table), Not(HasSubstr("/bin/ls -1A ")));
}

TEST_F(Procedure, IntervalsAreATableInWhichRefusedOnesChangeNothing) {
  start(sections());
  for (const char* value : {"", "0", "-1", "31536001", "1 h", "9999999999999999999999", "Default"}) {
    EXPECT_EQ(set_interval("SpaceTask", value), "Invalid interval: \"" + std::string(value) + "\".");
  }
  for (const char* task : {"", "audit", "spacetask", "LogTypeTask.", "LogTypeTask.other"}) {
    EXPECT_EQ(set_interval(task, "5"), "Unknown task: \"" + std::string(task) + "\".");
    EXPECT_EQ(set_interval(task, "default"), "Unknown task: \"" + std::string(task) + "\".");
  }
  EXPECT_EQ(intervals(), interval_table("3600", "600", "3600"));
  EXPECT_EQ(set_interval("LogTypeTask.audit", "1d"), "");
  EXPECT_EQ(set_interval("SpaceTask", "31536000"), "");
  EXPECT_EQ(set_interval("LogTypeTask.messages", "10min"), "");
  const std::string changed = interval_table("86400 (default: 3600)", "600", "31536000 (default: 3600)");
  EXPECT_EQ(intervals(), changed);
  restart();
  EXPECT_EQ(intervals(), changed);
  EXPECT_EQ(set_interval("LogTypeTask.audit", "default"), "");
  EXPECT_EQ(set_interval("SpaceTask", "default"), "");
  EXPECT_EQ(intervals(), interval_table("3600", "600", "3600"));
  restart();
  EXPECT_EQ(intervals(), interval_table("3600", "600", "3600"));
}

/* No file of the daemon's takes a byte more. */
TEST_F(Procedure, ThatCannotKeepAChangeLeavesWhatThereWas) {
  signal(SIGXFSZ, SIG_IGN); /* as it is for the daemon then, too */
  start(sections());
  ASSERT_EQ(configure("one", "/archive", "logger", 1, 2, false), 0);
  const std::string before = configuration();
  const rlimit none{0, 0};
  ASSERT_EQ(prlimit(daemon, RLIMIT_FSIZE, &none, nullptr), 0);
  EXPECT_NE(configure("two", "/other", "other", 3, 4, false), 0);
  EXPECT_NE(set_state(TAVREN_STATE_ENABLED), 0);
  EXPECT_EQ(set_interval("SpaceTask", "5"), "no answer");
  EXPECT_EQ(configuration(), before);
  EXPECT_EQ(state_now(), TAVREN_STATE_DISABLED);
  EXPECT_EQ(intervals(), interval_table("3600", "600", "3600"));
  signal(SIGXFSZ, SIG_DFL);
}

TEST_F(Procedure, AuditFilesAreAskedForByWhatIsThereNow) {
  append("audit.log.1", "one\n");
  append("audit.txt", "no log\n");
  start(sections());
  EXPECT_EQ(audit_answer(log("audit.log.1")), 0);
  EXPECT_EQ(audit_answer(log("audit.log.2")), -2);
  EXPECT_EQ(audit_answer(log("audit.txt")), -2);
  EXPECT_EQ(audit_answer("audit.log.1"), -2);
  EXPECT_EQ(audit_answer(""), -2);
  EXPECT_EQ(audit_answer(log("audit.log." + std::string(300, 'x'))), -2) << "no file can have that name";
  ASSERT_EQ(set_config(), 0);
  ASSERT_EQ(run_task("LogTypeTask.audit"), 0);
  wait_until("an item", [] { return archived_since_the_start(0) == 1; });
  EXPECT_EQ(audit_answer(log("audit.log.1")), 1);
  ASSERT_EQ(set_state(TAVREN_STATE_DISABLED), 0);
  lab::run("mv " + log("audit.log.1") + " " + log("audit.log.2"));
  append("audit.log.1", "two\n");
  restart();
  EXPECT_EQ(audit_answer(log("audit.log.1")), 0);
  EXPECT_EQ(audit_answer(log("audit.log.2")), 1);
  append("audit.log.2", "more\n");
  EXPECT_EQ(audit_answer(log("audit.log.2")), 0);
}

/* A file of the kernel's that root may open, and nobody read. */
TEST_F(Procedure, AuditFilesThatCannotBeReadAreNotArchivedYet) {
  append("audit.log.1", "one\n");
  lab::change_machine("mount --bind /sys/class/net/lo/speed " + log("audit.log.1"));
  start(sections());
  EXPECT_EQ(audit_answer(log("audit.log.1")), 0);
  EXPECT_EQ(audit_answer(log("audit.log.2")), -2);
}

TEST_F(Procedure, AuditFilesHaveTheSectionsPathsWithoutThePrefix) {
  append("audit.log.1", "one\n");
  start("[audit]\nfiles = /logs/audit.log.*\n");
  EXPECT_EQ(audit_answer("/logs/audit.log.1"), -2);
  EXPECT_EQ(set_tunable("log_dir_prefix", lab::value("LAB").c_str()), "");
  EXPECT_EQ(audit_answer("/logs/audit.log.1"), 0);
  EXPECT_EQ(audit_answer(log("audit.log.1")), -2);
}

TEST_F(Procedure, AuditFilesAreNoneWithoutASectionOfClosedOnes) {
  append("audit.log", "one\n");
  start("[audit]\nfollow = " + log("audit.log") + "\n[other]\nfiles = " + log("audit.log") + "\n");
  EXPECT_EQ(audit_answer(log("audit.log")), -2);
}

/* What was there before a log was followed was passed over, and is a closed file of its own from now on. */
TEST_F(Procedure, AuditFilesThatWereOnlyPassedOverAreNotArchivedYet) {
  append("audit.log.1", "older\n");
  append("audit.log", "one\n");
  start("[audit]\nfollow = " + log("audit.log") + "\ninterval = 1d\n");
  ASSERT_EQ(set_config(), 0);
  ASSERT_EQ(run_task("LogTypeTask.audit"), 0);
  expect_archived("audit", "one\n");
  write_file(config_file, sections());
  kill(daemon, SIGHUP);
  wait_until("the other configuration", [this] { return audit_answer(log("audit.log.1")) != -2; });
  EXPECT_EQ(audit_answer(log("audit.log.1")), 0);
  ASSERT_EQ(run_task("LogTypeTask.audit"), 0);
  expect_archived("audit", "one\nolder\n");
  EXPECT_EQ(audit_answer(log("audit.log.1")), 1);
}

TEST_F(Procedure, ArchivedFilesThatWereMissingForLongAreForgotten) {
  append("audit.log.1", "one\n");
  append("messages", "one\n");
  start(sections());
  stop();
  struct stat there {};
  ASSERT_EQ(stat(logs.c_str(), &there), 0);
  for (const char* section : {"audit", "messages"}) {
    const std::string row =
        "CAST('" + std::string(section) + "' AS BLOB), " + std::to_string(there.st_dev) + ", 1, 0, 0, 5, 5, 0";
    EXPECT_EQ(change_state("INSERT INTO archived VALUES (NULL, " + row + ", 1, row_sum(" + row + "))"), 1);
  }
  start_again();
  ASSERT_EQ(set_config(), 0);
  ASSERT_EQ(run_task("LogTypeTask.audit"), 0);
  ASSERT_EQ(run_task("LogTypeTask.messages"), 0);
  wait_until("both", [] { return archive_of("audit") == "one\n" && archive_of("messages") == "one\n"; });
  wait_until("the end", [] { return sleeping() == 1; });
  stop();
  EXPECT_EQ(change_state("DELETE FROM archived WHERE size = 5"), 0);
}

/* What has arrived of an item that is sent again does not count against the room that it gets. */
TEST_F(Procedure, AnItemThatHadArrivedWhenTheDaemonDiedIsSentAgainInItsPlace) {
  append("audit.log.1", std::string(700000, 'x'));
  start(sections());
  ASSERT_EQ(set_config(lab::value("LAB_PASSWORD"), 1, -1), 0);
  ASSERT_EQ(run_task("LogTypeTask.audit"), 0);
  wait_until("an item", [] { return archived_since_the_start(0) == 1; });
  stop(SIGKILL);
  const std::string item = "audit/" + items("audit").at(0);
  const std::string row = "section, CAST('" + item + "' AS BLOB), CAST('" + log("audit.log.1") +
                          "' AS BLOB), device, inode, size, mtime_ns, CAST('" + std::string(1024, 'x') +
                          "' AS BLOB), 0, 0, 0, size, x'', 0, -1";
  change_state("INSERT INTO intent SELECT " + row + ", row_sum(" + row + ") FROM archived; DELETE FROM archived");
  start_again();
  ASSERT_EQ(run_task("LogTypeTask.audit"), 0);
  wait_until("the item again", [] { return archived_since_the_start(0) == 1; });
  EXPECT_EQ(errors(), "");
  ASSERT_EQ(items("audit").size(), 1U);
  EXPECT_EQ("audit/" + items("audit")[0], item);
  EXPECT_EQ(archive_of("audit").size(), 700000U);
}

TEST_F(Procedure, AnItemThatHasFailedIsTriedAgainWithTheNextRunOfItsTask) {
  append("audit.log.1", std::string(2000000, 'x'));
  lab::run("touch -d 2026-01-01 " + log("audit.log.1"));
  append("audit.log.2", "small\n");
  start(sections());
  ASSERT_EQ(set_config(lab::value("LAB_PASSWORD"), 1, -1), 0);
  const auto failures = [] {
    const std::string all = errors();
    const std::string failure = "Unable to create file audit/";
    return all.find(failure) == std::string::npos ? 0 : all.find(failure) == all.rfind(failure) ? 1 : 2;
  };
  ASSERT_EQ(run_task("LogTypeTask.audit"), 0);
  wait_until("a failure", [&] { return failures() > 0; });
  expect_archived("audit", "small\n"); /* which goes on */
  EXPECT_EQ(failures(), 1);
  EXPECT_THAT(errors(), HasSubstr("  - System call \"limit\" failed with error code 27\n"));
  ASSERT_EQ(run_task("LogTypeTask.audit"), 0);
  wait_until("another failure", [&] { return failures() == 2; });
}

/* The pieces of a log keep their order. */
TEST_F(Procedure, WhatStandsBehindAPieceThatHasFailedWaitsForIt) {
  const std::string large = many_lines(2000000);
  start(sections());
  ASSERT_EQ(set_config(lab::value("LAB_PASSWORD"), -1, 1), 0);
  append("messages", "one\n");
  ASSERT_EQ(run_task("LogTypeTask.messages"), 0);
  wait_until("a line", [] { return archived_since_the_start(1) == 1 && sleeping() == 1; });
  append("messages", large);
  lab::run("mv " + log("messages") + " " + log("messages.1"));
  append("messages", "three\n");
  ASSERT_EQ(run_task("LogTypeTask.messages"), 0);
  wait_until("a failure", [] { return !errors().empty() && sleeping() == 1; });
  ASSERT_EQ(set_config(), 0);
  ASSERT_EQ(run_task("LogTypeTask.messages"), 0);
  expect_archived("messages", "one\n" + large + "three\n");
}

namespace {

/* Of the one audit file that was archived, first bytes are to be so, and no others. */
std::string began_to_archive(int first) {
  const std::string row =
      "section, device, inode, head_length, head_checksum, size, mtime_ns, " + std::to_string(first);
  return "INSERT INTO begun SELECT " + row + ", row_sum(" + row + ") FROM archived; DELETE FROM archived";
}

}  // namespace

TEST_F(Procedure, AFileOfWhichAPartIsArchivedGoesOnBehindItWhenItsTurnComes) {
  const std::string large = many_lines(100000);
  append("audit.log.1", large);
  start(sections());
  ASSERT_EQ(set_config(), 0);
  ASSERT_EQ(run_task("LogTypeTask.audit"), 0);
  expect_archived("audit", large);
  stop();
  change_state(began_to_archive(6));
  lab::run("rm $LAB_ARCHIVE/audit/*");
  append("audit.log.2", "older\n");
  lab::run("touch -d 2026-01-01 " + log("audit.log.2"));
  start_again();
  ASSERT_EQ(run_task("LogTypeTask.audit"), 0);
  expect_archived("audit", "older\n" + large.substr(6));
}

TEST_F(Procedure, AFileOfWhichAPartIsArchivedKeepsNoOtherWaitingWhileTheRestFails) {
  const std::string large = many_lines(2000000);
  append("audit.log.1", large);
  start(sections());
  ASSERT_EQ(set_config(), 0);
  ASSERT_EQ(run_task("LogTypeTask.audit"), 0);
  expect_archived("audit", large);
  stop();
  change_state(began_to_archive(6));
  lab::run("rm $LAB_ARCHIVE/audit/*");
  append("audit.log.2", "small\n");
  start_again();
  ASSERT_EQ(set_config(lab::value("LAB_PASSWORD"), 1, -1), 0);
  ASSERT_EQ(run_task("LogTypeTask.audit"), 0);
  expect_archived("audit", "small\n");
  EXPECT_NE(errors().find("  - System call \"limit\" failed"), std::string::npos) << errors();
  ASSERT_EQ(set_config(), 0);
  ASSERT_EQ(run_task("LogTypeTask.audit"), 0);
  expect_archived("audit", "small\n" + large.substr(6));
}

/* Each directory needs room, but none that belongs to the other compartment. */
TEST_F(Procedure, AnItemHasRoomHoweverManyDirectoriesTheOtherCompartmentHas) {
  append("audit.log.1", "one\n");
  start(sections());
  stop();
  EXPECT_EQ(change_state("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 300)"
                         " INSERT INTO section SELECT CAST('once-' || i AS BLOB), 1, 0,"
                         " row_sum(CAST('once-' || i AS BLOB), 1, 0) FROM n"),
            300);
  start_again();
  ASSERT_EQ(set_config(lab::value("LAB_PASSWORD"), 1, -1), 0);
  ASSERT_EQ(run_task("LogTypeTask.audit"), 0);
  wait_until("an item or an error", [] { return archive_of("audit") == "one\n" || !errors().empty(); });
  EXPECT_EQ(errors(), "");
}
