#include <gtest/gtest.h>

#include <string>

#include "core/catalogue_fixture.h"
#include "tavren_api.h"

namespace {

constexpr char translation[] = R"po(
msgid ""
msgstr "Content-Type: text/plain; charset=UTF-8\n"
msgid "Archiving API error: RPC failure"
msgstr "Aufruf gescheitert"
msgid "Cannot connect to archiving daemon"
msgstr "Kein Dienst"
msgid "Internal log archiving API error (error code %d)"
msgstr "Innerer Fehler %d"
)po";

/* The messages of the client API in another language. There is a connection, but nobody has made a call on it. */
class ApiCatalogue : public CatalogueTest {
 protected:
  ApiCatalogue() : CatalogueTest(translation) {}

  std::string message(int error) {
    return translated([&] {
      tavren_api_handle_t handle{};
      char buffer[TAVREN_API_TEXT_SIZE];
      tavren_api_open(&handle);
      handle.error = error;
      return std::string(tavren_api_errmsg(&handle, buffer));
    });
  }
};

TEST_F(ApiCatalogue, TranslatesAMissingConnection) {
  EXPECT_EQ(message(TAVREN_API_E_CONNECT).find("Kein Dienst: RPC: "), 0U);
}

TEST_F(ApiCatalogue, TranslatesAnInternalError) {
  EXPECT_EQ(message(0), "Innerer Fehler 0");
  EXPECT_EQ(message(-7), "Innerer Fehler -7");
}

}  // namespace
