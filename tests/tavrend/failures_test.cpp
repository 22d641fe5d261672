#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <initializer_list>
#include <string>

#include "support/named.h"
#include "tavrend/procedures_fixture.h"

/* What goes wrong in one place keeps nothing else from being archived, and is seen. */
class Failure : public Procedure {
 protected:
  /* Switches archiving on when those tasks are due, all at once. */
  static void begin_with(std::initializer_list<const char*> tasks, int audit_limit) {
    for (const char* task : tasks) ASSERT_EQ(run_task(task), 0);
    ASSERT_EQ(set_config(lab::value("LAB_PASSWORD"), audit_limit, -1), 0);
  }

  std::string followed_as_messages(const std::string& name) const {
    return "[messages]\nfollow = " + log(name) + "\ninterval = 1\n";
  }

  /* Archives a line of log a, and has the section follow log b, with another line, from then on. */
  void follow_another_log() {
    append("a", "one\n");
    append("b", "two\n");
    start(followed_as_messages("a"));
    ASSERT_EQ(set_config(), 0);
    expect_archived("messages", "one\n");
    write_file(config_file, followed_as_messages("b"));
    kill(daemon, SIGHUP);
  }
};

TEST_F(Failure, BehindTheLoginIsInTheStatus) {
  append("messages", "one\n");
  start(following("messages"));
  ASSERT_EQ(set_config(), 0);
  expect_archived("messages", "one\n");
  EXPECT_EQ(status().connection_status, TAVREN_CONNECTION_OK);
  const int32_t connected = status().connection_time;
  lab::run("mv $LAB_ARCHIVE $LAB_ARCHIVE.away");
  append("messages", "two\n");
  wait_until("a failure", [] { return status().connection_status == TAVREN_CONNECTION_FAILED; });
  EXPECT_GE(status().connection_time, connected);
  lab::run("mv $LAB_ARCHIVE.away $LAB_ARCHIVE");
  ASSERT_EQ(run_task("LogTypeTask.messages"), 0);
  expect_archived("messages", "one\ntwo\n");
  EXPECT_EQ(status().connection_status, TAVREN_CONNECTION_OK);
}

TEST_F(Failure, OfTheMeasurementLeavesAloneWhatHasNoLimit) {
  append("messages", "one\n");
  start(sections());
  ASSERT_EQ(set_remote_command("du", "/no/such/program"), "");
  begin_with({"SpaceTask", "LogTypeTask.messages"}, 100);
  expect_archived("messages", "one\n");
  EXPECT_NE(errors().find("/no/such/program"), std::string::npos) << errors();
  ASSERT_EQ(set_state(TAVREN_STATE_DISABLED), 0);
  ASSERT_EQ(set_tunable("ssh_du_command_timeout", "1"), "");
  ASSERT_EQ(set_remote_command("du", "sleep 30;"), "");
  append("messages", "two\n");
  begin_with({"SpaceTask", "LogTypeTask.messages"}, 100);
  expect_archived("messages", "one\ntwo\n");
}

/* What there is of it can be removed by a later run alone. */
TEST_F(Failure, OfTakingAnItemBackStopsItsSectionAlone) {
  append("audit.log.1", "one\n");
  append("messages", "two\n");
  lab::run("install -d -m 555 -o $LAB_USER $LAB_ARCHIVE/audit");
  start(sections());
  ASSERT_EQ(set_remote_command("rm", "/no/such/program"), "");
  begin_with({"LogTypeTask.audit", "LogTypeTask.messages"}, -1);
  expect_archived("messages", "two\n");
  EXPECT_NE(errors().find("/no/such/program"), std::string::npos) << errors();
  lab::run("chmod 755 $LAB_ARCHIVE/audit");
  ASSERT_EQ(set_remote_command("all", "default"), "");
  ASSERT_EQ(run_task("LogTypeTask.audit"), 0);
  expect_archived("audit", "one\n");
}

TEST_F(Failure, OfTakingAnItemBackLeavesNoLossOfItsSectionUnsaid) {
  append("audit.log.1", "one\n");
  lab::run("install -d -m 555 -o $LAB_USER $LAB_ARCHIVE/audit");
  start(sections());
  ASSERT_EQ(set_remote_command("rm", "/no/such/program"), "");
  begin_with({"LogTypeTask.audit"}, -1);
  wait_until("an item that stays", [] { return errors().find("/no/such/program") != std::string::npos; });
  append("audit.log.2", "other\n");
  ASSERT_EQ(run_task("LogTypeTask.audit"), 0);
  wait_until("a look", [] { return waiting(0) == 2; });
  lab::run("rm " + log("audit.log.2"));
  ASSERT_EQ(run_task("LogTypeTask.audit"), 0);
  wait_until("an error", [] { return errors().find("audit.log.2 (bytes 0 to 6)") != std::string::npos; });
}

/* Neither is what is beside it a part of the new log, nor is anything lost. */
TEST_F(Failure, IsNotThatAnotherLogIsFollowed) {
  append("b.1", "older\n");
  follow_another_log();
  expect_archived("messages", "one\ntwo\n");
  restart();
  append("b.1", "no rotated one\n");
  append("b", "three\n");
  expect_archived("messages", "one\ntwo\nthree\n");
  EXPECT_EQ(errors(), "");
}

/* Nothing is sent again, and to another log it says nothing. */
TEST_F(Failure, IsNotThatAnOldStateDoesNotSayWhichLogItsProgressIsOf) {
  archive_a_first_line();
  stop();
  EXPECT_EQ(change_state("UPDATE progress SET log = x'', sum = row_sum(section, x'', device, inode, head_length,"
                         " head_checksum, offset, seen, mtime_ns, finished)"),
            1);
  append("messages", "two\n");
  start_again();
  expect_archived("messages", "one\ntwo\n");
  append("b", "three\n");
  write_file(config_file, followed_as_messages("b"));
  kill(daemon, SIGHUP);
  expect_archived("messages", "one\ntwo\nthree\n");
  EXPECT_EQ(errors(), "");
}

/* It is looked at before any session, as each log is. */
TEST_F(Failure, OfTheLoginLosesNothingOfAnotherLogThatIsFollowedFromNowOn) {
  follow_another_log();
  ASSERT_EQ(set_config("wrong"), 0);
  wait_until("a failed login", [] { return errors().find("login failed") != std::string::npos; });
  lab::run("mv " + log("b") + " " + log("b.1"));
  append("b", "three\n");
  ASSERT_EQ(set_config(), 0);
  expect_archived("messages", "one\ntwo\nthree\n");
}

TEST_F(Failure, IsNotThatAnItemFitsOnlyWhenItIsCompressed) {
  const std::string large(3000000, 'x');
  append("audit.log.1", large);
  start("[audit]\nfiles = " + log("audit.log.*") + "\ncompartment = audit\ninterval = 1\ncompress = zstd\n");
  ASSERT_EQ(set_config(lab::value("LAB_PASSWORD"), 1, -1), 0);
  expect_archived("audit", large, plain_archive_of);
  EXPECT_EQ(errors(), "");
}

TEST_F(Failure, IsNotThatTheArchiveIsInAnotherDirectoryFromNowOn) {
  append("messages", "one\n");
  start(following("messages"));
  ASSERT_EQ(set_config(), 0);
  expect_archived("messages", "one\n");
  lab::run("install -d -o $LAB_USER /home/$LAB_USER/other");
  Settings settings = lab::settings();
  settings.dir = "/home/" + lab::value("LAB_USER") + "/other";
  const tavren_config_t elsewhere = {settings.record(), {-1, -1}};
  ASSERT_EQ(call([&](auto* handle) { return tavren_api_set_config(handle, &elsewhere, 1); }), 0);
  append("messages", "two\n");
  wait_until("the line", [] { return system("grep -qx two /home/$LAB_USER/other/messages/* 2>/dev/null") == 0; });
  EXPECT_EQ(errors(), "");
}

/* 64 MiB are one piece at the most. */
TEST_F(Failure, IsNotThatALogOfSeveralPiecesIsRotated) {
  const std::string large = many_lines(70 << 20);
  start("[messages]\nfollow = " + log("messages") + "\ninterval = 1h\ncompress = zstd\n");
  append("messages", "one\n");
  ASSERT_EQ(set_config(), 0);
  ASSERT_EQ(run_task("LogTypeTask.messages"), 0);
  expect_archived("messages", "one\n", plain_archive_of);
  append("messages", large);
  lab::run("mv " + log("messages") + " " + log("messages.1"));
  append("messages", "three\n");
  ASSERT_EQ(run_task("LogTypeTask.messages"), 0);
  wait_until("four items", [] { return items("messages").size() == 4 && sleeping() == 1; });
  EXPECT_TRUE(plain_archive_of("messages") == "one\n" + large + "three\n");
  EXPECT_EQ(errors(), "");
}

/* It reads its configuration, which nobody has written yet. */
TEST_F(Failure, IsNotASignalThatComesBeforeTheStart) {
  const std::string text = following("messages");
  ASSERT_EQ(mkfifo(config_file.c_str(), 0600), 0);
  launch();
  int writing = -1;
  wait_until("it is to be read", [&] { return (writing = open(config_file.c_str(), O_WRONLY | O_NONBLOCK)) != -1; });
  kill(daemon, SIGTERM);
  EXPECT_EQ(write(writing, text.data(), text.size()), static_cast<ssize_t>(text.size()));
  close(writing);
  int wait_status = -1;
  waitpid(daemon, &wait_status, 0);
  daemon = -1;
  EXPECT_TRUE(WIFEXITED(wait_status) && WEXITSTATUS(wait_status) == 0) << wait_status;
}

namespace {

/* One section in which each session breaks, and another one that stands behind it and is due with it. */
class FailureOfEachSession : public Failure {
 protected:
  void begin(int audit_limit) {
    append("a.1", "one\n");
    append("b.1", "two\n");
    ASSERT_EQ(set_tunable("failure_retry_interval", "1"), "");
    for (const char* task : {"LogTypeTask.a", "LogTypeTask.b"}) ASSERT_EQ(run_task(task), 0);
    ASSERT_EQ(set_config(lab::value("LAB_PASSWORD"), audit_limit, -1), 0);
  }

  std::string both_sections() const {
    return "[a]\nfiles = " + log("a.*") + "\ncompartment = audit\ninterval = 1d\n[b]\nfiles = " + log("b.*") +
           "\ninterval = 1d\n";
  }
};

}  // namespace

TEST_F(FailureOfEachSession, ByALastAnswerThatDoesNotComeLetsOtherSectionsHaveTheirTurn) {
  lab::run(
      "cat >$LAB_ARCHIVE/../mute-scp <<'END' && chmod 755 $LAB_ARCHIVE/../mute-scp\n"
      "#!/bin/sh\n"
      "case $* in *a/*) exec sleep 1000 ;; esac\n"
      "exec scp -q -t \"$@\"\n"
      "END\n");
  start(both_sections());
  ASSERT_EQ(set_remote_command("scp", "../mute-scp"), "");
  ASSERT_EQ(set_tunable("ssh_command_timeout", "2"), "");
  begin(-1);
  expect_archived("b", "two\n");
  EXPECT_NE(errors().find("Timeout occurred while running remote command"), std::string::npos) << errors();
}

TEST_F(FailureOfEachSession, ByAMeasurementThatTakesTooLongLetsOtherSectionsHaveTheirTurnAndKeepsItsOwnDue) {
  start(both_sections());
  ASSERT_EQ(set_remote_command("du", "sleep 1000;"), "");
  ASSERT_EQ(set_tunable("ssh_du_command_timeout", "1"), "");
  begin(100);
  expect_archived("b", "two\n");
  ASSERT_EQ(set_remote_command("du", "default"), "");
  ASSERT_EQ(set_remote_command("all", "default"), "");
  expect_archived("a", "one\n");
}

TEST_F(Failure, OfAnItemAndWhatIsLostAreInTheSystemLog) {
  append("a.1", many_lines(2000000));
  append("messages", "one\n");
  start(closed("a.*") + following("messages"));
  ASSERT_EQ(set_config(lab::value("LAB_PASSWORD"), -1, 1), 0);
  expect_archived("messages", "one\n");
  lab::run("rm " + log("messages"));
  wait_until("two errors", [] {
    return count(errors(), ".a.1 on remote host") > 0 && count(errors(), "messages (bytes 4 to 4)") > 0;
  });
  const std::string system_log = lab::system_log();
  EXPECT_NE(system_log.find(".a.1 on remote host"), std::string::npos) << system_log;
  EXPECT_NE(system_log.find("messages (bytes 4 to 4)"), std::string::npos) << system_log;
}

TEST_F(Failure, OfALoginIsInTheSystemLogAsTheLibrarySaysIt) {
  append("messages", "one\n");
  start(following("messages"));
  ASSERT_EQ(set_config("wrong"), 0);
  wait_until("a failed login", [] { return errors().find("login failed") != std::string::npos; });
  const std::string system_log = lab::system_log();
  EXPECT_EQ(count(system_log, "tavrend: failed to connect to archive host"), 1U) << system_log;
}

namespace {

/* The far side takes a part of an item's bytes, and no more. What it does then are shell words. */
class FailureOfTheSink : public Failure {
 protected:
  static void make_sink(const std::string& words) {
    lab::run(
        "cat >$LAB_ARCHIVE/../complaining-scp <<'END' && chmod 755 $LAB_ARCHIVE/../complaining-scp\n"
        "#!/bin/sh\n"
        "case $* in *.a.1*) ;; *) exec scp -q -t \"$@\" ;; esac\n"
        "printf '\\0'\n"
        "read -r header\n"
        "printf '\\0'\n" +
        words + "\nEND\n");
  }

  /* The sink takes so many bytes of it. */
  void expect_it_of_that_item_alone(const std::string& words, const std::string& large, int taken,
                                    const std::string& error) {
    append("a.1", large);
    lab::run("touch -d 2026-01-01 " + log("a.1"));
    append("a.2", "small\n");
    make_sink("head -c " + std::to_string(taken) + " >/dev/null\n" + words);
    start("[closed]\nfiles = " + log("a.*") + "\ninterval = 1d\n");
    ASSERT_EQ(set_remote_command("scp", "../complaining-scp"), "");
    ASSERT_EQ(set_tunable("ssh_command_timeout", "8"), "");
    begin_with({"LogTypeTask.closed"}, -1);
    expect_archived("closed", "small\n");
    EXPECT_EQ(count(errors(), ".a.1'\" " + error), 1U) << errors();
    EXPECT_EQ(status().connection_status, TAVREN_CONNECTION_OK);
    ASSERT_EQ(set_remote_command("all", "default"), "");
    ASSERT_EQ(run_task("LogTypeTask.closed"), 0);
    expect_archived("closed", "small\n" + large);
  }
};

class FailureInTheMiddleOfTheData : public FailureOfTheSink, public testing::WithParamInterface<Named<const char*>> {};

constexpr Named<const char*> complaints[] = {
    {"WithAWarning", "printf '\\1no more\\n'; exec cat >/dev/null"},
    {"WithAWarningAfterWhichItTakesNothing", "sleep 1; printf '\\1no more\\n'; exec sleep 1000"},
    {"WithAnErrorAndItsEnd", "printf '\\2no more\\n'"},
    {"WithItsEndAlone", "exit 1"}};

}  // namespace

/*
 * Nothing of it stays there, and the session is not what has failed: its next try would be minutes away. Where the sink
 * has ended, the far shell takes the rest for commands, and may complain of so many that neither side goes on.
 */
TEST_P(FailureInTheMiddleOfTheData, IsOfThatItemAloneAndTheNextOneGoesOnInTheSameRun) {
  expect_it_of_that_item_alone(GetParam().value, many_lines(20000000), 100000, "produced incorrect output");
}

/* The far shell ends at the first of the lines then, and the client with it. All of them are on their way before. */
TEST_F(FailureOfTheSink, InTheMiddleOfWhatNoShellCanReadIsOfThatItemAlone) {
  std::string text;
  for (int i = 0; i < 400; ++i) text += "type=USER msg=audit(1790000000.123:4): x\n";
  expect_it_of_that_item_alone("sleep 0.5; exit 1", text, 1000, "failed with error code");
}

INSTANTIATE_TEST_SUITE_P(, FailureInTheMiddleOfTheData, testing::ValuesIn(complaints), by_name);

namespace {

/* The connection of the first session alone ends, at a moment that is said in the sink's words. */
class FailureOfTheConnection : public Failure, public testing::WithParamInterface<Named<const char*>> {
 protected:
  static void make_sink(const std::string& words) {
    lab::run(
        "cat >$LAB_ARCHIVE/../cut-scp <<'END' && chmod 755 $LAB_ARCHIVE/../cut-scp\n"
        "#!/bin/sh\n"
        "case $* in *.a.1*) ;; *) exec scp -q -t \"$@\" ;; esac\n"
        "[ ! -e ../cut ] || exec scp -q -t \"$@\"\n"
        "touch ../cut\n"
        "printf '\\0'\n"
        "read -r header\n"
        "printf '\\0'\n" +
        words +
        "\n"
        "pkill -KILL -u $(id -u) sshd\n"
        "END\n");
  }
};

constexpr Named<const char*> cuts[] = {{"InTheMiddleOfTheData", "head -c 100000 >/dev/null"},
                                       {"BeforeTheLastAnswer", "head -c 3000001 >/dev/null"}};

}  // namespace

/* Its client's last words are no answer of the sink's. */
TEST_P(FailureOfTheConnection, IsNotTheItemsAndIsFollowedByAnotherSessionSoon) {
  const std::string text = std::string(2999999, 'x') + "\n";
  append("a.1", text);
  make_sink(GetParam().value);
  start("[closed]\nfiles = " + log("a.*") + "\ninterval = 1d\n");
  ASSERT_EQ(set_remote_command("scp", "../cut-scp"), "");
  ASSERT_EQ(set_tunable("failure_retry_interval", "1"), "");
  begin_with({"LogTypeTask.closed"}, -1);
  expect_archived("closed", text);
  EXPECT_THAT(errors(), testing::ContainsRegex("closed by|reset by|Broken pipe"));
}

INSTANTIATE_TEST_SUITE_P(, FailureOfTheConnection, testing::ValuesIn(cuts), by_name);
