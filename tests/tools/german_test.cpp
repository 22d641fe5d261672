#include <gtest/gtest.h>

#include <string>

#include "support/own_machine.h"
#include "tools/ctl_fixture.h"

namespace {

/* The program in the hands of somebody who reads German. It looks for catalogues where the system has them. */
class CtlInGerman : public TavrenCtl {
 protected:
  CtlInGerman() {
    need_own_machine("catalogues in the place of the system's");
    archives("512\n3\n17", "-2\n5\n6");
    has_limits("1000", "-1");
  }

  static int german_ctl(const std::string& arguments) {
    return exit_status("unshare --mount sh -ec 'mount -t tmpfs tmpfs /usr/share/locale; ln -s " CATALOGUES
                       "/de /usr/share/locale/de; LANGUAGE=de LC_ALL=C.UTF-8 " TAVREN_CTL " " +
                       arguments + "' >$LAB/out 2>$LAB/err");
  }
};

TEST_F(CtlInGerman, ShowsTheStatus) {
  EXPECT_EQ(german_ctl("status"), 0) << err();
  EXPECT_EQ(out(),
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
  EXPECT_EQ(german_ctl("config"), 0) << err();
  EXPECT_EQ(out(),
            "Ziel:         u@h:/d\n"
            "Passwort:     gesetzt\n"
            "Schlüssel:    SHA256:x\n"
            "Grenze audit: 1000 MB\n"
            "Grenze logs:  Unbegrenzt\n");
}

TEST_F(CtlInGerman, WritesTheSameJson) {
  EXPECT_EQ(german_ctl("status --json"), 0) << err();
  const std::string german = out();
  EXPECT_EQ(ctl("status --json"), 0) << err();
  EXPECT_EQ(german, out());
}

TEST_F(CtlInGerman, RefusesWhatIsNoInterval) {
  EXPECT_EQ(german_ctl("set-interval audit 5m"), 2);
  EXPECT_EQ(err().find("tavren_ctl: kein Abstand: 5m (eine Zahl von Sekunden"), 0U) << err();
}

}  // namespace
