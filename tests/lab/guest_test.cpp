#include <gtest/gtest.h>
#include <locale.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <set>
#include <string>

#include "lab/lab.h"

namespace {

/* Returns the names in a directory that the kernel makes up. */
std::set<std::string> names_in(const std::string& directory) {
  std::set<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(directory)) names.insert(entry.path().filename());
  return names;
}

/* What belongs to the host program: the library is a guest there. */
std::map<std::string, std::string> house() {
  std::map<std::string, std::string> state;
  for (int number = 1; number < NSIG; ++number) {
    struct sigaction action {};
    if (sigaction(number, nullptr, &action) != 0) continue;
    void (*const handler)(int) = action.sa_handler;
    state["signal " + std::to_string(number)] = (handler == SIG_DFL   ? "default"
                                                 : handler == SIG_IGN ? "ignored"
                                                                      : "handled") +
                                                std::to_string(action.sa_flags);
  }
  sigset_t blocked;
  sigemptyset(&blocked);
  pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
  for (int number = 1; number < NSIG; ++number) {
    if (sigismember(&blocked, number) == 1) state["blocked"] += std::to_string(number) + " ";
  }
  for (char** variable = environ; *variable != nullptr; ++variable)
    state["environment"] += *variable + std::string("\n");
  state["locale"] = setlocale(LC_ALL, nullptr);
  state["directory"] = std::filesystem::current_path();
  const mode_t mask = umask(0);
  umask(mask);
  state["umask"] = std::to_string(mask);
  for (const std::string& thread : names_in("/proc/self/task")) state["threads"] += thread + " ";
  return state;
}

class Guest : public LabTest {};

TEST_F(Guest, StartsNoThreadAndLeavesTheHousesStateAlone) {
  umask(027);
  signal(SIGPIPE, SIG_IGN);
  const std::map<std::string, std::string> before = house();
  Settings settings = lab::settings();
  settings.host_key = lab::value("LAB_HOST_KEY");
  TavrenHost& host = session(settings, true);

  host.open_connection();
  EXPECT_EQ(house(), before);
  host.run_and_expect_line("echo works", "works");
  EXPECT_EQ(house(), before);
  host.start_send_file("file", 1, 0644);
  EXPECT_EQ(house(), before);
  host.continue_send_file("x", 1);
  host.end_send_file();
  host.close_connection();
  EXPECT_EQ(house(), before);
}

TEST_F(Guest, LeavesNoDescriptorBehindAfterAnySession) {
  lab::system_log(); /* the C library keeps its way to the log open */
  const std::set<std::string> before = names_in("/proc/self/fd");
  TavrenHost& host = session(lab::settings(), true);
  host.open_connection();
  EXPECT_NE(names_in("/proc/self/fd"), before);
  host.send_data("x", 1, "file", 0644);
  host.close_connection();
  EXPECT_EQ(names_in("/proc/self/fd"), before);

  lab::stop_sshd();
  TavrenHost& refused = session(lab::settings(), true);
  error_of([&refused] { refused.open_connection(); });
  refused.close_connection();
  EXPECT_EQ(names_in("/proc/self/fd"), before);
}

}  // namespace
