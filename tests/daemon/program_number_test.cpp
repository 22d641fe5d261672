#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "support/files.h"
#include "support/own_machine.h"
#include "support/real_function.h"
#include "support/run_in_child.h"
#include "support/temporary_directory.h"
#include "tavren_basic.h"
#include "tavren_rpc.h"

/*
 * This program creates the library's RPC clients itself, and creates none: what it looks at is where they were to be
 * connected.
 */
namespace {

std::string asked; /* for what, one line for each client */

}  // namespace

STANDS_BEFORE_THE_REAL_ONE CLIENT* clnt_create(const char* host, rpcprog_t program, rpcvers_t version,
                                               const char* netid) {
  asked += std::string(host) + " " + std::to_string(program) + " " + std::to_string(version) + " " + netid + "\n";
  return nullptr;
}

namespace {

class ProgramNumber : public testing::Test {
 protected:
  ProgramNumber() { std::filesystem::create_directory(home.path("tavren_tmp")); }

  void name_number(const std::string& content) const { write_file(home.path("tavren_tmp/tavrend_rpc_num"), content); }
  void set_home() const { setenv("TAVREN_HOME", home.path().c_str(), 1); }

  static std::string open() {
    tavren_api_handle_t handle{};
    EXPECT_EQ(tavren_api_open(&handle), TAVREN_API_E_CONNECT);
    const std::string result = asked;
    asked.clear();
    return result;
  }

  /* Returns what action shows in a process that has opened no connection so far. */
  static std::string fresh(const std::function<std::string()>& action) {
    return run_in_child([&] { fputs(action().c_str(), stdout); }).out;
  }

  /* Returns what a first opening asks for, with TAVREN_HOME set and that content of the file. */
  std::string number_of(const std::string& content) const {
    name_number(content);
    return fresh([&] {
      set_home();
      return open();
    });
  }

  const std::string usual = "localhost 100171 1 tcp\n";
  TemporaryDirectory home;
};

TEST_F(ProgramNumber, IsTheUsualOneWithoutAHome) {
  name_number("100172\n");
  EXPECT_EQ(fresh([] {
              unsetenv("TAVREN_HOME");
              return open();
            }),
            usual);
}

TEST_F(ProgramNumber, IsThatOfTheFileWithAHome) {
  EXPECT_EQ(number_of("100200\n"), "localhost 100200 1 tcp\n");
  EXPECT_EQ(number_of("0x1874c\n"), "localhost 100172 1 tcp\n");
  EXPECT_EQ(number_of("0303514\n"), "localhost 100172 1 tcp\n");
  EXPECT_EQ(number_of("100200  \n"), "localhost 100200 1 tcp\n");
  EXPECT_EQ(number_of("100200"), "localhost 100200 1 tcp\n");
  EXPECT_EQ(number_of("100200\n100201\n"), "localhost 100200 1 tcp\n");
}

TEST_F(ProgramNumber, IsNotCheckedForItsRange) {
  EXPECT_EQ(number_of("0\n"), "localhost 0 1 tcp\n");
  EXPECT_EQ(number_of("-1\n"), "localhost 4294967295 1 tcp\n");
  EXPECT_EQ(number_of("2147483647\n"), "localhost 2147483647 1 tcp\n");
}

TEST_F(ProgramNumber, IsTheUsualOneWhenTheFileHasNone) {
  EXPECT_EQ(number_of("100200x\n"), usual);
  EXPECT_EQ(number_of(""), usual);
  EXPECT_EQ(number_of("\n"), usual);
  EXPECT_EQ(number_of("one\n"), usual);
}

TEST_F(ProgramNumber, IsTheUsualOneWithoutAFile) {
  EXPECT_EQ(fresh([&] {
              set_home();
              return open();
            }),
            usual);
}

TEST_F(ProgramNumber, IsTheUsualOneWhenTheFileIsADirectory) {
  std::filesystem::create_directory(home.path("tavren_tmp/tavrend_rpc_num"));
  EXPECT_EQ(fresh([&] {
              set_home();
              return open();
            }),
            usual);
}

TEST_F(ProgramNumber, IsTheUsualOneWhenTheFileMayNotBeRead) {
  name_number("100200\n");
  const std::string file = home.path("tavren_tmp/tavrend_rpc_num");
  chmod(file.c_str(), 0);
  chmod(home.path().c_str(), 0755);
  EXPECT_EQ(fresh([&]() -> std::string {
              set_home();
              if (seteuid(65534) != 0 || ::open(file.c_str(), O_RDONLY) != -1 || errno != EACCES)
                return "it may be read";
              return open();
            }),
            usual);
}

TEST_F(ProgramNumber, IsReadFromTheFirst63Characters) {
  EXPECT_EQ(number_of(std::string(58, '0') + "77777777777\n"), "localhost 32767 1 tcp\n");
}

TEST_F(ProgramNumber, IsReadBelowALongHome) {
  const std::string deep = home.path(std::string(200, 'd') + "/" + std::string(200, 'e'));
  std::filesystem::create_directories(deep + "/tavren_tmp");
  write_file(deep + "/tavren_tmp/tavrend_rpc_num", "100200\n");
  EXPECT_EQ(fresh([&] {
              setenv("TAVREN_HOME", deep.c_str(), 1);
              return open();
            }),
            "localhost 100200 1 tcp\n");
}

TEST_F(ProgramNumber, IsReadInTheTemporaryRootThatTheProcessHas) {
  name_number("100200\n");
  EXPECT_EQ(fresh([&] {
              set_home();
              tavren_get_tmp_root();
              setenv("TAVREN_HOME", home.path("elsewhere").c_str(), 1);
              return open();
            }),
            "localhost 100200 1 tcp\n");
}

TEST_F(ProgramNumber, IsReadAtEachOpening) {
  name_number("100200\n");
  EXPECT_EQ(fresh([&] {
              set_home();
              const std::string first = open();
              name_number("100201\n");
              return first + open();
            }),
            "localhost 100200 1 tcp\nlocalhost 100201 1 tcp\n");
}

TEST_F(ProgramNumber, StaysTheUsualOneWhenTheHomeComesAfterTheFirstOpening) {
  name_number("100200\n");
  EXPECT_EQ(fresh([&] {
              unsetenv("TAVREN_HOME");
              const std::string first = open();
              set_home();
              return first + open();
            }),
            usual + usual);
}

TEST_F(ProgramNumber, StaysTheUsualOneAlsoAfterAFirstOpeningWithoutRpcServices) {
  need_own_machine("an rpcbind that listens on every address");
  name_number("100200\n");
  ASSERT_EQ(system("pkill -x rpcbind; while pgrep -x rpcbind >/dev/null; do sleep 0.01; done"), 0);
  EXPECT_EQ(fresh([&] {
              unsetenv("TAVREN_HOME");
              std::string result = open();
              EXPECT_EQ(system("rpcbind"), 0);
              set_home();
              while (result.empty()) result = open();
              return result;
            }),
            usual);
}

TEST_F(ProgramNumber, IsStillReadWhenTheHomeGoesAfterTheFirstOpening) {
  name_number("100200\n");
  EXPECT_EQ(fresh([&] {
              set_home();
              open();
              unsetenv("TAVREN_HOME");
              return open();
            }),
            "localhost 100200 1 tcp\n");
}

}  // namespace
