#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "support/own_machine.h"
#include "tools/ctl_fixture.h"

namespace {

using testing::StartsWith;

/* The program in the hands of somebody who reads German. It looks for catalogues where the system has them. */
class CtlInGerman : public TavrenCtl {
 protected:
  CtlInGerman() {
    need_own_machine("catalogues in the place of the system's");
    archives("512\n3\n17", "-2\n5\n6");
    has_limits("1000", "-1");
  }

  /* The same as shown_by. */
  static std::string german(const std::string& arguments) {
    const int status = exit_status("unshare --mount sh -ec 'mount -t tmpfs tmpfs /usr/share/locale; ln -s " CATALOGUES
                                   "/de /usr/share/locale/de; LANGUAGE=de LC_ALL=C.UTF-8 " TAVREN_CTL " " +
                                   arguments + "' >$LAB/out 2>$LAB/err");
    return status == 0 ? out() : std::to_string(status) + ": " + err();
  }
};

TEST_F(CtlInGerman, ShowsTheStatus) {
  EXPECT_EQ(german("status"),
            "Zustand:    Eingeschaltet\n"
            "Dienst:     schläft\n"
            "Ziel:       u@h:/d\n"
            "Verbindung: In Ordnung\n"
            "audit:      512 von 1000 MB\n"
            "            3 warten, 17 archiviert\n"
            "logs:       noch nicht gemessen, unbegrenzt\n"
            "            5 warten, 6 archiviert\n");
}

TEST_F(CtlInGerman, AlignsTheConfigurationByCharacters) {
  EXPECT_EQ(german("config"),
            "Ziel:         u@h:/d\n"
            "Passwort:     gesetzt\n"
            "Schlüssel:    SHA256:x\n"
            "Grenze audit: 1000 MB\n"
            "Grenze logs:  Unbegrenzt\n");
}

TEST_F(CtlInGerman, WritesTheSameJson) {
  const std::string english = shown_by("status --json");
  EXPECT_THAT(english, StartsWith("{"));
  EXPECT_EQ(german("status --json"), english);
}

TEST_F(CtlInGerman, RefusesWhatIsNoInterval) {
  EXPECT_THAT(german("set-interval audit 5m"), StartsWith("2: tavren_ctl: kein Abstand: 5m (eine Zahl von Sekunden"));
}

}  // namespace
