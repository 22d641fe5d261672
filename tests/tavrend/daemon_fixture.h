#ifndef TESTS_TAVREND_DAEMON_FIXTURE_H
#define TESTS_TAVREND_DAEMON_FIXTURE_H

#include <gtest/gtest.h>
#include <linux/capability.h>
#include <netinet/in.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "lab/lab.h"
#include "support/files.h"
#include "tavren_api.h"
#include "tavren_basic.h"

/*
 * The daemon itself, beside a private archive host with a real rpcbind. Its logs are in $LAB/logs, its configuration is
 * written by the test. It is asked and told through the client API. Nothing of a test is left for the next one in its
 * process: the files below $LAB, those of the account and the logs of the system and of sshd are as they were before.
 */
class TavrendTest : public testing::Test {
 protected:
  static constexpr int patience = 60; /* seconds that only a test that hangs waits for */

  TavrendTest() {
    /* Daemons of tests that run at the same time have their one instance each. */
    setenv("TAVREN_HOME", lab::value("LAB").c_str(), 1);
    std::filesystem::create_directory(logs);
    begin_rpcbind();
    become_chassis("CH-1");
  }
  ~TavrendTest() override {
    if (daemon != -1) stop(SIGKILL);
    lab::run("pkill -KILL -u $LAB_USER; pkill -x rpcbind; while pgrep -x rpcbind >/dev/null; do sleep 0.01; done");
    remove_all_but(found, lab::value("LAB"));
    const std::filesystem::path archive = lab::value("LAB_ARCHIVE");
    remove_all_but({archive}, archive.parent_path());
    remove_all_but({}, archive);
    std::error_code none; /* of a log that is in other hands */
    for (const char* log : {"LAB_SYSLOG", "LAB_SSHD_LOG"}) std::filesystem::resize_file(lab::value(log), 0, none);
  }

  /* It knows nothing of what was registered before. */
  static void begin_rpcbind() {
    lab::run(START_RPCBIND " >/dev/null 2>&1 & until rpcinfo -p 127.0.0.1 >/dev/null 2>&1; do sleep 0.02; done");
  }

  static void become_chassis(const std::string& id) {
    setenv("HODRA_DIR", (lab::value("LAB") + "/hodra").c_str(), 1);
    lab::run(HODRA_PUT " 1 setup_system_id_info 1024 40=" + id);
  }

  /* Starts the daemon with that configuration, and waits until it is registered. */
  void start(const std::string& configuration) {
    write_file(config_file, configuration);
    start_again();
  }

  void start_again() {
    launch();
    wait_until_registered();
  }

  /* Starts the daemon, and waits for nothing. */
  void launch() {
    daemon = fork();
    if (daemon == 0) {
      execl(TAVREND, TAVREND, "--config", config_file.c_str(), "--state", state.c_str(), nullptr);
      _exit(127);
    }
  }

  void wait_until_registered() {
    wait_until("the daemon is registered", [this] {
      if (waitpid(daemon, nullptr, WNOHANG) != 0) throw std::runtime_error("the daemon has ended");
      tavren_api_handle_t handle;
      if (tavren_api_open(&handle) != 0) return false;
      tavren_state_t now{};
      const bool answers = tavren_api_get_state(&handle, &now) == 0;
      tavren_api_close(&handle);
      return answers;
    });
  }

  /* Ends the daemon. Returns its wait status. */
  int stop(int signal_number = SIGTERM) {
    int status = 0;
    if (daemon == -1) throw std::runtime_error("there is no daemon"); /* but all processes */
    kill(daemon, signal_number);
    waitpid(daemon, &status, 0);
    daemon = -1;
    return status;
  }

  /* Makes one call and returns its result. */
  template <class Call>
  static int call(Call action) {
    tavren_api_handle_t handle;
    if (tavren_api_open(&handle) != 0) return TAVREN_API_E_CONNECT;
    const int result = action(&handle);
    tavren_api_close(&handle);
    return result;
  }

  static int set_config(const std::string& password, int audit_limit = -1, int logs_limit = -1, bool on = true) {
    Settings settings = lab::settings();
    settings.password = password;
    settings.host_key = lab::value("LAB_HOST_KEY");
    const tavren_config_t config = {settings.record(), {audit_limit, logs_limit}};
    return call([&](tavren_api_handle_t* handle) { return tavren_api_set_config(handle, &config, on ? 1 : 0); });
  }

  static int set_config() { return set_config(lab::value("LAB_PASSWORD")); }

  static int set_state(tavren_state_t wanted) {
    return call([&](tavren_api_handle_t* handle) { return tavren_api_set_state(handle, wanted); });
  }

  static int sleeping() {
    int answer = -1;
    EXPECT_EQ(call([&](auto* handle) { return tavren_api_is_tavrend_sleeping(handle, &answer); }), 0);
    return answer;
  }

  static int run_task(const std::string& task) {
    return call([&](tavren_api_handle_t* handle) { return tavren_api_run_task(handle, task.c_str()); });
  }

  static void set_tunable(const char* name, const char* value) {
    EXPECT_EQ(refusal_of([=](auto* h, char** m) { return tavren_api_set_tunable(h, name, value, m); }), "");
  }

  /* Returns how often part is in text. */
  static size_t count(const std::string& text, const std::string& part) {
    size_t times = 0;
    for (size_t at = 0; (at = text.find(part, at)) != std::string::npos; at += part.size()) ++times;
    return times;
  }

  /* Returns the stored errors as they are printed. */
  static std::string errors() {
    char* text = nullptr;
    call([&](tavren_api_handle_t* handle) { return tavren_api_get_errors(handle, &text); });
    const std::string result = text == nullptr ? "" : text;
    free(text);
    return result;
  }

  /* Returns the result of a request that may be refused: the reason, or an empty text. */
  template <class Call>
  static std::string refusal_of(Call action) {
    char* text = nullptr;
    if (call([&](tavren_api_handle_t* handle) { return action(handle, &text); }) != 0) return "no answer";
    const std::string result = text == nullptr ? "" : text;
    free(text);
    return result;
  }

  static void wait_until(const std::string& what, const std::function<bool()>& condition, int seconds = patience) {
    const int end = tavren_get_uptime() + seconds;
    while (!condition()) {
      if (tavren_get_uptime() > end) throw std::runtime_error("in vain: " + what);
      usleep(20000);
    }
  }

  /* Returns the names of the items of a section, oldest first. */
  static std::vector<std::string> items(const std::string& section) {
    std::vector<std::string> names;
    std::error_code none;
    for (const auto& entry : std::filesystem::directory_iterator(lab::archived(section), none)) {
      names.push_back(entry.path().filename());
    }
    std::sort(names.begin(), names.end());
    return names;
  }

  /* Returns the contents of a section's items, one behind the other. One that is taken back meanwhile has none. */
  static std::string archive_of(const std::string& section) {
    std::string content;
    for (const std::string& name : items(section)) {
      content += content_of(std::ifstream(lab::archived(section + "/" + name), std::ios::binary));
    }
    return content;
  }

  /* The same of compressed items; nothing while one of them is not whole. */
  static std::string plain_archive_of(const std::string& section) {
    const std::string command = "zstd -dc $LAB_ARCHIVE/" + section + "/* 2>/dev/null >$LAB/plain";
    return system(command.c_str()) == 0 ? read_file(lab::value("LAB") + "/plain") : "";
  }

  /* Waits until a section's items, one behind the other, are what was written, and the daemon knows it. What there is
   * of many megabytes is not read again and again while it is still sent. */
  static void expect_archived(const std::string& section, const std::string& written,
                              const std::function<std::string(const std::string&)>& content = archive_of) {
    try {
      wait_until("every byte once", [&] { return sleeping() == 1 && content(section) == written && sleeping() == 1; });
    } catch (const std::runtime_error&) {
      ADD_FAILURE() << section << ": " << first_difference(content(section), written)
                    << "\nstored errors: " << errors();
    }
  }

  /* Returns where an archive is not what was written, in words. */
  static std::string first_difference(const std::string& archived, const std::string& written) {
    const auto place = std::mismatch(archived.begin(), archived.end(), written.begin(), written.end());
    const auto position = static_cast<size_t>(place.first - archived.begin());
    const auto rest_of = [position](const std::string& text) {
      return text.substr(std::min(position, text.size()), 80);
    };
    return "of " + std::to_string(written.size()) + " bytes written " + std::to_string(archived.size()) +
           " are archived; from byte " + std::to_string(position) + " on \"" + rest_of(archived) + "\" instead of \"" +
           rest_of(written) + "\"";
  }

  /* Root may read everything, and so may a daemon that is started before this. */
  static void give_up_reading_everything() {
    prctl(PR_CAPBSET_DROP, CAP_DAC_OVERRIDE);
    prctl(PR_CAPBSET_DROP, CAP_DAC_READ_SEARCH);
  }

  std::string log(const std::string& name) const { return logs + "/" + name; }

  /* A section that follows the log of its name, and one of closed files, which look for something new each second. */
  std::string following(const std::string& name) const {
    return "[" + name + "]\nfollow = " + log(name) + "\ninterval = 1\n";
  }
  std::string closed(const std::string& pattern, const std::string& section = "closed") const {
    return "[" + section + "]\nfiles = " + log(pattern) + "\ninterval = 1\n";
  }

  /* Starts the daemon with a log called messages, of which one line is archived then. */
  void archive_a_first_line() {
    append("messages", "one\n");
    start(following("messages"));
    ASSERT_EQ(set_config(), 0);
    expect_archived("messages", "one\n");
  }

  /* Returns where the daemon listens, which is in $LAB/port then, too. */
  static uint16_t port() {
    lab::run("rpcinfo -p 127.0.0.1 | awk '$1 == 100171 {print $4}' >$LAB/port");
    return static_cast<uint16_t>(std::stoi(read_file(lab::value("LAB") + "/port")));
  }

  /* Connects a socket with the daemon, as nothing of the client API would. */
  static void connect_to_daemon(int fd, uint16_t port) {
    const sockaddr_in address = {AF_INET, htons(port), {htonl(INADDR_LOOPBACK)}, {}};
    ASSERT_EQ(connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  }

  void append(const std::string& name, const std::string& text) const {
    FILE* file = fopen(log(name).c_str(), "ae");
    if (file == nullptr || fputs(text.c_str(), file) == EOF || fclose(file) != 0)
      throw std::runtime_error("cannot append");
  }

  /* Returns lines of so many bytes in all, each of them another one. */
  static std::string many_lines(size_t size) {
    std::string lines;
    for (int line = 1; lines.size() < size; ++line) {
      lines += "line " + std::to_string(line) + " of a service that has much to say\n";
    }
    return lines;
  }

  /* Until it is deleted, what takes ten milliseconds takes two seconds: time to do something in the middle. */
  static void slow_the_network() {
    lab::change_machine("tc qdisc add dev lo root tbf rate 80mbit burst 256k latency 50ms");
  }

  /* Waits until a section's last item stands half in the archive. Nothing of it may be there before. */
  static void wait_until_half_is_sent(const std::string& section) {
    wait_until("some bytes of an item are there", [&section] {
      const std::vector<std::string> names = items(section);
      return !names.empty() && std::filesystem::file_size(lab::archived(section + "/" + names.back())) > 1000000;
    });
  }

  static std::set<std::filesystem::path> entries(const std::filesystem::path& directory) {
    std::error_code none; /* where a test that has failed has moved it away */
    return {std::filesystem::directory_iterator(directory, none), std::filesystem::directory_iterator()};
  }

  static void remove_all_but(const std::set<std::filesystem::path>& kept, const std::filesystem::path& directory) {
    std::error_code none; /* of what the test has mounted */
    for (const auto& entry : entries(directory)) {
      if (kept.count(entry) == 0) std::filesystem::remove_all(entry, none);
    }
  }

  const std::set<std::filesystem::path> found = entries(lab::value("LAB"));
  const std::string logs = lab::value("LAB") + "/logs";
  const std::string config_file = lab::value("LAB") + "/tavrend.conf";
  const std::string state = lab::value("LAB") + "/state";
  pid_t daemon = -1;
};

#endif
