#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <string>
#include <utility>

#include "core/catalogue_fixture.h"
#include "lab/lab.h"
#include "tavren_host_util.h"
#include "tavren_share.h"

namespace {

constexpr char translation[] = R"po(
msgid ""
msgstr "Content-Type: text/plain; charset=UTF-8\n"
msgid "Cannot create file '%s': errno=%d."
msgstr "Datei '%s': %d"
msgid "Internal error: cannot generate host key fingerprint."
msgstr "Innerer Fehler"
msgid "The specified public host key is invalid or incomplete."
msgstr "Kein Schlüssel"
msgid "Failed to open %s (errno=%d)."
msgstr "Nicht zu öffnen: %s"
)po";

class FingerprintCatalogue : public CatalogueTest {
 protected:
  FingerprintCatalogue() : CatalogueTest(translation) {
    std::filesystem::create_directory(directory.path("tavren_tmp"));
  }

  /* Returns what the failure to fingerprint a text that is no key shows. */
  std::string failure() {
    return translated([&] {
      setenv("TAVREN_HOME", directory.path().c_str(), 1);
      char message[TAVREN_MESSAGE_SIZE] = "";
      char fingerprint[TAVREN_FINGERPRINT_SIZE];
      tavren_setup_tmp_dir("x", message);
      tavren_host_key_fingerprint("key", fingerprint, message);
      return std::string(message);
    });
  }

  const std::string key_file = directory.path("tavren_tmp/x.libtavren/host_key");
};

TEST_F(FingerprintCatalogue, TranslatesEachFailure) {
  EXPECT_EQ(failure(), "Kein Schlüssel");
  for (const auto& [taken, text] : {std::pair{key_file, "Datei '" + key_file + "': 17"},
                                    {key_file + "_fingerprint", std::string("Innerer Fehler")}}) {
    std::filesystem::create_directory(taken);
    EXPECT_EQ(failure(), text);
    std::filesystem::remove(taken);
  }
  /* A key generator that is content and says nothing. */
  lab::change_machine("mount --bind /bin/true /usr/bin/ssh-keygen");
  EXPECT_EQ(failure(), "Nicht zu öffnen: " + key_file + "_fingerprint");
}

}  // namespace
