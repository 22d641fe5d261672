#include <errno.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>

#include "core/catalogue_fixture.h"
#include "core/error_lines.h"
#include "support/real_function.h"
#include "support/run_in_child.h"
#include "tavren.h"

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

/* The file in which a translator works: each text of the library, and its words in another language. */
constexpr char translation[] = R"po(
msgid ""
msgstr "Content-Type: text/plain; charset=UTF-8\n"
msgid "Failed to open file %s, ecode=%s"
msgstr "Datei %s lässt sich nicht öffnen (%s)"
msgid "Unknown error: %d, %s, %s"
msgstr "Unbekannter Fehler: %d, %s, %s"
msgid "Enabled"
msgstr "An"
msgid "Disabled"
msgstr "Aus"
msgid "None"
msgstr "Keiner"
msgid "OK"
msgstr "Gut"
msgid "Failed"
msgstr "Fehlgeschlagen"
msgid "Unknown"
msgstr "Unbekannt"
msgid "Unlimited"
msgstr "Unbegrenzt"
msgid "Not monitored"
msgstr "Nicht überwacht"
msgid "Query failed"
msgstr "Abfrage fehlgeschlagen"
msgid "%d MB"
msgstr "%d Megabyte"
msgid "Target specification must have the form: user@host:directory."
msgstr "Ein Ziel hat die Form user@host:directory."
msgid "The user name is more than %d bytes long."
msgstr "Der Benutzername hat mehr als %d Bytes."
msgid "The host name is more than %d bytes long."
msgstr "Der Rechnername hat mehr als %d Bytes."
msgid "The specified directory name is more than %d bytes long."
msgstr "Der Verzeichnisname hat mehr als %d Bytes."
msgid "The ssh username may not start with '-'."
msgstr "Der Benutzername darf nicht mit - beginnen."
msgid "The host name may not start with '-'."
msgstr "Der Rechnername darf nicht mit - beginnen."
msgid "The archive directory name may not start with '-' or '~'."
msgstr "Der Verzeichnisname darf weder mit - noch mit ~ beginnen."
msgid "Please enter 'yes', 'no', 'y', or 'n'.\n"
msgstr "Bitte 'yes', 'no', 'y' oder 'n'.\n"
msgid "FATAL ERROR: Ran out of heap memory.\n"
msgstr "Kein Speicher mehr.\n"
msgid "Memory allocation failed: %s, line %d\n"
msgstr "Kein Speicher: %s, Zeile %d\n"
msgid "Failed to create directory %s, errno=%d"
msgstr "Verzeichnis %s: %d"
msgid "Failed to open %s, errno=%d."
msgstr "Datei %s: %d"
msgid "Failed to lock %s, errno=%d."
msgstr "Sperre %s: %d"
msgid "An instance of %s is already running."
msgstr "%s läuft schon."
)po";

class Catalogue : public CatalogueTest {
 protected:
  Catalogue() : CatalogueTest(translation) {}
};

std::string refusal_of(std::string spec) {
  char message[TAVREN_MESSAGE_SIZE] = "";
  char *user = nullptr, *host = nullptr, *dir = nullptr;
  tavren_process_target(spec.data(), &user, &host, &dir, message);
  return message;
}

std::string formatted(int (*format)(int, char*), int value) {
  char buffer[TAVREN_FORMAT_SIZE];
  format(value, buffer);
  return buffer;
}

std::string setup_refusal(const std::string& home) {
  setenv("TAVREN_HOME", home.c_str(), 1);
  char message[TAVREN_MESSAGE_SIZE] = "";
  tavren_setup_tmp_dir("x", message);
  return message;
}

TEST_F(Catalogue, TranslatesErrorLines) {
  EXPECT_EQ(translated([] { return body_of(TavrenError(TAVREN_E_FILE_OPEN, "/a/b", "2")); }),
            "  - Datei /a/b lässt sich nicht öffnen (2)\n");
  EXPECT_EQ(translated([] { return body_of(TavrenError(static_cast<tavren_error_code_t>(18), "x", "y")); }),
            "  - Unbekannter Fehler: 18, x, y\n");
}

TEST_F(Catalogue, LeavesATextThatItDoesNotHave) {
  EXPECT_EQ(translated([] { return body_of(TavrenError(TAVREN_E_OUTPUT, "x", "")); }), "  - Output: \"x\"\n");
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

TEST_F(Catalogue, TranslatesStates) {
  EXPECT_EQ(translated([] { return tavren_state_to_string(TAVREN_STATE_ENABLED); }), "An");
  EXPECT_EQ(translated([] { return tavren_state_to_string(TAVREN_STATE_DISABLED); }), "Aus");
}

TEST_F(Catalogue, TranslatesConnectionStatuses) {
  EXPECT_EQ(translated([] {
              std::string all;
              for (int i = 0; i < 4; ++i) {
                all += tavren_connection_status_to_string(static_cast<tavren_connection_status_t>(i));
                all += ' ';
              }
              return all;
            }),
            "Keiner Gut Fehlgeschlagen Unbekannt ");
}

TEST_F(Catalogue, TranslatesSizes) {
  EXPECT_EQ(translated([] {
              return formatted(tavren_format_space_limit, -1) + ", " + formatted(tavren_format_space_limit, 5) + ", " +
                     formatted(tavren_format_space_used, -1) + ", " + formatted(tavren_format_space_used, -2) + ", " +
                     formatted(tavren_format_space_used, -3) + ", " + formatted(tavren_format_space_used, 5);
            }),
            "Unbegrenzt, 5 Megabyte, Nicht überwacht, Unbekannt, Abfrage fehlgeschlagen, 5 Megabyte");
}

TEST_F(Catalogue, TranslatesTheTimeOfNothingButNotInIsoForm) {
  EXPECT_EQ(translated([] {
              char local[TAVREN_FORMAT_SIZE], utc[TAVREN_FORMAT_SIZE];
              tavren_format_time(0, local);
              tavren_format_iso_time(0, utc);
              return std::string(local) + " " + utc;
            }),
            "Keiner None");
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
  EXPECT_EQ(translated([] { return setup_refusal("/no/such/home"); }),
            "Verzeichnis /no/such/home/tavren_tmp/x.libtavren: 2");
  const std::string lock = directory.path("tavren_tmp/x.libtavren/.lock");
  std::filesystem::create_directories(lock);
  EXPECT_EQ(translated([&] { return setup_refusal(directory.path()); }), "Datei " + lock + ": 21");
}

TEST_F(Catalogue, TranslatesTheFailureOfALock) {
  EXPECT_EQ(translated([&] {
              lock_fails = true;
              return setup_refusal(directory.path());
            }),
            "Sperre " + directory.path("tavren_tmp/x.libtavren/.lock") + ": 37");
}

TEST_F(Catalogue, TranslatesTheWordOfAnotherInstance) {
  EXPECT_EQ(translated([&] {
              setup_refusal(directory.path());
              return run_in_child([&] { fputs(setup_refusal(directory.path()).c_str(), stdout); }).out;
            }),
            "error läuft schon.");
}

}  // namespace
