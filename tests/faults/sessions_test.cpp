#include <errno.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <linux/net.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <memory>
#include <regex>

#include "TavrenKeyDownloader.h"
#include "faults/refusal.h"
#include "faults/runner.h"
#include "lab/lab.h"
#include "support/named.h"
#include "tavren_host_util.h"
#include "tavren_share.h"

/*
 * Sessions with a real archive host in which every call of the C library fails in turn.
 */
namespace {

class Faults : public LabTest {
 protected:
  Faults() {
    settings = lab::settings();
    settings.host_key = lab::value("LAB_HOST_KEY");
  }

  void make_host(bool logs = false) {
    own = std::make_unique<TavrenHost>(false, logs);
    own->set_settings(settings.record());
    own->enable();
  }

  std::string log_in() {
    return outcome_of([this] { own->open_connection(); });
  }

  void close() {
    if (own != nullptr) own->close_connection();
    own.reset();
  }

  /* Tries what is done with an open connection. */
  void try_with_a_connection(const std::function<void(TavrenHost&)>& action) {
    try_all_faults({[this] { make_host(), own->open_connection(); }, [&] { return outcome_of([&] { action(*own); }); },
                    [this] { close(); }});
  }

  void try_a_login() {
    try_all_faults({[this] { make_host(); }, [this] { return log_in(); }, [this] { close(); }});
  }

  Settings settings;
  std::unique_ptr<TavrenHost> own;

 private:
  /* Short enough for the faults that end in one, long enough for a busy machine. */
  const ScopedTunable connect_timeout{"ssh_connect_timeout", 10};
  const ScopedTunable start_timeout{"ssh_shell_start_timeout", 10};
  const ScopedTunable command_timeout{"ssh_command_timeout", 10};
};

void send_file(TavrenHost& host) {
  const std::string content(5000, 'x');
  host.start_send_file("file", 10000, 0644);
  host.continue_send_file(content.data(), 5000);
  host.continue_send_file(content.data(), 5000);
  host.end_send_file();
}

void send_stream(TavrenHost& host) {
  const std::string content(5000, 'x');
  host.start_send_stream("stream");
  host.continue_send_stream(content.data(), 5000);
  host.end_send_stream();
}

TEST_F(Faults, InALoginWithAKey) { try_a_login(); }

TEST_F(Faults, InALoginWithoutAKey) {
  settings.host_key.clear();
  try_a_login();
}

TEST_F(Faults, InACommand) {
  try_with_a_connection([](TavrenHost& host) { host.run_and_expect_line("echo works", "works"); });
}

TEST_F(Faults, InAFile) { try_with_a_connection(send_file); }

TEST_F(Faults, InAStream) { try_with_a_connection(send_stream); }

TEST_F(Faults, InTheTestOfTheHost) {
  try_with_a_connection([](TavrenHost& host) { host.test_host(); });
}

TEST_F(Faults, InTheEndOfASession) {
  try_with_a_connection([](TavrenHost& host) { host.close_connection(); });
}

TEST_F(Faults, InTheFetchingOfAKey) {
  try_all_faults({[] {},
                  [] {
                    return outcome_of([] {
                      std::string key;
                      TavrenKeyDownloader(lab::value("LAB_HOST")).download_host_key(key);
                    });
                  },
                  [] {}});
}

TEST_F(Faults, InAFingerprint) {
  const std::string key = lab::value("LAB_HOST_KEY");
  try_all_faults({[] {},
                  [&key] {
                    char fingerprint[TAVREN_FINGERPRINT_SIZE];
                    char error[TAVREN_MESSAGE_SIZE];
                    return outcome_of(tavren_host_key_fingerprint(key.c_str(), fingerprint, error), nullptr);
                  },
                  [] {}},
                 /* where the key file cannot be written it may stay, half-written */
                 "(fputs|fclose|fdopen|malloc) fails: failure, leaving host_key");
}

TEST_F(Faults, InThePrivateDirectory) {
  tavren_cleanup_tmp_dir();
  try_all_faults({[] {},
                  [] {
                    char message[TAVREN_MESSAGE_SIZE];
                    const int result = tavren_setup_tmp_dir("faults", message);
                    tavren_cleanup_tmp_dir();
                    return outcome_of(result, nullptr);
                  },
                  [] {}},
                 /* a second instance has nothing to do but end */
                 "lockf64 is taken: failure, leaving a descriptor");
}

TEST_F(Faults, InAHandlesLife) {
  const tavren_settings_t record = settings.record();
  try_all_faults({[] {},
                  [&record] {
                    char* message = nullptr;
                    tavren_hp_t* handle = tavren_hp_new(&record, &message);
                    if (handle == nullptr) return outcome_of(-1, message);
                    const int result = tavren_hp_open(handle, &message);
                    tavren_hp_close(handle);
                    tavren_hp_destroy(handle);
                    return outcome_of(result, message);
                  },
                  [] {}});
}

/* What the C library does for forkpty, on both of its sides. */
TEST_F(Faults, InsideForkptyAreAnErrorOfTheLogin) {
  const Named<Refusal> refusals[] = {{"terminal", {SYS_openat, 2, O_RDWR, EMFILE}},
                                     {"unlocking", {SYS_ioctl, 1, TIOCSPTLCK, EIO}},
                                     {"fork", {SYS_clone, 0, any_value, EAGAIN}},
                                     {"session", {SYS_setsid, 0, any_value, EPERM}},
                                     {"controlling terminal", {SYS_ioctl, 1, TIOCSCTTY, EPERM}}};
  for (const Named<Refusal>& refusal : refusals) {
    const std::string outcome = outcome_of_run(
        {[&] { make_host(), refuse_for_good(refusal.value); }, [this] { return log_in(); }, [this] { close(); }});
    EXPECT_TRUE(std::regex_match(outcome, std::regex("error [0-9]+"))) << refusal.name << ": " << outcome;
  }
}

/* Who cannot write the system log still learns what was to be written there. */
TEST_F(Faults, InsideSyslogLeaveTheErrorOfTheLoginAsItIs) {
  const Named<Refusal> refusals[] = {{"socket", refused_socket_call(SYS_socket, SYS_SOCKET, EMFILE)},
                                     {"connection", refused_socket_call(SYS_connect, SYS_CONNECT, ENOENT)},
                                     {"sending", refused_socket_call(SYS_sendto, SYS_SEND, ENOBUFS)}};
  for (const Named<Refusal>& refusal : refusals) {
    const auto prepare = [&] {
      make_host(true);
      std::string ignored;
      TavrenHost::set_cmd("ssh", "/bin/false", ignored);
      refuse_for_good(refusal.value);
    };
    EXPECT_EQ(outcome_of_run({prepare, [this] { return log_in(); }, [this] { close(); }}), "error 4") << refusal.name;
  }
  EXPECT_THAT(lab::system_log(), testing::Not(testing::HasSubstr("failed to connect")));
}

}  // namespace
