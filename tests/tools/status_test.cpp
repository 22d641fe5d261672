#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "tools/ctl_fixture.h"

namespace {

using testing::HasSubstr;
using testing::Not;

class CtlStatus : public TavrenCtl {
 protected:
  static constexpr char with_terminal[] = "script -qec '" TAVREN_CTL " status' /dev/null >$LAB/out 2>$LAB/err";

  /* Returns what the status says of the compartment "audit" when that much of that limit is used. */
  std::string audit_line(const std::string& used, const std::string& limit) {
    archives(used + "\n0\n0", "0\n0\n0");
    has_limits(limit, "-1");
    const std::string text = shown_by("status");
    const size_t begin = text.find("audit:");
    return begin == std::string::npos ? text : text.substr(begin, text.find('\n', begin) - begin);
  }
};

TEST_F(CtlStatus, ShowsWhatTheDaemonSaysOfItself) {
  archives("512\n3\n17", "-1\n5\n6");
  has_limits("1000", "-1");
  EXPECT_EQ(shown_by("status"),
            "Archiving:  Enabled\n"
            "Daemon:     sleeping\n"
            "Target:     u@h:/d\n"
            "Connection: OK\n"
            "audit:      512 of 1000 MB\n"
            "            3 waiting, 17 archived\n"
            "logs:       unlimited\n"
            "            5 waiting, 6 archived\n");
}

TEST_F(CtlStatus, HasTheTimeOfTheConnectionAndSaysWhenTheDaemonIsInASession) {
  archives("", "");
  answer("get_status", "86400\n2\n");
  answer("is_tavrend_sleeping", "0");
  EXPECT_EQ(ctl("status", "TZ=UTC"), 0) << err();
  EXPECT_THAT(out(), HasSubstr("Connection: Failed since 1970/01/02 00:00:00 (tavren_ctl errors says why)\n"));
  EXPECT_THAT(out(), HasSubstr("Daemon:     in a session\n"));
}

TEST_F(CtlStatus, SaysThatThereIsNoConfiguration) {
  answer("get_config", "\n\n\n\n\n\n-1\n-1\n");
  const std::string text = shown_by("status");
  EXPECT_THAT(text, HasSubstr("Archiving:  Disabled\n"));
  EXPECT_THAT(text, HasSubstr("Target:     not configured\n"));
}

TEST_F(CtlStatus, HasWordsForSpaceThatIsNoNumber) {
  EXPECT_EQ(audit_line("-1", "-1"), "audit:      unlimited");
  EXPECT_EQ(audit_line("-1", "7"), "audit:      not monitored, limit 7 MB");
  EXPECT_EQ(audit_line("-2", "7"), "audit:      not measured yet, limit 7 MB");
  EXPECT_EQ(audit_line("-3", "7"), "audit:      measuring failed, limit 7 MB");
  EXPECT_EQ(audit_line("5", "-1"), "audit:      5 MB used, unlimited");
}

TEST_F(CtlStatus, HasABarOnATerminalWhichMayBeFull) {
  archives("512\n0\n0", "5\n0\n0");
  has_limits("1000", "-1");
  EXPECT_EQ(exit_status(with_terminal), 0);
  EXPECT_THAT(out(), HasSubstr("audit:      512 of 1000 MB [#####-----]\r\n"));
  EXPECT_THAT(out(), HasSubstr("logs:       5 MB used, unlimited\r\n"));
  archives("2147483647\n0\n0", "0\n0\n0");
  has_limits("1000", "0");
  EXPECT_EQ(exit_status(with_terminal), 0);
  EXPECT_THAT(out(), HasSubstr("audit:      2147483647 of 1000 MB [##########]\r\n"));
  EXPECT_THAT(out(), HasSubstr("logs:       0 of 0 MB [##########]\r\n"));
}

TEST_F(CtlStatus, OfADaemonThatDiesMeanwhileIsAFailure) {
  archives("", "");
  tell("get_archive_directory", "die");
  EXPECT_EQ(ctl("status"), 2);
  EXPECT_EQ(out(), "");
  EXPECT_THAT(err(), HasSubstr("tavren_ctl: Archiving API error: RPC failure: "));
}

TEST_F(CtlStatus, IsJsonForAProgram) {
  archives("512\n3\n17", "-2\n5\n6");
  has_limits("1000", "-1");
  EXPECT_EQ(json("status --json"),
            R"({"compartments": [)"
            R"({"archived": 17, "limit_mb": 1000, "limited": true, "name": "audit", "usage": "measured", )"
            R"("used_mb": 512, "waiting": 3}, )"
            R"({"archived": 6, "limit_mb": null, "limited": false, "name": "logs", "usage": "not measured", )"
            R"("used_mb": null, "waiting": 5}], "connection": {"since": null, "status": "ok"}, "sleeping": true, )"
            R"("state": "enabled", "target": {"directory": "/d", "host": "h", "user": "u"}})"
            "\n");
}

TEST_F(CtlStatus, IsJsonBeforeAnythingIsConfigured) {
  answer("get_config", "\n\n\n\n\n\n-1\n-1\n");
  answer("get_status", "86400\n0\n-1\n0\n0\n-3\n0\n0\n");
  const std::string text = json("status --json");
  EXPECT_THAT(text, HasSubstr(R"("connection": {"since": 86400, "status": "none"}, "sleeping": false, )"
                              R"("state": "disabled", )"
                              R"("target": {"directory": null, "host": null, "user": null})"));
  EXPECT_THAT(text, HasSubstr(R"("usage": "not monitored")"));
  EXPECT_THAT(text, HasSubstr(R"("usage": "failed")"));
}

}  // namespace
