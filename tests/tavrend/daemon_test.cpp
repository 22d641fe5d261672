#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/syscall.h>

#include "support/process_state.h"
#include "tavrend/daemon_fixture.h"

namespace {

class Daemon : public TavrendTest {
 protected:
  /* How often its threads have waited for something, each in lines of its own. */
  std::string waits() const {
    std::string all;
    for (const auto& task : std::filesystem::directory_iterator("/proc/" + std::to_string(daemon) + "/task")) {
      const std::string status = read_file(task.path().string() + "/status");
      all += status.substr(status.find("voluntary_ctxt_switches"));
    }
    return all;
  }

  /* Returns the milliseconds until a wait in a call ends by itself, as the kernel was told; -1: it does not. */
  int64_t wait_ms(std::istream& call) const {
    int64_t number = -1;
    uint64_t arguments[6] = {};
    call >> number >> std::hex;
    for (uint64_t& argument : arguments) call >> argument;
    if (number == SYS_poll) return static_cast<int32_t>(arguments[2]);
#ifdef SYS_futex_time64
    const bool is_wait = number == SYS_futex_time64 || number == SYS_futex;
#else
    const bool is_wait = number == SYS_futex;
#endif
    if (!is_wait) throw std::runtime_error("it waits in call " + std::to_string(number));
    if (arguments[3] == 0) return -1;
    const auto end_at = static_cast<std::streamoff>(arguments[3]);
    /* The older of the two calls takes seconds of the machine's own width. */
    const int64_t end_s = number == SYS_futex ? number_at<long>(end_at) : number_at<int64_t>(end_at);
    return end_s * 1000 - tavren_get_uptime_ms();
  }

  /* Returns a number in the daemon's memory. */
  template <class Number>
  Number number_at(std::streamoff address) const {
    Number number = -1;
    std::ifstream memory("/proc/" + std::to_string(daemon) + "/mem", std::ios::binary);
    memory.seekg(address).read(reinterpret_cast<char*>(&number), sizeof number);
    return number;
  }

  /* The next look at the registration is five minutes away. */
  void expect_no_wakeup(const std::string& when) const {
    std::string before = waits();
    wait_until("quiet", [&] {
      usleep(300000);
      const std::string now = waits();
      return std::exchange(before, now) == now;
    });
    for (const auto& task : std::filesystem::directory_iterator("/proc/" + std::to_string(daemon) + "/task")) {
      std::ifstream call(task.path() / "syscall");
      const int64_t wait = wait_ms(call);
      EXPECT_TRUE(wait == -1 || wait > 120000) << when << ": " << wait << " ms";
    }
  }
};

}  // namespace

TEST_F(Daemon, ArchivesClosedFilesOnceOldestFirst) {
  for (int i = 1; i <= 3; ++i) {
    append("audit.log." + std::to_string(i), "closed " + std::to_string(i) + "\n");
    lab::run("touch -d '2026-01-0" + std::to_string(4 - i) + "' " + log("audit.log." + std::to_string(i)));
  }
  start("[audit]\nfiles = " + log("audit.log.*") + "\ncompartment = audit\ninterval = 1\n");
  ASSERT_EQ(set_config(), 0);
  wait_until("three items", [] { return archive_of("audit") == "closed 3\nclosed 2\nclosed 1\n"; });
  lab::run("cd " + logs + " && mv audit.log.3 audit.log.4 && mv audit.log.2 audit.log.3");
  append("audit.log.2", "closed 5\n");
  wait_until("the fourth item", [] { return archive_of("audit") == "closed 3\nclosed 2\nclosed 1\nclosed 5\n"; });
  EXPECT_EQ(items("audit").size(), 4U);
  EXPECT_EQ(errors(), "");
}

TEST_F(Daemon, ArchivesAClosedFileThatIsEmptyOnceToo) {
  append("a.1", "");
  start(closed("a.*"));
  ASSERT_EQ(set_config(), 0);
  wait_until("an item", [] { return items("closed").size() == 1; });
  append("a.2", "one\n");
  expect_archived("closed", "one\n");
  EXPECT_EQ(items("closed").size(), 2U);
}

TEST_F(Daemon, ArchivesWhatIsAppendedUpToItsLastNewline) {
  append("messages", "one\ntwo\nthr");
  start(following("messages"));
  ASSERT_EQ(set_config(), 0);
  wait_until("two lines", [] { return archive_of("messages") == "one\ntwo\n"; });
  append("messages", "ee\n");
  wait_until("the third line", [] { return archive_of("messages") == "one\ntwo\nthree\n"; });
  lab::run("mv " + log("messages") + " " + log("messages.1"));
  append("messages.1", "four");
  append("messages", "five\n");
  wait_until("all", [] { return archive_of("messages") == "one\ntwo\nthree\nfourfive\n"; });
  EXPECT_EQ(errors(), "");
}

/* Its tasks were asked for while it was switched off, so that all of them are due at once. */
TEST_F(Daemon, DoesAllThatIsDueInOneSession) {
  append("one", "1\n");
  append("two", "2\n");
  start("[one]\nfollow = " + log("one") + "\n[two]\nfollow = " + log("two") + "\n");
  ASSERT_EQ(set_config(lab::value("LAB_PASSWORD"), 100, 100, false), 0);
  for (const char* task : {"LogTypeTask.one", "LogTypeTask.two", "SpaceTask"}) ASSERT_EQ(run_task(task), 0);
  ASSERT_EQ(set_state(TAVREN_STATE_ENABLED), 0);
  wait_until("both", [] { return archive_of("one") == "1\n" && archive_of("two") == "2\n"; });
  lab::run("[ $(grep -c 'Accepted password' $LAB_SSHD_LOG) = 1 ]");
}

TEST_F(Daemon, IsRegisteredUnderTheNumberOfItsHome) {
  std::filesystem::create_directories(lab::value("LAB") + "/tavren_tmp");
  write_file(lab::value("LAB") + "/tavren_tmp/tavrend_rpc_num", "100172\n");
  start(following("messages"));
  lab::run("rpcinfo -t 127.0.0.1 100172 1 >/dev/null && ! rpcinfo -p 127.0.0.1 | grep -w 100171");
}

TEST_F(Daemon, CompressesWhatItIsToldTo) {
  append("messages", "one\ntwo\n");
  start(following("messages") + "compress = zstd\n");
  ASSERT_EQ(set_config(), 0);
  expect_archived("messages", "one\ntwo\n", plain_archive_of);
  EXPECT_EQ(items("messages")[0].substr(23), ".messages.zst");
}

TEST_F(Daemon, RefusesWhatItCannotUse) {
  start(following("messages"));
  EXPECT_EQ(refusal_of([](auto* h, char** m) { return tavren_api_set_tunable(h, "x", "1", m); }),
            "Unknown tunable: \"x\".");
  EXPECT_EQ(refusal_of([](auto* h, char** m) { return tavren_api_set_tunable(h, "log_dir_prefix", "a\nb", m); }),
            "A newline is not allowed here.");
  EXPECT_EQ(refusal_of([](auto* h, char** m) { return tavren_api_set_remote_command(h, "x", "y", m); }),
            "Unknown command name: \"x\".");
  EXPECT_EQ(refusal_of([](auto* h, char** m) { return tavren_api_set_interval(h, "x", "1", m); }),
            "Unknown task: \"x\".");
  EXPECT_EQ(refusal_of([](auto* h, char** m) { return tavren_api_set_interval(h, "SpaceTask", "0", m); }),
            "Invalid interval: \"0\".");
  Settings settings = lab::settings();
  settings.host = "";
  const tavren_config_t config = {settings.record(), {-1, -1}};
  EXPECT_EQ(call([&](auto* handle) { return tavren_api_set_config(handle, &config, 1); }), TAVREN_API_E_RPC);
}

TEST_F(Daemon, ServesStrangersWhatNeitherChangesNorShowsAnything) {
  start(following("messages"));
  ASSERT_EQ(set_config(lab::value("LAB_PASSWORD"), -1, -1, false), 0);
  const pid_t stranger = fork();
  if (stranger == 0) {
    if (setgid(4711) != 0 || setuid(4711) != 0) _exit(100);
    tavren_api_handle_t h;
    if (tavren_api_open(&h) != 0) _exit(101);
    tavren_state_t now{};
    tavren_status_t status{};
    tavren_config_t config{};
    char buffer[TAVREN_API_TEXT_SIZE];
    char* text = nullptr;
    int sleeping = 0;
    const bool may = tavren_api_get_state(&h, &now) == 0 && tavren_api_get_status(&h, &status) == 0 &&
                     tavren_api_get_archive_host(&h, buffer) == 0 &&
                     tavren_api_get_archive_directory(&h, buffer) == 0 &&
                     tavren_api_is_tavrend_sleeping(&h, &sleeping) == 0;
    const int refused[] = {tavren_api_set_state(&h, TAVREN_STATE_ENABLED),
                           tavren_api_get_config(&h, &config),
                           tavren_api_set_config(&h, nullptr, 1),
                           tavren_api_get_errors(&h, &text),
                           tavren_api_load_tunables(&h),
                           tavren_api_load_remote_commands(&h),
                           tavren_api_run_task(&h, "SpaceTask"),
                           tavren_api_audit_file_was_archived(&h, "/x"),
                           tavren_api_clear_stored_data(&h, &text),
                           tavren_api_set_tunable(&h, "loopback_login", "1", &text),
                           tavren_api_set_remote_command(&h, "ls", "x", &text),
                           tavren_api_set_interval(&h, "SpaceTask", "1", &text),
                           tavren_api_get_tunable_table(&h, &text),
                           tavren_api_get_remote_command_table(&h, &text),
                           tavren_api_get_interval_table(&h, &text)};
    const bool may_not =
        std::all_of(std::begin(refused), std::end(refused), [](int r) { return r == TAVREN_API_E_RPC; });
    const bool says_why = strstr(tavren_api_errmsg(&h, buffer), "Client credential too weak") != nullptr;
    _exit(!may ? 1 : !may_not ? 2 : !says_why ? 3 : 0);
  }
  int status = 0;
  waitpid(stranger, &status, 0);
  EXPECT_EQ(WEXITSTATUS(status), 0);
  tavren_state_t now{};
  EXPECT_EQ(tavren_get_state(&now), 0);
  EXPECT_EQ(now, TAVREN_STATE_DISABLED);
}

/* For a caller that has hung up the kernel names root. */
TEST_F(Daemon, TakesNoStrangerWhoHangsUpForRoot) {
  start(following("messages"));
  const uint16_t port_of_daemon = port();
  const pid_t stranger = fork();
  if (stranger == 0) {
    if (setgid(4711) != 0 || setuid(4711) != 0) _exit(100);
    for (uint32_t i = 1; i <= 30; ++i) {
      /* A call of set_state(1), as it travels. */
      const uint32_t words[] = {0x80000000 | 44, i, 0, 2, 100171, 1, 2, 0, 0, 0, 0, 1};
      uint32_t request[12];
      std::transform(std::begin(words), std::end(words), request, [](uint32_t word) { return htonl(word); });
      const int fd = socket(AF_INET, SOCK_STREAM, 0);
      const sockaddr_in address = {AF_INET, htons(port_of_daemon), {htonl(INADDR_LOOPBACK)}, {}};
      if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) _exit(101);
      if (write(fd, request, sizeof request) != sizeof request) _exit(102);
      close(fd);
    }
    _exit(0);
  }
  int status = 0;
  waitpid(stranger, &status, 0);
  ASSERT_EQ(WEXITSTATUS(status), 0);
  for (int i = 0; i < 10; ++i) {
    tavren_state_t now{};
    ASSERT_EQ(tavren_get_state(&now), 0);
    EXPECT_EQ(now, TAVREN_STATE_DISABLED);
    usleep(10000);
  }
}

TEST_F(Daemon, AnswersBesideCallersThatSendHalfARequestOrNothing) {
  start(following("messages"));
  const uint16_t port_of_daemon = port();
  const std::string parts[] = {"", std::string("\200\0\0", 3), std::string("\200\0\0\50\0\0\0\1", 8)};
  std::vector<int> callers;
  for (const std::string& part : parts) {
    for (int i = 0; i < 10; ++i) {
      callers.push_back(socket(AF_INET, SOCK_STREAM, 0));
      connect_to_daemon(callers.back(), port_of_daemon);
      EXPECT_EQ(send(callers.back(), part.data(), part.size(), 0), static_cast<ssize_t>(part.size()));
    }
  }
  const int before = tavren_get_uptime();
  tavren_state_t now{};
  EXPECT_EQ(tavren_get_state(&now), 0);
  EXPECT_LT(tavren_get_uptime(), before + 10);
  for (const int fd : callers) close(fd);
}

TEST_F(Daemon, KeepsACallerAmongManyIdleOnesThatCameBeforeOrComeLater) {
  start(following("messages"));
  const uint16_t port_of_daemon = port();
  std::vector<int> idle;
  const auto add_idle = [&](int count) {
    for (int i = 0; i < count; ++i) {
      idle.push_back(socket(AF_INET, SOCK_STREAM, 0));
      connect_to_daemon(idle.back(), port_of_daemon);
    }
  };
  tavren_state_t now{};
  for (int i = 0; i < 5; ++i) {
    add_idle(40);
    tavren_api_handle_t handle;
    ASSERT_EQ(tavren_api_open(&handle), 0);
    EXPECT_EQ(tavren_api_get_state(&handle, &now), 0) << i;
    add_idle(40);
    EXPECT_EQ(tavren_get_state(&now), 0) << i;
    EXPECT_EQ(tavren_api_get_state(&handle, &now), 0) << i;
    tavren_api_close(&handle);
  }
  for (const int fd : idle) close(fd);
}

TEST_F(Daemon, RemovesTheOldestItemForRoomAndNoMore) {
  start("[audit]\nfiles = " + log("a.*") + "\ncompartment = audit\ninterval = 1\n[other]\nfiles = " + log("b.*") +
        "\ninterval = 1\n");
  append("b.1", std::string(300000, 'b'));
  ASSERT_EQ(set_config(lab::value("LAB_PASSWORD"), 1, -1), 0);
  wait_until("the other section", [] { return items("other").size() == 1; });
  for (int i = 1; i <= 4; ++i) {
    append("a." + std::to_string(i), std::string(400000, static_cast<char>('0' + i)));
    const std::string ending = ".a." + std::to_string(i);
    wait_until("item " + ending, [&ending] {
      const auto all = items("audit");
      return std::any_of(all.begin(), all.end(), [&](const std::string& name) { return name.substr(23) == ending; }) &&
             call([](auto*) { return 0; }) == 0;
    });
  }
  wait_until("room for the last", [] { return archive_of("audit").size() == 800000; });
  EXPECT_EQ(archive_of("audit"), std::string(400000, '3') + std::string(400000, '4'));
  EXPECT_EQ(items("other").size(), 1U);
  EXPECT_EQ(errors(), "");
}

TEST_F(Daemon, ChecksItsClaimAgainWithEachConfigurationAndNotBefore) {
  archive_a_first_line();
  lab::run("cd $LAB_ARCHIVE && mv .chassis.CH-1 .chassis.OTHER");
  append("messages", "two\n");
  expect_archived("messages", "one\ntwo\n");
  EXPECT_EQ(errors(), "");
  ASSERT_EQ(set_state(TAVREN_STATE_DISABLED), 0);
  append("messages", "three\n");
  ASSERT_EQ(set_config(), 0);
  wait_until("an error", [] { return errors().find("Another QRV chassis is already using") != std::string::npos; });
  wait_until("the end", [] { return sleeping() == 1; });
  EXPECT_EQ(archive_of("messages"), "one\ntwo\n");
}

TEST_F(Daemon, EndsWithinFiveSecondsAlsoInALoginThatHangs) {
  lab::serve_silence();
  append("messages", "one\n");
  start(following("messages"));
  ASSERT_EQ(set_config(), 0);
  wait_until("a login", [] { return std::filesystem::exists(lab::value("LAB") + "/accepted"); });
  const int before = tavren_get_uptime();
  EXPECT_EQ(stop(), 0);
  EXPECT_LT(tavren_get_uptime(), before + 5);
}

TEST_F(Daemon, IsTheOnlyOneAndEndsWithStatusZeroAndTakesItsNameFromRpcbind) {
  start(following("messages"));
  lab::run(TAVREND " --config " + config_file + " --state " + state + "2 2>$LAB/second; [ $? = 1 ]");
  EXPECT_EQ(read_file(lab::value("LAB") + "/second"), "tavrend: An instance of tavrend is already running.\n");
  EXPECT_EQ(stop(SIGINT), 0);
  lab::run("! rpcinfo -p 127.0.0.1 | grep -w 100171");
}

TEST_F(Daemon, ReadsItsConfigurationAgain) {
  append("messages", "one\n");
  append("other", "two\n");
  start(following("messages"));
  ASSERT_EQ(set_config(), 0);
  write_file(config_file, following("messages") + "[other]\nfollow = " + log("other") + "\ninterval = 1\n");
  kill(daemon, SIGHUP);
  wait_until("the new section", [] { return archive_of("other") == "two\n"; });
  write_file(config_file, "nonsense\n");
  kill(daemon, SIGHUP);
  append("other", "three\n");
  wait_until("what stays", [] { return archive_of("other") == "two\nthree\n"; });
}

TEST_F(Daemon, SaysInTheSystemLogWhyItKeepsItsConfiguration) {
  start(following("messages"));
  write_file(config_file, following("messages") + "[a]\ncolour = red\n");
  kill(daemon, SIGHUP);
  const std::string reason = config_file + ":5: there is no key \"colour\"";
  wait_until("the reason", [&reason] { return lab::system_log().find(reason) != std::string::npos; });
}

/* Of this chassis that task is due a quarter of a second after the start, and of others hardly ever in that minute. */
TEST_F(Daemon, RunsATaskForTheFirstTimeWhenItsChassisIsDue) {
  become_chassis("CH-122925");
  append("messages", "one\n");
  start("[messages]\nfollow = " + log("messages") + "\ninterval = 1d\n");
  ASSERT_EQ(set_config(), 0);
  expect_archived("messages", "one\n");
}

TEST_F(Daemon, CompressesBesideItsStateAndGoesOnWhereThatFails) {
  std::filesystem::create_directory(state);
  lab::change_machine("mount -t tmpfs -o size=1m tmpfs $LAB/state");
  lab::run("head -c 2000000 /dev/urandom >" + log("a.1"));
  append("messages", "one\n");
  start(closed("a.*") + "compress = zstd\n" + following("messages"));
  set_tunable("failure_retry_interval", "3600");
  ASSERT_EQ(set_config(), 0);
  const std::string reason = "compressing: No space left on device";
  wait_until("an error", [&reason] { return errors().find(reason) != std::string::npos; });
  wait_until("a line", [] { return archive_of("messages") == "one\n"; });
  stop();
  lab::change_machine("umount $LAB/state");
}

TEST_F(Daemon, DoesNotStartWithABadConfiguration) {
  write_file(config_file, "[a]\ncolour = red\n");
  lab::run(TAVREND " --config " + config_file + " --state " + state + " 2>$LAB/why; [ $? = 1 ]");
  EXPECT_EQ(read_file(lab::value("LAB") + "/why"), "tavrend: " + config_file + ":2: there is no key \"colour\"\n");
}

TEST_F(Daemon, TakesUpWhatItMissedWhileTheHostWasAway) {
  append("messages", "one\n");
  start(following("messages"));
  set_tunable("failure_retry_interval", "1");
  ASSERT_EQ(set_config(), 0);
  wait_until("a line", [] { return archive_of("messages") == "one\n"; });
  lab::stop_sshd();
  append("messages", "two\n");
  wait_until("an error", [] { return errors().find("Failed to start secure shell session") != std::string::npos; });
  lab::run("\"$LAB_RESTART_SSHD\"");
  wait_until("the other line", [] { return archive_of("messages") == "one\ntwo\n"; });
}

/* Nor does it work with what it could not keep. */
TEST_F(Daemon, TakesBackWhatItCannotKeep) {
  std::filesystem::create_directory(state);
  lab::change_machine("mount -t tmpfs -o size=300k tmpfs $LAB/state");
  start(following("messages"));
  const std::string long_text(60000, 'x');
  for (const char* prefix : {"default", "/a"}) {
    set_tunable("log_dir_prefix", prefix);
    const std::string tunables = refusal_of(tavren_api_get_tunable_table);
    const std::string commands = refusal_of(tavren_api_get_remote_command_table);
    lab::run("cat /dev/zero >$LAB/state/filler 2>/dev/null || true");
    EXPECT_EQ(refusal_of(
                  [&](auto* h, char** m) { return tavren_api_set_tunable(h, "log_dir_prefix", long_text.c_str(), m); }),
              "no answer");
    EXPECT_EQ(
        refusal_of([&](auto* h, char** m) { return tavren_api_set_remote_command(h, "ls", long_text.c_str(), m); }),
        "no answer");
    EXPECT_EQ(refusal_of(tavren_api_get_tunable_table), tunables);
    EXPECT_EQ(refusal_of(tavren_api_get_remote_command_table), commands);
    lab::run("rm $LAB/state/filler");
  }
  stop();
  lab::change_machine("umount $LAB/state");
}

/* So many files that what is remembered of them needs room that there is not. */
TEST_F(Daemon, OutlivesAStateThatCannotBeWritten) {
  constexpr size_t count = 200;
  std::filesystem::create_directory(state);
  lab::change_machine("mount -t tmpfs -o size=300k tmpfs $LAB/state");
  append("closed.first", "x\n");
  start("[closed]\nfiles = " + log("closed.*") + "\ninterval = 1\n");
  set_tunable("failure_retry_interval", "1");
  ASSERT_EQ(set_config(), 0);
  wait_until("a file", [] { return archive_of("closed") == "x\n"; });
  lab::run("cat /dev/zero >$LAB/state/filler 2>/dev/null || true");
  for (size_t i = 0; i < count; ++i) append("closed." + std::to_string(i), "x\n");
  wait_until("a failure",
             [] { return lab::system_log().find("tavrend.db: database or disk is full") != std::string::npos; });
  lab::run("rm $LAB/state/filler");
  wait_until("all files", [] { return archive_of("closed").size() == 2 * (count + 1); });
  EXPECT_EQ(items("closed").size(), count + 1);
  stop();
  lab::change_machine("umount $LAB/state");
}

TEST_F(Daemon, DoesNothingForMinutesWhileNothingIsDue) {
  append("messages", "one\n");
  start("[messages]\nfollow = " + log("messages") + "\ninterval = 1d\n");
  ASSERT_EQ(set_state(TAVREN_STATE_ENABLED), 0);
  ASSERT_EQ(run_task("LogTypeTask.messages"), 0);
  expect_no_wakeup("without a configuration");
  ASSERT_EQ(set_config(), 0);
  expect_archived("messages", "one\n");
  expect_no_wakeup("between two runs");
  ASSERT_EQ(set_state(TAVREN_STATE_DISABLED), 0);
  ASSERT_EQ(run_task("LogTypeTask.messages"), 0);
  expect_no_wakeup("switched off");
}
