#include <sys/wait.h>

#include "support/named.h"
#include "tavrend/daemon_fixture.h"

namespace {

/* "tavren_ctl setup", as a person or a script would run it, beside the daemon. */
class SetUp : public TavrendTest {
 protected:
  /* Runs it with the password on descriptor 3 and answers on the standard input. Returns its exit status. */
  static int set_up(const std::string& arguments, const std::string& answers = "",
                    const std::string& password = lab::value("LAB_PASSWORD")) {
    write_file(lab::value("LAB") + "/password", password + "\n");
    write_file(lab::value("LAB") + "/answers", answers);
    const int status =
        system((TAVREN_CTL " setup -p 3 " + arguments + " 3<$LAB/password <$LAB/answers >$LAB/out 2>$LAB/err").c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  /* Returns what begins a command of the tool by another user, who may not be let into the build's directory. */
  static std::string as_somebody() {
    lab::run("cp " TAVREN_CTL " " LIBRARIES " $LAB_ARCHIVE/..");
    const std::string place = lab::value("LAB_ARCHIVE") + "/..";
    return "LD_LIBRARY_PATH=" + place + " setpriv --reuid 4711 --clear-groups " + place + "/tavren_ctl ";
  }

  static std::string out() { return read_file(lab::value("LAB") + "/out"); }
  static std::string err() { return read_file(lab::value("LAB") + "/err"); }

  tavren_config_t config() {
    tavren_config_t config{};
    EXPECT_EQ(call([&](auto* handle) { return tavren_api_get_config(handle, &config); }), 0);
    return config;
  }

  void start() { TavrendTest::start("[messages]\nfollow = " + log("messages") + "\ninterval = 1\n"); }

  const std::string target = lab::value("LAB_USER") + "@localhost:" + lab::value("LAB_ARCHIVE");
};

/* What is wrong, and what it says that one can do. The commands break something on the host, and mend it. */
struct Trouble {
  const char* begin;
  const char* end;
  const char* advice;
};

class SetUpInTrouble : public SetUp, public testing::WithParamInterface<Named<Trouble>> {};

}  // namespace

TEST_F(SetUp, ShowsTheKeyAndHasTheDaemonArchiveOnceItIsConfirmed) {
  append("messages", "one\n");
  start();
  EXPECT_EQ(set_up(target, "yes\n"), 0) << err();
  EXPECT_NE(out().find("localhost shows a key of type ssh-ed25519 with the fingerprint\n  SHA256:"), std::string::npos);
  EXPECT_NE(out().find("\nmessages goes to localhost:" + lab::value("LAB_ARCHIVE") + "/messages every 1 s\n"),
            std::string::npos)
      << out();
  wait_until("the line", [] { return archive_of("messages") == "one\n"; });
  tavren_config_t now = config();
  EXPECT_EQ(now.settings.host_key, lab::value("LAB_HOST_KEY"));
  EXPECT_NE(out().find(now.settings.fingerprint), std::string::npos);
  tavren_config_free_contents(&now);
}

TEST_F(SetUp, WithoutAConfirmedKeyChangesNothing) {
  start();
  EXPECT_EQ(set_up(target, "no\n"), 1);
  EXPECT_EQ(err(), "tavren_ctl: the host's key was not confirmed\n");
  tavren_config_t now = config();
  EXPECT_STREQ(now.settings.host, "");
  tavren_config_free_contents(&now);
}

TEST_F(SetUp, KeepsTheLimitsThatItIsNotGiven) {
  start();
  EXPECT_EQ(set_up("-y -l audit=1000 " + target), 0) << err();
  EXPECT_EQ(set_up("-y -l logs=7 " + target), 0) << err();
  tavren_config_t now = config();
  EXPECT_EQ(now.space_limit[0], 1000);
  EXPECT_EQ(now.space_limit[1], 7);
  tavren_config_free_contents(&now);
  EXPECT_EQ(set_up("-y -l audit=unlimited " + target), 0) << err();
  now = config();
  EXPECT_EQ(now.space_limit[0], -1);
  tavren_config_free_contents(&now);
}

TEST_F(SetUp, TakesNoOtherKeyThanTheConfiguredOneUnasked) {
  const std::string other = lab::value("LAB") + "/other.pub";
  start();
  write_file(other, lab::value("LAB_HOST_KEY_RSA") + "\n");
  EXPECT_EQ(set_up("-k " + other + " " + target), 0) << err();
  EXPECT_EQ(set_up("-y " + target), 1);
  EXPECT_NE(out().find("That is NOT the key that is configured for this host."), std::string::npos) << out();
  EXPECT_EQ(set_up(target, "yes\n"), 0) << err();
}

TEST_F(SetUp, DoesNotAskAboutTheKeyThatIsConfigured) {
  start();
  EXPECT_EQ(set_up(target, "yes\n"), 0) << err();
  EXPECT_EQ(out().find("That is the key that is configured"), std::string::npos) << out();
  EXPECT_EQ(set_up(target, ""), 0) << err();
  EXPECT_NE(out().find("That is the key that is configured for this host.\n"), std::string::npos) << out();
}

TEST_F(SetUp, SaysWhatToDoAboutAWrongPassword) {
  start();
  EXPECT_EQ(set_up("-y " + target, "", "wrong"), 1);
  EXPECT_NE(err().find("  - Secure shell login failed: permission denied\nCheck the user's name and the password.\n"),
            std::string::npos)
      << err();
}

TEST_F(SetUp, SaysThatItIsForRoot) {
  start();
  EXPECT_EQ(set_up("-y " + target), 0) << err();
  const int status =
      system((TAVREN_CTL " status >/dev/null && " + as_somebody() + "setup -y " + target + " 2>$LAB/err").c_str());
  EXPECT_EQ(WEXITSTATUS(status), 2);
  EXPECT_NE(err().find("Only root can set the daemon up."), std::string::npos) << err();
  EXPECT_EQ(WEXITSTATUS(system((as_somebody() + "errors 2>$LAB/err").c_str())), 2);
  EXPECT_NE(err().find("\nYou are not root: others may ask for state, status, host, directory and sleeping alone.\n"),
            std::string::npos)
      << err();
}

TEST_F(SetUp, ShowsInTheStatusWhatIsSetUp) {
  append("messages", "one\n");
  start();
  EXPECT_EQ(set_up("-y -l logs=1000 " + target), 0) << err();
  expect_archived("messages", "one\n");
  EXPECT_EQ(system(TAVREN_CTL " run space"), 0);
  wait_until("the space is measured", [] {
    EXPECT_EQ(system(TAVREN_CTL " status >$LAB/out 2>$LAB/err"), 0) << err();
    return out().find("sleeping") != std::string::npos && out().find("logs:       not measured") == std::string::npos;
  });
  const size_t connection = out().find("Connection: OK since 20");
  ASSERT_NE(connection, std::string::npos) << out();
  const size_t compartments = out().find('\n', connection) + 1;
  EXPECT_EQ(out().substr(0, connection), "Archiving:  Enabled\nDaemon:     sleeping\nTarget:     " + target + "\n");
  EXPECT_EQ(out().substr(compartments),
            "audit:      unlimited\n            0 waiting, 0 archived\n"
            "logs:       1 of 1000 MB\n            0 waiting, 1 archived\n");
}

TEST_F(SetUp, ShowsOthersThanRootNeitherUserNorLimits) {
  start();
  EXPECT_EQ(set_up("-y -l audit=1000 " + target), 0) << err();
  const std::string status = as_somebody() + "status ";
  EXPECT_EQ(system((status + ">$LAB/out 2>$LAB/err").c_str()), 0) << err();
  EXPECT_NE(out().find("Target:     localhost:" + lab::value("LAB_ARCHIVE") + "\n"), std::string::npos) << out();
  EXPECT_NE(out().find("logs: "), std::string::npos) << out();
  EXPECT_EQ(out().find("limit"), std::string::npos) << out();
  EXPECT_EQ(system((status + "--json >$LAB/out 2>$LAB/err").c_str()), 0) << err();
  EXPECT_NE(out().find("\"target\": {\"user\": null, \"host\": \"localhost\", "), std::string::npos) << out();
  EXPECT_NE(out().find("\"limited\": null, \"limit_mb\": null"), std::string::npos) << out();
}

TEST_F(SetUp, OfNonsenseExplainsItself) {
  start();
  for (const char* arguments :
       {"", "a b", "-l x=1 a@b:c", "-l audit=-2 a@b:c", "-l audit= a@b:c", "-p x a@b:c", "a@b"}) {
    EXPECT_EQ(set_up(arguments), 2) << arguments;
  }
  EXPECT_EQ(err(), "tavren_ctl: Target specification must have the form: user@host:directory.\n");
}

TEST_P(SetUpInTrouble, SaysWhatToDoAndWorksOnceThatIsDone) {
  const Trouble& trouble = GetParam().value;
  start();
  lab::run(trouble.begin);
  EXPECT_EQ(set_up("-y " + target), 1) << out();
  EXPECT_NE(err().find(std::string("\n") + trouble.advice), std::string::npos) << err();
  lab::run(trouble.end);
  EXPECT_EQ(set_up("-y " + target), 0) << err();
}

INSTANTIATE_TEST_SUITE_P(
    , SetUpInTrouble,
    testing::Values(
        Named<Trouble>{
            "NoServer",
            {"kill $(cat $LAB/sshd.pid); while kill -0 $(cat $LAB/sshd.pid 2>/dev/null) 2>/dev/null; do :; done",
             "$LAB_RESTART_SSHD", "Check the host's name, the network, and that a secure shell server runs there.\n"}},
        Named<Trouble>{"NoDirectory",
                       {"mv $LAB_ARCHIVE $LAB_ARCHIVE.away", "mv $LAB_ARCHIVE.away $LAB_ARCHIVE",
                        "Make that directory on the host, or name another one.\n"}},
        Named<Trouble>{"DirectoryOfSomebodyElse",
                       {"chown root $LAB_ARCHIVE", "chown $LAB_USER $LAB_ARCHIVE",
                        "Let the user write into that directory, or name another one.\n"}},
        Named<Trouble>{
            "DirectoryOfAnotherChassis",
            {"touch $LAB_ARCHIVE/.chassis.OTHER", "rm $LAB_ARCHIVE/.chassis.OTHER",
             "Give this chassis a directory of its own. If the other chassis is gone, remove its .chassis file"}},
        Named<Trouble>{"FullDisk",
                       {"mount -t tmpfs -o size=4k,mode=777 tmpfs $LAB_ARCHIVE && echo >$LAB_ARCHIVE/full",
                        "umount -l $LAB_ARCHIVE", "The disk is full there: make space, or name another directory.\n"}},
        Named<Trouble>{"ReadOnlyFileSystem",
                       {"mount -t tmpfs -o ro,mode=777 tmpfs $LAB_ARCHIVE", "umount -l $LAB_ARCHIVE",
                        "Nobody can write there: name another directory.\n"}},
        Named<Trouble>{"NoScp",
                       {"echo 'SetEnv PATH=/nowhere' >>$LAB_SSHD_CONFIG && $LAB_RESTART_SSHD",
                        "sed -i '/^SetEnv/d' $LAB_SSHD_CONFIG && $LAB_RESTART_SSHD",
                        "Install scp on the host (Debian: openssh-client).\n"}}),
    by_name);

TEST_F(SetUp, SaysWhatToDoAboutAnotherKeyThanLastTime) {
  start();
  EXPECT_EQ(set_up("-y " + target), 0) << err();
  lab::run(
      "ssh-keygen -q -t ed25519 -N '' -f $LAB/new_key && cp $LAB_SSHD_CONFIG $LAB/kept_config && "
      "sed -i \"/^HostKey/d\" $LAB_SSHD_CONFIG && echo HostKey $LAB/new_key >>$LAB_SSHD_CONFIG && $LAB_RESTART_SSHD");
  EXPECT_EQ(set_up("-y " + target), 1);
  EXPECT_NE(
      err().find("Ask the host's administrator for the fingerprint. If the key is a new one, run this again without "
                 "--yes.\n"),
      std::string::npos)
      << err();
  EXPECT_EQ(set_up(target, "yes\n"), 0) << err();
  lab::run("mv $LAB/kept_config $LAB_SSHD_CONFIG && $LAB_RESTART_SSHD");
}

TEST_F(SetUp, SaysWhatItDoesInItsSteps) {
  start();
  EXPECT_EQ(set_up("-y " + target), 0) << err();
  const std::string steps[] = {"Fetching the key of localhost\n", "Logging in as " + lab::value("LAB_USER"),
                               "Sending the configuration to the daemon\n",
                               "Archiving is configured and switched on\n"};
  size_t position = 0;
  for (const std::string& step : steps) {
    position = out().find(step, position);
    ASSERT_NE(position, std::string::npos) << step << out();
  }
}

TEST_F(SetUp, SaysWhatToDoWhereNobodyKnowsWhichChassisThisIs) {
  start();
  setenv("HODRA_DIR", (lab::value("LAB") + "/empty").c_str(), 1);
  EXPECT_EQ(set_up("-y " + target), 1);
  EXPECT_NE(err().find("\nThis machine does not know which chassis it is. Name it, as root: hodra-put 1 "
                       "setup_system_id_info 1024 40=NAME (in libexec/tavren).\n"),
            std::string::npos)
      << err();
  become_chassis("CH-1");
  EXPECT_EQ(set_up("-y " + target), 0) << err();
}
