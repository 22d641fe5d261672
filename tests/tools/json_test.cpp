#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <sstream>
#include <string>
#include <vector>

#include "TavrenError.h"
#include "tools/ctl_fixture.h"

namespace {

using testing::HasSubstr;
using testing::Not;

class CtlJson : public TavrenCtl {
 protected:
  /* Has the daemon store those errors. */
  void stores(const std::vector<TavrenError>& errors) {
    std::ostringstream stored;
    stored << errors.size() << '\0';
    for (const TavrenError& error : errors) error.serialize(stored);
    answer("get_errors", stored.str());
  }

  static TavrenError error_at(time_t time, const std::string& file) {
    TavrenError error(TAVREN_E_FILE_OPEN, file, "2");
    error.time = time;
    return error;
  }

  /* Returns a file's name as the JSON of an error about it has it. */
  std::string written(const std::string& file) {
    stores({error_at(86400, file)});
    const std::string text = json("errors --json");
    const size_t begin = text.find('/');
    return text.substr(begin, text.find(", ecode", begin) - begin);
  }
};

TEST_F(CtlJson, HasTheConfigurationWithoutThePassword) {
  has_limits("1000", "-1");
  EXPECT_EQ(json("config --json"),
            R"({"fingerprint": "SHA256:x", "host_key": "ssh-x AA", "limits_mb": {"audit": 1000, "logs": null}, )"
            R"("password_set": true, "target": {"directory": "/d", "host": "h", "user": "u"}})"
            "\n");
}

TEST_F(CtlJson, SaysWhatIsNotConfigured) {
  answer("get_config", "\n\n\n\n\n\n-1\n0\n");
  EXPECT_EQ(json("config --json"),
            R"({"fingerprint": null, "host_key": null, "limits_mb": {"audit": null, "logs": 0}, )"
            R"("password_set": false, "target": {"directory": null, "host": null, "user": null}})"
            "\n");
}

TEST_F(CtlJson, HasEachErrorWithItsTimeAndMessages) {
  stores({});
  EXPECT_EQ(json("errors --json"), "[]\n");
  TavrenError first = error_at(86400, "/a");
  first.add_first_line(TAVREN_E_SSH_START, "h", "");
  stores({first, error_at(0, "/b")});
  setenv("TZ", "UTC", 1);
  EXPECT_EQ(json("errors --json"),
            R"([{"messages": ["Failed to start secure shell session on h", )"
            R"("Failed to open file /a, ecode=2"], "time": "1970/01/02 00:00:00"}, )"
            R"({"messages": ["Failed to open file /b, ecode=2"], "time": "1970/01/01 00:00:00"}])"
            "\n");
  unsetenv("TZ");
}

TEST_F(CtlJson, EscapesWhatStringsMayNotHold) {
  EXPECT_EQ(written("/q\"b\\t\tn\ne\x1b d\x7f\x01"), R"(/q\"b\\t\tn\ne\u001b d\u007f\u0001)");
}

TEST_F(CtlJson, LeavesCharactersBeyondAsciiAsTheyAre) {
  EXPECT_EQ(written("/\xc3\xa4\xe2\x82\xac\xf0\x9f\x98\x80"), R"(/\u00e4\u20ac\ud83d\ude00)");
  EXPECT_THAT(out(), Not(HasSubstr("ufffd")));
}

TEST_F(CtlJson, ReplacesBytesThatAreNoUtf8) {
  std::string name = "/", expected = "/";
  for (const std::string bytes : {"\x80", "\xff", "\xc0\xaf", "\xc1\x81", "\xe0\x80\x80", "\xed\xa0\x80",
                                  "\xf0\x80\x80\x80", "\xf4\x90\x80\x80", "\xf5\x80\x80\x80", "\xe2\x82", "\xc3"}) {
    name += bytes + "z";
    for (size_t i = 0; i < bytes.size(); ++i) expected += "\\ufffd";
    expected += "z";
  }
  EXPECT_EQ(written(name), expected);
}

/* The last second has no date where there are more than four billion of them. */
TEST_F(CtlJson, HasTheMessagesOfAnErrorWhoseTimeNobodyKnows) {
  setenv("TZ", "UTC0", 1);
  stores({error_at(std::numeric_limits<time_t>::max(), "/a")});
  const std::string time = sizeof(time_t) > 4 ? "null" : "\"2038/01/19 03:14:07\"";
  EXPECT_EQ(json("errors --json"), R"([{"messages": ["Failed to open file /a, ecode=2"], "time": )" + time + "}]\n");
}

TEST_F(CtlJson, IsForCommandsThatHaveIt) {
  for (const char* arguments :
       {"state --json", "watch --json", "status --json x", "run --json x", "status x", "errors -json"}) {
    EXPECT_EQ(ctl(arguments), 2) << arguments;
    EXPECT_NE(err().find(": wrong number of arguments ("), std::string::npos) << arguments;
  }
}

}  // namespace
