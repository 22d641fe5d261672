#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string.h>

#include <stdexcept>
#include <string>
#include <utility>

#include "TavrenKeyDownloader.h"
#include "lab/lab.h"
#include "support/files.h"
#include "tavren_share.h"

using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

/*
 * What the machine's own configuration of the client makes of a session: the table in docs/login-dialogue.md. Rows
 * whose outcome is not the same every time, or that would change devices, are not here.
 */
namespace {

#define STARTING "4\n  - Failed to start secure shell session on localhost\n"
#define ENDED "  - Program exited unexpectedly: /usr/bin/ssh\n"
#define SHOWN(line) "  - Output: \"" line "\"\n"
#define PROMPT SHOWN("\rarchiver@localhost's password: ")
#define UNKNOWN_KEY SHOWN("Host key verification failed.")
#define NO_KEY SHOWN("No ED25519 host key is known for localhost and you have requested strict checking.")
#define DENIED SHOWN("archiver@localhost: Permission denied (publickey,password).")

constexpr char connect_timeout[] = STARTING "  - Timeout occurred while connecting to localhost\n";
constexpr char shell_timeout[] = STARTING "  - Timeout occurred while waiting for shell to start on localhost\n" PROMPT;

enum class How { with_key, without_key, wrong_key, wrong_password };

struct Row {
  const char* configuration;
  How how;
  const char* outcome;
};

class ClientConfiguration : public LabTest {
 protected:
  ClientConfiguration() : connect("ssh_connect_timeout", 2), start("ssh_shell_start_timeout", 2) {}

  /* Puts lines in the place of the machine's configuration, which the client reads at its start. */
  static void configure(const std::string& lines) { write_file("/etc/ssh/ssh_config", "Host *\n" + lines + "\n"); }

  static Settings settings_for(How how) {
    Settings settings = lab::settings();
    if (how != How::without_key) settings.host_key = lab::value("LAB_HOST_KEY");
    if (how == How::wrong_key) settings.host_key = lab::make_key("other_key", "-t ed25519");
    if (how == How::wrong_password) settings.password = "wrong";
    return settings;
  }

  static std::string fetched_key(const std::string& host) {
    std::string key;
    TavrenKeyDownloader(host).download_host_key(key);
    return key;
  }

 private:
  const ScopedTunable connect;
  const ScopedTunable start;
};

constexpr Row rows[] = {
    {"HostName 127.0.0.1", How::without_key, connect_timeout},
    {"HostName 127.0.0.1", How::with_key, key_mismatch},
    {"HostKeyAlias other", How::without_key, connect_timeout},
    {"HostKeyAlias other", How::with_key, key_mismatch},
    {"BatchMode yes", How::without_key, STARTING ENDED UNKNOWN_KEY},
    {"BatchMode yes", How::with_key, STARTING ENDED DENIED},
    {"PasswordAuthentication no", How::with_key, STARTING ENDED DENIED},
    {"NumberOfPasswordPrompts 1", How::wrong_password, STARTING ENDED PROMPT DENIED},
    {"StrictHostKeyChecking yes", How::without_key, STARTING ENDED NO_KEY UNKNOWN_KEY},
    {"StrictHostKeyChecking yes", How::with_key, no_error},
    {"RemoteCommand uptime", How::with_key, STARTING ENDED SHOWN("Cannot execute command-line and remote command.")},
    {"SessionType none", How::with_key, shell_timeout},
    {"SessionType subsystem", How::with_key, STARTING ENDED PROMPT SHOWN("subsystem request failed on channel 0")},
    {"StdinNull yes", How::with_key, "13\n" ENDED PROMPT SHOWN("SHELL STARTED.")},
    {"LogLevel QUIET", How::wrong_password, shell_timeout},
    {"LogLevel QUIET", How::wrong_key, STARTING ENDED},
    {"LogLevel FATAL", How::wrong_password, shell_timeout},
    {"LogLevel FATAL", How::wrong_key, key_mismatch},
    {"LogLevel ERROR", How::wrong_password, login_denied},
};

class ClientConfigurationOf : public ClientConfiguration {};

TEST_F(ClientConfigurationOf, ALoginHasItsOneOutcome) {
  for (const auto& [configuration, how, outcome] : rows) {
    configure(configuration);
    EXPECT_EQ(outcome_of_login(settings_for(how)), outcome) << configuration;
  }
}

TEST_F(ClientConfigurationOf, AFetchHasItsOneOutcome) {
  for (const auto& [configuration, outcome] :
       {std::pair{"BatchMode yes", "13\n" ENDED UNKNOWN_KEY},
        {"StrictHostKeyChecking yes", "13\n" ENDED NO_KEY UNKNOWN_KEY},
        {"ForkAfterAuthentication yes",
         "13\n" ENDED SHOWN("Cannot fork into background without a command to execute.")}}) {
    configure(configuration);
    EXPECT_EQ(error_of([] { fetched_key(lab::value("LAB_HOST")); }), outcome) << configuration;
  }
}

TEST_F(ClientConfiguration, ThatIsVerboseMakesAFailureOfAWholeStream) {
  configure("LogLevel VERBOSE");
  const std::string text = "All of this arrives.\n";
  TavrenHost& host = connected_session();
  host.start_send_stream("stream");
  host.continue_send_stream(text.data(), static_cast<unsigned int>(text.size()));
  EXPECT_THAT(error_of([&] { host.end_send_stream(); }),
              AllOf(StartsWith("10\n"), HasSubstr("  - Command output: \"Transferred: sent ")));
  EXPECT_EQ(read_file(lab::archived("stream")), text);
}

TEST_F(ClientConfiguration, ThatSharesConnectionsKeepsASecondSessionFromOpening) {
  configure("ControlMaster auto\nControlPath " + lab::value("LAB") + "/shared");
  EXPECT_EQ(outcome_of_login(settings_for(How::with_key)), no_error);
  EXPECT_EQ(outcome_of_login(settings_for(How::with_key)), connect_timeout);
}

/* Up to 8.4 it does so by itself, and says that it has added the address to the keys that it knows. */
TEST_F(ClientConfiguration, ThatChecksAddressesIsNoReasonToRefuseTheRightKey) {
  lab::run("ip address add 10.9.8.7/32 dev lo && echo '10.9.8.7 archive.example' >>/etc/hosts");
  lab::configure_sshd("ListenAddress 10.9.8.7");
  configure("CheckHostIP yes");
  Settings settings = settings_for(How::with_key);
  settings.host = "archive.example";
  EXPECT_EQ(outcome_of_login(settings), no_error);
}

/*
 * Where the client accepts any key, a host that it does not find in its known-hosts file would get the password. The
 * file's line is found under all names that the client may look for, and the file itself wherever it lies.
 */
struct Unasked {
  const char* checking;
  const char* host;
  const char* directory;
};

constexpr Unasked unasked[] = {
    {"accept-new", "localhost", "lab"},
    {"no", "localhost", "lab"},
    {"accept-new", "127.1", "lab"},
    {"no", "127.1", "lab"},
    {"accept-new", "localhost", "a lab"},
    {"no", "localhost", "a lab"},
    {"accept-new", "localhost", "the \"lab's\" \\ own"},
    {"accept-new\nPort 2222", "localhost", "lab"},
    {"no\nPort 2222", "127.1", "lab"},
    {"accept-new\nPort 2222\nLogLevel ERROR", "localhost", "lab"},
    {"no\nPort 2222\nLogLevel ERROR", "127.1", "lab"},
    {"no", "localhost", "the \"lab's\" \\ own"},
};

class ClientThatIsNotAsked : public ClientConfiguration {
 protected:
  static void prepare(const Unasked& row) {
    configure("StrictHostKeyChecking " + std::string(row.checking));
    tavren_cleanup_tmp_dir();
    char message[TAVREN_MESSAGE_SIZE];
    if (tavren_setup_tmp_dir(row.directory, message) != 0) throw std::runtime_error(message);
    write_file(lab::value("LAB_SSHD_LOG"), "");
  }

  /* What comes of a login. Both messages name the host as it was configured; here it is localhost. */
  std::string outcome(How how, const std::string& host) {
    Settings settings = settings_for(how);
    settings.host = host;
    std::string text = outcome_of_login(settings);
    for (const char* before : {"session on ", "remote host ("}) {
      const size_t name = text.find(before + host);
      if (name != std::string::npos) text.replace(name + strlen(before), host.size(), "localhost");
    }
    return text;
  }
};

TEST_F(ClientThatIsNotAsked, GivesThePasswordToTheRightKeyAloneUnlessThereIsNone) {
  lab::configure_sshd("Port 2222");
  for (const Unasked& row : unasked) {
    SCOPED_TRACE(std::string(row.checking) + ", " + row.host + ", " + row.directory);
    prepare(row);
    EXPECT_EQ(outcome(How::wrong_key, row.host), key_mismatch);
    EXPECT_EQ(read_file(lab::value("LAB_SSHD_LOG")).find("password for archiver"), std::string::npos);
    EXPECT_EQ(outcome(How::with_key, row.host), no_error);
    EXPECT_EQ(outcome(How::without_key, row.host), no_error);
    EXPECT_EQ(fetched_key(row.host), lab::value("LAB_HOST_KEY"));
  }
}

class ServerConfiguration : public ClientConfiguration {};

TEST_F(ServerConfiguration, WithACommandOfItsOwnIsATimeout) {
  lab::configure_sshd("ForceCommand /bin/cat");
  EXPECT_EQ(outcome_of_login(settings_for(How::with_key)), shell_timeout);
}

}  // namespace
