#ifndef TESTS_DAEMON_DAEMON_FIXTURE_H
#define TESTS_DAEMON_DAEMON_FIXTURE_H

#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <stdexcept>
#include <string>

#include "support/files.h"
#include "tavren_api.h"
#include "tavren_basic.h"

/* A daemon in a process of its own, registered with a real rpcbind, whose answers a test sets. */
class DaemonTest : public testing::Test {
 protected:
  DaemonTest() {
    /* The answers of the test before are none of this one's. */
    std::filesystem::remove_all(directory());
    std::filesystem::create_directory(directory());
    start();
  }
  ~DaemonTest() override {
    if (server != -1) stop(SIGKILL);
  }

  static std::string directory() { return std::string(getenv("LAB")) + "/daemon"; }
  static std::string path(const std::string& name) { return directory() + "/" + name; }

  /* Starts the daemon and waits until it is registered. */
  void start(const std::string& program = "100171", const std::string& version = "1") {
    std::filesystem::remove(path("ready"));
    server = fork();
    if (server == 0) {
      execl(SERVER, SERVER, directory().c_str(), program.c_str(), version.c_str(), nullptr);
      _exit(127);
    }
    while (!std::filesystem::exists(path("ready"))) {
      if (waitpid(server, nullptr, WNOHANG) != 0) throw std::runtime_error("the server has ended");
      usleep(1000);
    }
  }

  void stop(int signal_number) {
    kill(server, signal_number);
    waitpid(server, nullptr, 0);
    server = -1;
  }

  /* Ends the daemon and takes it from the register of the RPC services. */
  void unregister() {
    stop(SIGKILL);
    ASSERT_EQ(system("rpcinfo -d 100171 1"), 0);
  }

  /* Sets the answer of a procedure. */
  static void answer(const std::string& procedure, const std::string& content) { write_file(path(procedure), content); }

  /* Tells the daemon what to do first when a procedure is called: "die", "silence" or "sleep SECONDS". */
  static void tell(const std::string& procedure, const std::string& action) {
    write_file(path(procedure + ".do"), action);
  }

  /* Returns the requests since the last call. */
  static std::string requests() {
    if (!std::filesystem::exists(path("log"))) return "";
    const std::string log = read_file(path("log"));
    std::filesystem::remove(path("log"));
    return log;
  }

  static std::string message(const tavren_api_handle_t& handle) {
    char buffer[TAVREN_API_TEXT_SIZE];
    return tavren_api_errmsg(&handle, buffer);
  }

  pid_t server = -1;
};

/* The same with an open handle. */
class ApiTest : public DaemonTest {
 protected:
  ApiTest() {
    if (tavren_api_open(&handle) != 0) throw std::runtime_error(message(handle));
  }
  ~ApiTest() override { tavren_api_close(&handle); }

  tavren_api_handle_t handle{};
};

#endif
