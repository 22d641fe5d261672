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

/* The messages of the client API in another language. */
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

/* The RPC services' own program plays a daemon of another version. */
TEST_F(ApiCatalogue, TranslatesAFailedCall) {
  std::filesystem::create_directory(directory.path("tavren_tmp"));
  write_file(directory.path("tavren_tmp/tavrend_rpc_num"), "100000\n");
  const std::string message_of_call = translated([&] {
    setenv("TAVREN_HOME", directory.path().c_str(), 1);
    tavren_api_handle_t handle{};
    char buffer[TAVREN_API_TEXT_SIZE];
    tavren_state_t state{};
    tavren_api_open(&handle);
    tavren_api_get_state(&handle, &state);
    return std::string(tavren_api_errmsg(&handle, buffer));
  });
  EXPECT_EQ(message_of_call.find("Aufruf gescheitert: RPC: "), 0U) << message_of_call;
}

/* As many bytes as the header says, whatever the length of the words. */
class LongApiCatalogue : public CatalogueTest {
 protected:
  LongApiCatalogue()
      : CatalogueTest("msgid \"Internal log archiving API error (error code %d)\"\nmsgstr \"" + std::string(300, 'x') +
                      "%d\"\n") {}
};

TEST_F(LongApiCatalogue, IsCutTo255Bytes) {
  EXPECT_EQ(translated([] {
              tavren_api_handle_t handle{};
              char buffer[TAVREN_API_TEXT_SIZE];
              return std::string(tavren_api_errmsg(&handle, buffer));
            }),
            std::string(255, 'x'));
}

TEST_F(ApiCatalogue, TranslatesAnInternalError) {
  EXPECT_EQ(message(0), "Innerer Fehler 0");
  EXPECT_EQ(message(-7), "Innerer Fehler -7");
}

}  // namespace
