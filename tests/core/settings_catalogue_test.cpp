#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "TavrenHost.h"
#include "TavrenTunables.h"
#include "core/catalogue_fixture.h"

namespace {

constexpr char settings_translation[] = R"po(
msgid ""
msgstr "Content-Type: text/plain; charset=UTF-8\n"
msgid "Unknown tunable: \"%s\"."
msgstr "Kein Regler \"%s\"."
msgid "Invalid integer value: \"%s\"."
msgstr "Keine Zahl"
msgid "Unknown command name: \"%s\"."
msgstr "\"%s\" ist kein Befehl."
msgid "TUNABLE"
msgstr "REGLER"
msgid "VALUE\n"
msgstr "WERT\n"
msgid " (default: %s)"
msgstr " (sonst: %s)"
msgid "NAME"
msgstr "KURZ"
msgid "COMMAND\n"
msgstr "BEFEHL\n"
)po";

/* What administrators read about tunables and remote commands. */
class SettingsCatalogue : public CatalogueTest {
 protected:
  SettingsCatalogue() : CatalogueTest(settings_translation) {}
};

std::string refusal_of_tunable(const std::string& name, const std::string& value) {
  std::string error;
  TavrenTunables::instance().set_tunable(name, value, error);
  return error;
}

TEST_F(SettingsCatalogue, TranslatesTheRefusalOfATunable) {
  EXPECT_EQ(translated([] { return refusal_of_tunable("x", "1"); }), "Kein Regler \"x\".");
}

TEST_F(SettingsCatalogue, ATranslationWithoutTheArgumentIsShownAsItIs) {
  EXPECT_EQ(translated([] { return refusal_of_tunable("ssh_command_timeout", "x"); }), "Keine Zahl");
}

TEST_F(SettingsCatalogue, TranslatesTheRefusalOfACommand) {
  EXPECT_EQ(translated([] {
              std::string message;
              TavrenHost::set_cmd("tar", "x", message);
              return message;
            }),
            "\"tar\" ist kein Befehl.");
}

TEST_F(SettingsCatalogue, TranslatesTheTableOfTunables) {
  const std::string table = translated([] {
    refusal_of_tunable("ssh_command_timeout", "30");
    std::ostringstream out;
    TavrenTunables::instance().print_tunable_table(out);
    return out.str();
  });
  EXPECT_EQ(table.rfind("REGLER                   WERT\n-------", 0), 0U) << table;
  EXPECT_NE(table.find("ssh_command_timeout      30 (sonst: 60)\n"), std::string::npos) << table;
}

TEST_F(SettingsCatalogue, TranslatesTheHeadingOfTheCommandTable) {
  const std::string table = translated([] {
    const TavrenHost host(false, false);
    std::ostringstream out;
    TavrenHost::print_cmd_table(out);
    return out.str();
  });
  EXPECT_EQ(table.rfind("KURZ        BEFEHL\n----", 0), 0U) << table;
}

}  // namespace
