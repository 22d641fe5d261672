#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <sstream>

#include "TavrenHost.h"
#include "TavrenTunables.h"
#include "core/catalogue_fixture.h"
#include "core/error_lines.h"
#include "support/real_function.h"
#include "support/run_in_child.h"
#include "tavren.h"

using testing::HasSubstr;
using testing::StartsWith;

namespace {

bool lock_fails = false; /* set in children only */

}  // namespace

/* The headers give it the name that programs with 64-bit file offsets call. */
STANDS_BEFORE_THE_REAL_ONE int lockf(int fd, int command, off_t size) {
  if (!lock_fails) return real<int(int, int, off_t)>("lockf64")(fd, command, size);
  errno = ENOLCK;
  return -1;
}

namespace {

/* Each text of the library, and its words in another language. */
class Catalogue : public CatalogueTest {
 protected:
  Catalogue()
      : CatalogueTest({
            {"Failed to open file %s, ecode=%s", "Datei %s lässt sich nicht öffnen (%s)"},
            {"Unknown error: %d, %s, %s", "Unbekannter Fehler: %d, %s, %s"},
            {"Enabled", "An"},
            {"Disabled", "Aus"},
            {"None", "Keiner"},
            {"OK", "Gut"},
            {"Failed", "Fehlgeschlagen"},
            {"Unknown", "Unbekannt"},
            {"Unlimited", "Unbegrenzt"},
            {"Not monitored", "Nicht überwacht"},
            {"Query failed", "Abfrage fehlgeschlagen"},
            {"%d MB", "%d Megabyte"},
            {"Target specification must have the form: user@host:directory.",
             "Ein Ziel hat die Form user@host:directory."},
            {"The user name is more than %d bytes long.", "Der Benutzername hat mehr als %d Bytes."},
            {"The host name is more than %d bytes long.", "Der Rechnername hat mehr als %d Bytes."},
            {"The specified directory name is more than %d bytes long.", "Der Verzeichnisname hat mehr als %d Bytes."},
            {"The ssh username may not start with '-'.", "Der Benutzername darf nicht mit - beginnen."},
            {"The host name may not start with '-'.", "Der Rechnername darf nicht mit - beginnen."},
            {"The archive directory name may not start with '-' or '~'.",
             "Der Verzeichnisname darf weder mit - noch mit ~ beginnen."},
            {R"(Please enter 'yes', 'no', 'y', or 'n'.\n)", R"(Bitte 'yes', 'no', 'y' oder 'n'.\n)"},
            {R"(FATAL ERROR: Ran out of heap memory.\n)", R"(Kein Speicher mehr.\n)"},
            {R"(Memory allocation failed: %s, line %d\n)", R"(Kein Speicher: %s, Zeile %d\n)"},
            {"Failed to create directory %s, errno=%d", "Verzeichnis %s: %d"},
            {"Failed to open %s, errno=%d.", "Datei %s: %d"},
            {"Failed to lock %s, errno=%d.", "Sperre %s: %d"},
            {"An instance of %s is already running.", "%s läuft schon."},
            {R"(Unknown tunable: \"%s\".)", R"(Kein Regler \"%s\".)"},
            {R"(Invalid integer value: \"%s\".)", "Keine Zahl"},
            {R"(Unknown command name: \"%s\".)", R"(\"%s\" ist kein Befehl.)"},
            {"TUNABLE", "REGLER"},
            {R"(VALUE\n)", R"(WERT\n)"},
            {" (default: %s)", " (sonst: %s)"},
            {"NAME", "KURZ"},
            {R"(COMMAND\n)", R"(BEFEHL\n)"},
        }) {}
};

std::string refusal_of(std::string spec) {
  char message[TAVREN_MESSAGE_SIZE] = "";
  char *user = nullptr, *host = nullptr, *dir = nullptr;
  tavren_process_target(spec.data(), &user, &host, &dir, message);
  return message;
}

template <class Value>
std::string formatted(int (*format)(Value, char*), Value value) {
  char buffer[TAVREN_FORMAT_SIZE];
  format(value, buffer);
  return buffer + std::string("\n");
}

std::string refusal_of_tunable(const std::string& name, const std::string& value) {
  std::string error;
  TavrenTunables::instance().set_tunable(name, value, error);
  return error;
}

std::string setup_refusal(const std::string& home) {
  setenv("TAVREN_HOME", home.c_str(), 1);
  char message[TAVREN_MESSAGE_SIZE] = "";
  tavren_setup_tmp_dir("x", message);
  return message;
}

TEST_F(Catalogue, TranslatesErrorLinesButForTextsThatItDoesNotHave) {
  EXPECT_EQ(translated([] {
              return body_of(TavrenError(TAVREN_E_FILE_OPEN, "/a/b", "2")) +
                     body_of(TavrenError(static_cast<tavren_error_code_t>(18), "x", "y")) +
                     body_of(TavrenError(TAVREN_E_OUTPUT, "x", ""));
            }),
            "  - Datei /a/b lässt sich nicht öffnen (2)\n  - Unbekannter Fehler: 18, x, y\n  - Output: \"x\"\n");
}

TEST_F(Catalogue, TranslatesStatesSizesAndTimesButNotInIsoForm) {
  EXPECT_EQ(translated([] {
              std::string all;
              for (const auto state : {TAVREN_STATE_ENABLED, TAVREN_STATE_DISABLED}) {
                all += std::string(tavren_state_to_string(state)) + "\n";
              }
              for (int i = 0; i < 4; ++i) {
                const auto status = static_cast<tavren_connection_status_t>(i);
                all += std::string(tavren_connection_status_to_string(status)) + "\n";
              }
              for (const int mb : {-1, 5}) all += formatted(tavren_format_space_limit, mb);
              for (const int mb : {-1, -2, -3, 5}) all += formatted(tavren_format_space_used, mb);
              return all + formatted(tavren_format_time, time_t{0}) + formatted(tavren_format_iso_time, time_t{0});
            }),
            "An\nAus\nKeiner\nGut\nFehlgeschlagen\nUnbekannt\nUnbegrenzt\n5 Megabyte\n"
            "Nicht überwacht\nUnbekannt\nAbfrage fehlgeschlagen\n5 Megabyte\nKeiner\nNone\n");
}

TEST_F(Catalogue, DoesNotChangeTheSerialisedForm) {
  EXPECT_EQ(translated([] {
              TavrenError error(TAVREN_E_FILE_OPEN, "/a/b", "2");
              error.time = 1000;
              std::string text = serialised(error);
              std::replace(text.begin(), text.end(), '\0', '|');
              return text;
            }),
            "TavrenError|1000|1|error_line_t|5|2|/a/b|2|");
}

TEST_F(Catalogue, LeavesTheWordsThatAreParsedAlone) {
  EXPECT_EQ(translated([] {
              int mb = 0;
              const int of_ours = tavren_parse_space_limit("unlimited", &mb);
              const int of_the_translation = tavren_parse_space_limit("Unbegrenzt", &mb);
              return std::to_string(of_ours) + " " + std::to_string(of_the_translation);
            }),
            "0 -1");
}

TEST_F(Catalogue, TranslatesEveryRefusalOfATarget) {
  EXPECT_EQ(translated([] {
              const std::string u64(64, 'u'), x256(256, 'x');
              std::string all;
              for (const std::string& spec : {std::string("x"), u64 + "@h:d", "u@" + x256 + ":d", "u@h:" + x256,
                                              std::string("-u@h:d"), std::string("u@-h:d"), std::string("u@h:~d")}) {
                all += refusal_of(spec) + "\n";
              }
              return all;
            }),
            "Ein Ziel hat die Form user@host:directory.\n"
            "Der Benutzername hat mehr als 63 Bytes.\n"
            "Der Rechnername hat mehr als 255 Bytes.\n"
            "Der Verzeichnisname hat mehr als 255 Bytes.\n"
            "Der Benutzername darf nicht mit - beginnen.\n"
            "Der Rechnername darf nicht mit - beginnen.\n"
            "Der Verzeichnisname darf weder mit - noch mit ~ beginnen.\n");
}

TEST_F(Catalogue, TranslatesTheHintForAQuestion) {
  const Outcome outcome = run([] { tavren_yes_or_no("Sure? ", 0, 0); }, "maybe\nyes\n");
  EXPECT_EQ(outcome.err, "Bitte 'yes', 'no', 'y' oder 'n'.\n");
}

TEST_F(Catalogue, TranslatesTheMemoryMessages) {
  const Outcome outcome = run([] { _tavren_check_alloc("source", 12); });
  EXPECT_EQ(outcome.err, "Kein Speicher: source, Zeile 12\nKein Speicher mehr.\n");
}

TEST_F(Catalogue, TranslatesTheRefusalsOfThePrivateDirectory) {
  const std::string lock = directory.path("tavren_tmp/x.libtavren/.lock");
  const auto refusal = [this] { return setup_refusal(directory.path()); };
  EXPECT_EQ(translated([] { return setup_refusal("/no/such/home"); }),
            "Verzeichnis /no/such/home/tavren_tmp/x.libtavren: 2");
  EXPECT_EQ(translated([&] {
              lock_fails = true;
              return refusal();
            }),
            "Sperre " + lock + ": 37");
  EXPECT_EQ(translated([&] {
              refusal();
              return run_in_child([&] { fputs(refusal().c_str(), stdout); }).out;
            }),
            "error läuft schon.");
  std::filesystem::remove(lock);
  std::filesystem::create_directory(lock);
  EXPECT_EQ(translated(refusal), "Datei " + lock + ": 21");
}

TEST_F(Catalogue, TranslatesTheRefusalsOfSettings) {
  EXPECT_EQ(translated([] {
              std::string message;
              TavrenHost::set_cmd("tar", "x", message);
              return refusal_of_tunable("x", "1") + " " + refusal_of_tunable("ssh_command_timeout", "x") + " " +
                     message;
            }),
            "Kein Regler \"x\". Keine Zahl \"tar\" ist kein Befehl.");
}

TEST_F(Catalogue, TranslatesTheTablesOfTunablesAndCommands) {
  const std::string tables = translated([] {
    refusal_of_tunable("ssh_command_timeout", "30");
    const TavrenHost fills_the_table(false, false);
    std::ostringstream out;
    TavrenTunables::instance().print_tunable_table(out);
    TavrenHost::print_cmd_table(out);
    return out.str();
  });
  EXPECT_THAT(tables, StartsWith("REGLER                   WERT\n-------"));
  EXPECT_THAT(tables, HasSubstr("ssh_command_timeout      30 (sonst: 60)\n"));
  EXPECT_THAT(tables, HasSubstr("\nKURZ        BEFEHL\n----"));
}

}  // namespace
