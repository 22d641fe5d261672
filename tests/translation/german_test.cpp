#include <gtest/gtest.h>
#include <libintl.h>
#include <locale.h>
#include <stdio.h>
#include <stdlib.h>

#include <functional>
#include <string>

#include "core/error_lines.h"
#include "support/run_in_child.h"
#include "tavren.h"

namespace {

/* Returns what show hands out to a user who reads German and whose catalogues are those of this build. */
std::string in_german(const std::function<std::string()>& show) {
  return run_in_child([&] {
           setenv("LANGUAGE", "de", 1);
           if (setlocale(LC_ALL, "C.UTF-8") == nullptr) fputs("no such locale\n", stdout);
           bindtextdomain("tavren", CATALOGUES);
           fputs(show().c_str(), stdout);
         })
      .out;
}

std::string refusal_of(std::string spec) {
  char message[TAVREN_MESSAGE_SIZE] = "";
  char *user = nullptr, *host = nullptr, *directory = nullptr;
  tavren_process_target(spec.data(), &user, &host, &directory, message);
  return message;
}

TEST(GermanTexts, AreWhatAGermanReads) {
  EXPECT_EQ(in_german([] { return refusal_of("nobody"); }), "Ein Ziel hat die Form Benutzer@Rechner:Verzeichnis.");
  EXPECT_EQ(in_german([] { return body_of(TavrenError(TAVREN_E_FILE_OPEN, "/a/b", "2")); }),
            "  - Die Datei /a/b konnte nicht geöffnet werden (Fehler 2)\n");
  EXPECT_EQ(in_german([] { return std::string(tavren_state_to_string(TAVREN_STATE_ENABLED)); }), "Eingeschaltet");
}

TEST(GermanTexts, FitIntoAMessage) {
  const std::string message =
      in_german([] { return refusal_of(std::string(TAVREN_MAX_USER_LENGTH + 1, 'u') + "@h:/d"); });
  EXPECT_EQ(message, "Der Benutzername ist länger als 63 Bytes.");
  EXPECT_EQ(in_german([] { return refusal_of("u@h:~d"); }),
            "Der Name des Archivverzeichnisses darf nicht mit „-“ oder „~“ beginnen.");
}

TEST(GermanTexts, AreThereForEveryErrorCode) {
  int codes = 0;
  for (int code = 0; code < 100; ++code) {
    const auto error = static_cast<tavren_error_code_t>(code);
    const char* format = TavrenError::get_format_string(error);
    if (format == nullptr) continue;
    ++codes;
    EXPECT_NE(in_german([&] { return std::string(TavrenError::get_format_string(error)); }), format);
  }
  EXPECT_GT(codes, 20);
}

}  // namespace
