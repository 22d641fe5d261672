#include <sys/stat.h>

#include "support/own_machine.h"
#include "support/private_tmp.h"
#include "tavrend/daemon_fixture.h"

namespace {

/* What the daemon leaves alone on its machine, and how it shows itself there. */
class DaemonAsAGuest : public TavrendTest {
 protected:
  /* Everything about a local file but its time of access. */
  std::string state_of(const std::string& name) const {
    struct stat now {};
    if (stat(log(name).c_str(), &now) != 0) return "not there";
    return std::to_string(now.st_ino) + " " + std::to_string(now.st_mode) + " " + std::to_string(now.st_nlink) + " " +
           std::to_string(now.st_mtim.tv_nsec) + " " + std::to_string(now.st_ctim.tv_nsec) + " " + read_file(log(name));
  }

  /* Runs the daemon with those arguments. Returns its exit status, and what it has said in $LAB/out and $LAB/err. */
  static int run(const std::string& arguments) {
    return WEXITSTATUS(system((TAVREND " " + arguments + " >$LAB/out 2>$LAB/err").c_str()));
  }
  static std::string said(const std::string& where) { return read_file(lab::value("LAB") + "/" + where); }
};

}  // namespace

TEST_F(DaemonAsAGuest, ChangesNoLocalFile) {
  append("messages", "one\ntwo");
  append("messages.1", "before\n");
  append("a.1", "closed\n");
  std::vector<std::string> before;
  for (const char* name : {"messages", "messages.1", "a.1"}) before.push_back(state_of(name));
  start(following("messages") + closed("a.*", "audit"));
  ASSERT_EQ(set_config(), 0);
  wait_until("both", [] { return archive_of("messages") == "one\n" && archive_of("audit") == "closed\n"; });
  EXPECT_EQ(before, (std::vector<std::string>{state_of("messages"), state_of("messages.1"), state_of("a.1")}));
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(logs), {}), 3);
}

TEST_F(DaemonAsAGuest, HasNoSecureShellClientOnceItIsDone) {
  append("messages", "one\n");
  start("[messages]\nfollow = " + log("messages") + "\ninterval = 1d\n");
  ASSERT_EQ(set_config(), 0);
  ASSERT_EQ(run_task("LogTypeTask.messages"), 0);
  wait_until("a line", [] { return archive_of("messages") == "one\n"; });
  wait_until("no child", [this] {
    const std::string all = "/proc/" + std::to_string(daemon) + "/task";
    return std::all_of(std::filesystem::directory_iterator(all), {},
                       [](const auto& task) { return read_file(task.path().string() + "/children").empty(); });
  });
}

TEST_F(DaemonAsAGuest, ListensOnTheLoopbackAddressAlone) {
  start(following("messages"));
  char ours[16];
  snprintf(ours, sizeof ours, ":%04X", port());
  lab::run(std::string("cat /proc/net/tcp /proc/net/tcp6 | awk '$4 == \"0A\" {print $2}' | grep '") + ours +
           "$' >$LAB/listening");
  EXPECT_EQ(said("listening"), std::string("0100007F") + ours + "\n");
}

TEST_F(DaemonAsAGuest, ArchivesTheLogsOfAnotherRoot) {
  std::filesystem::create_directories(logs + "/machine/var/log");
  append("machine/var/log/messages", "one\n");
  append("machine/var/log/a.1", "closed\n");
  start("[messages]\nfollow = /var/log/messages\ninterval = 1\n[audit]\nfiles = /var/log/a.*\ninterval = 1\n");
  set_tunable("log_dir_prefix", (logs + "/machine").c_str());
  ASSERT_EQ(set_config(), 0);
  wait_until("both", [] { return archive_of("messages") == "one\n" && archive_of("audit") == "closed\n"; });
}

TEST_F(DaemonAsAGuest, LeavesTheLogsOfItsOwnRootAloneWhereItArchivesThoseOfAnother) {
  const std::string root = lab::value("LAB") + "/root";
  std::filesystem::create_directories(root + logs);
  for (const char* name : {"messages", "a.1"}) {
    append(name, "wrong\n");
    write_file(root + log(name), "right\n");
  }
  start(following("messages") + closed("a.*"));
  set_tunable("log_dir_prefix", root.c_str());
  ASSERT_EQ(set_config(), 0);
  expect_archived("closed", "right\n");
  expect_archived("messages", "right\n");
  lab::run("cd " + root + logs + " && mv messages messages.1 && echo new >messages");
  expect_archived("messages", "right\nnew\n");
  EXPECT_EQ(errors(), "");
}

TEST_F(DaemonAsAGuest, ArchivesTheLogsOfTheRootThatItWasToldLast) {
  start("[closed]\nfiles = /a.*\ninterval = 1\n");
  ASSERT_EQ(set_config(), 0);
  std::string written;
  for (const char* name : {"one", "two"}) {
    const std::string root = lab::value("LAB") + "/" + name;
    std::filesystem::create_directory(root);
    write_file(root + "/a.1", name);
    set_tunable("log_dir_prefix", root.c_str());
    written += name;
    expect_archived("closed", written);
  }
}

TEST_F(DaemonAsAGuest, TakesTheLogOfAnotherRootForAnotherLog) {
  start("[messages]\nfollow = /messages\ninterval = 1\n");
  ASSERT_EQ(set_config(), 0);
  std::string written;
  for (const char* line : {"one\n", "another one\n"}) {
    const std::string root = lab::value("LAB") + "/root " + std::to_string(written.size());
    std::filesystem::create_directory(root);
    write_file(root + "/messages", line);
    set_tunable("log_dir_prefix", root.c_str());
    written += line;
    expect_archived("messages", written);
  }
  EXPECT_EQ(errors(), "");
}

TEST_F(DaemonAsAGuest, ExplainsItsOptions) {
  EXPECT_EQ(run("--help"), 0);
  EXPECT_EQ(said("out").substr(0, 15), "usage: tavrend ");
  EXPECT_EQ(said("err"), "");
  EXPECT_EQ(run("--version"), 0);
  EXPECT_EQ(said("out").substr(0, 8), "tavrend ");
  for (const char* wrong : {"--colour", "--config", "file"}) {
    EXPECT_EQ(run(wrong), 2) << wrong;
    EXPECT_NE(said("err").find("usage: tavrend "), std::string::npos) << wrong;
  }
}

TEST_F(DaemonAsAGuest, HasItsFilesInTheSystemsPlacesUnlessItIsToldOtherwise) {
  lab::change_machine("mkdir -p /etc/tavren && mount -t tmpfs tmpfs /var/lib");
  write_file("/etc/tavren/tavrend.conf", closed("a.*"));
  daemon = fork();
  if (daemon == 0) {
    execl(TAVREND, TAVREND, nullptr);
    _exit(127);
  }
  wait_until_registered();
  EXPECT_NE(refusal_of(tavren_api_get_interval_table).find("LogTypeTask.closed"), std::string::npos);
  EXPECT_TRUE(std::filesystem::exists("/var/lib/tavren/tavrend.db"));
}

TEST_F(DaemonAsAGuest, SaysWhichConfigurationFileIsMissing) {
  EXPECT_EQ(run("--config /no/such.conf --state " + state), 1);
  EXPECT_NE(said("err").find("/no/such.conf"), std::string::npos) << said("err");
}

/* With a number file in the place where a machine without TAVREN_HOME would look. */
TEST_F(DaemonAsAGuest, HasTheUsualNumberWithoutAHome) {
  need_own_machine("a /tmp of its own");
  daemon = fork();
  if (daemon == 0) {
    if (!enter_private_tmp()) _exit(126);
    write_file("/tmp/tavrend_rpc_num", "100172\n");
    write_file("/tmp/tavrend.conf", closed("a.*"));
    unsetenv("TAVREN_HOME");
    execl(TAVREND, TAVREND, "--config", "/tmp/tavrend.conf", "--state", "/tmp/state", nullptr);
    _exit(127);
  }
  wait_until("a registration", [] { return system("rpcinfo -p 127.0.0.1 | grep -q ' 10017[12] '") == 0; });
  lab::run("! rpcinfo -p 127.0.0.1 | grep -w 100172");
}
