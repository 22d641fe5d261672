#include <gtest/gtest.h>
#include <rpc/rpc.h>

#include <string>

#include "core/catalogue_fixture.h"
#include "tavren_api.h"

namespace {

/* The messages of the client API in another language. */
class ApiCatalogue : public CatalogueTest {
 protected:
  ApiCatalogue()
      : CatalogueTest({{"Archiving API error: RPC failure", "Aufruf gescheitert"},
                       {"Cannot connect to archiving daemon", "Kein Dienst"},
                       {"Internal log archiving API error (error code %d)", "Innerer Fehler %d"}}) {}

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

TEST_F(ApiCatalogue, TranslatesAMissingConnectionAndAnInternalError) {
  EXPECT_EQ(message(TAVREN_API_E_CONNECT).find("Kein Dienst: RPC: "), 0U);
  EXPECT_EQ(message(0), "Innerer Fehler 0");
  EXPECT_EQ(message(-7), "Innerer Fehler -7");
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
      : CatalogueTest({{"Internal log archiving API error (error code %d)", std::string(300, 'x') + "%d"},
                       {"Cannot connect to archiving daemon", std::string(220, 'x') + "%n"},
                       {"Archiving API error: RPC failure", std::string(300, 'x')}}) {}

  /* Returns the length of the message of that error. */
  size_t length_of(int error) {
    const std::string text = translated([error] {
      CLIENT::clnt_ops operations{};
      operations.cl_geterr = [](CLIENT*, rpc_err* reason) { reason->re_status = RPC_TIMEDOUT; };
      CLIENT client{};
      client.cl_ops = &operations;
      tavren_api_handle_t handle{&client, error};
      char buffer[TAVREN_API_TEXT_SIZE];
      return std::string(tavren_api_errmsg(&handle, buffer));
    });
    EXPECT_EQ(text.substr(0, 200), std::string(200, 'x'));
    return text.size();
  }
};

/* The RPC library cuts its own messages a little earlier, and adds its reason. What looks like a format is none. */
TEST_F(LongApiCatalogue, IsCutTo255Bytes) {
  EXPECT_EQ(length_of(0), 255U);
  EXPECT_GT(length_of(TAVREN_API_E_CONNECT), 222U);
  EXPECT_GT(length_of(TAVREN_API_E_RPC), 222U);
}

}  // namespace
