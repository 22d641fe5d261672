#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <string>

#include "TavrenExceptions.h"
#include "lab/lab.h"
#include "support/files.h"
#include "support/own_machine.h"
#include "tavren_host_util.h"
#include "tavren_share.h"

using testing::HasSubstr;

namespace {

/* The key of the real server, fetched with the real client. */
class KeyDownload : public LabTest {
 protected:
  /* Fetches the key of host. Returns it, or the reason for the failure. */
  static std::string fetched(const std::string& host = "localhost") {
    char key[TAVREN_HOST_KEY_SIZE] = "untouched";
    char* error = nullptr;
    const int result = tavren_download_host_key(host.c_str(), key, &error);
    if (result == 0) {
      EXPECT_EQ(error, nullptr);
      return key;
    }
    EXPECT_EQ(result, -1);
    EXPECT_STREQ(key, "untouched");
    const std::string reason = error;
    free(error);
    return reason;
  }

  /* Makes $LAB/new_key the server's only host key. */
  static void serve_new_key() {
    lab::run(
        "sed -i '/^HostKey /d' $LAB_SSHD_CONFIG && echo HostKey $LAB/new_key >>$LAB_SSHD_CONFIG && "
        "$LAB_RESTART_SSHD");
  }

  static std::string key_file() { return std::string(tavren_get_tmp_dir()) + "/downloaded_key"; }
};

class KeyDownloadOfType : public KeyDownload {};

TEST_F(KeyDownloadOfType, IsTheServersKeyUnlessThatIsTooLarge) {
  for (const char* type : {"-t ed25519", "-t ecdsa -b 256", "-t ecdsa -b 521", "-t rsa -b 2048", "-t rsa -b 4096"}) {
    const std::string key = lab::make_key("new_key", type);
    serve_new_key();
    EXPECT_EQ(fetched(), key);
  }
  const std::string key = lab::take_long_key("new_key");
  serve_new_key();
  EXPECT_EQ(fetched(), "  - Host key is too large (" + std::to_string(key.size()) + " bytes)\n");
  EXPECT_FALSE(std::filesystem::exists(key_file()));
}

TEST_F(KeyDownload, NeverLogsInAndLeavesNeitherFileNorChild) {
  for (const char* host : {"localhost", "localhost", "127.0.0.1", "LocalHost"}) {
    EXPECT_EQ(fetched(host), lab::value("LAB_HOST_KEY")) << host;
    EXPECT_FALSE(std::filesystem::exists(key_file()));
    lab::run("! pgrep -x ssh");
  }
  const std::string log = read_file(lab::value("LAB_SSHD_LOG"));
  EXPECT_THAT(log, HasSubstr("tavren_anonymous"));
  EXPECT_THAT(log, testing::Not(HasSubstr("Accepted")));
  EXPECT_THAT(log, testing::Not(HasSubstr("Failed password")));
}

TEST_F(KeyDownload, PinsTheNextLogin) {
  Settings settings = lab::settings();
  settings.host_key = fetched();
  TavrenHost& host = session(settings);
  EXPECT_NO_THROW(host.open_connection());
}

TEST_F(KeyDownload, WorksWithHashedAndPlainHostNamesAndOneThatTheSystemKnows) {
  for (const char* change :
       {"sed -i '1i HashKnownHosts yes' /etc/ssh/ssh_config", "sed -i '1i HashKnownHosts no' /etc/ssh/ssh_config",
        "echo \"localhost $LAB_HOST_KEY\" >/etc/ssh/ssh_known_hosts"}) {
    lab::change_machine(change);
    EXPECT_EQ(fetched(), lab::value("LAB_HOST_KEY")) << change;
  }
}

TEST_F(KeyDownload, WorksWithAServerThatOffersNoPasswordLogin) {
  lab::configure_sshd("PasswordAuthentication no");
  EXPECT_EQ(fetched(), lab::value("LAB_HOST_KEY"));
}

TEST_F(KeyDownload, OfARefusedPortShowsTheClientsWordsAndIsNoObstacleToTheNext) {
  lab::stop_sshd();
  EXPECT_EQ(fetched(),
            "  - Program exited unexpectedly: /usr/bin/ssh\n"
            "  - Output: \"ssh: connect to host localhost port 22: Connection refused\"\n");
  lab::run("$LAB_RESTART_SSHD");
  EXPECT_EQ(fetched(), lab::value("LAB_HOST_KEY"));
}

TEST_F(KeyDownload, OfAnUnknownNameShowsTheClientsWords) {
  need_own_machine("the network would be asked for a name");
  EXPECT_THAT(fetched("nowhere.invalid"),
              testing::StartsWith("  - Program exited unexpectedly: /usr/bin/ssh\n"
                                  "  - Output: \"ssh: Could not resolve hostname nowhere.invalid: "));
}

TEST_F(KeyDownload, OfAHostThatSaysNothingIsATimeoutThatPasses) {
  lab::serve_silence();
  const ScopedTunable timeout("ssh_connect_timeout", 1);
  char key[TAVREN_HOST_KEY_SIZE] = "untouched";
  char unset = 0;
  char* error = &unset;
  EXPECT_THROW(tavren_download_host_key("localhost", key, &error), TavrenTimeout);
  EXPECT_STREQ(key, "untouched");
  EXPECT_EQ(error, &unset);
  lab::run("! pgrep -x ssh");
}

TEST_F(KeyDownload, IsNotMisledByAFileThatAnEarlierOneLeft) {
  for (const std::string& line :
       {"localhost " + lab::value("LAB_HOST_KEY_RSA"), std::string("other.example ssh-ed25519 AAAA")}) {
    write_file(key_file(), line + "\n");
    EXPECT_EQ(fetched(), lab::value("LAB_HOST_KEY")) << line;
  }
}

}  // namespace
