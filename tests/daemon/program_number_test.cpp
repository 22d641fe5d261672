#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <utility>

#include "support/files.h"
#include "support/own_machine.h"
#include "support/private_tmp.h"
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
std::string made;  /* the directory below the real root that was to be made last */

}  // namespace

STANDS_BEFORE_THE_REAL_ONE CLIENT* clnt_create(const char* host, rpcprog_t program, rpcvers_t version,
                                               const char* netid) {
  asked += std::string(host) + " " + std::to_string(program) + " " + std::to_string(version) + " " + netid + "\n";
  return nullptr;
}

/* A directory in the real root would stay there. */
STANDS_BEFORE_THE_REAL_ONE int mkdir(const char* path, mode_t mode) noexcept {
  if (strrchr(path, '/') != path) return real<int(const char*, mode_t)>("mkdir")(path, mode);
  made = path;
  return 0;
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

  /* Returns what action shows in a process that has opened no connection so far, without TAVREN_HOME and with it. */
  static std::string fresh(const std::function<std::string()>& action) {
    return run_in_child([&] {
             unsetenv("TAVREN_HOME");
             fputs(action().c_str(), stdout);
           })
        .out;
  }
  std::string fresh_at_home(const std::function<std::string()>& action) const {
    return fresh([&] {
      set_home();
      return action();
    });
  }

  const std::string usual = "localhost 100171 1 tcp\n";
  TemporaryDirectory home;
};

TEST_F(ProgramNumber, IsTheUsualOneWithoutAHome) {
  name_number("100172\n");
  EXPECT_EQ(fresh(open), usual);
}

/* Of its first 63 characters; whatever it is, when there is one. */
TEST_F(ProgramNumber, IsThatOfTheFileWithAHomeAndTheUsualOneWhenItHasNone) {
  const std::pair<std::string, const char*> numbers[] = {{"100200\n", "100200"},
                                                         {"0x1874c\n", "100172"},
                                                         {"0303514\n", "100172"},
                                                         {"100200  \n", "100200"},
                                                         {"100200", "100200"},
                                                         {"0\n", "0"},
                                                         {"-1\n", "4294967295"},
                                                         {"2147483647\n", "2147483647"},
                                                         {"100200x\n", "100171"},
                                                         {"", "100171"},
                                                         {"\n", "100171"},
                                                         {"one\n", "100171"},
                                                         {"100200\n100201\n", "100200"},
                                                         {std::string(58, '0') + "77777777777\n", "32767"}};
  for (const auto& [content, number] : numbers) {
    name_number(content);
    EXPECT_EQ(fresh_at_home(open), "localhost " + std::string(number) + " 1 tcp\n") << content;
  }
}

TEST_F(ProgramNumber, IsTheUsualOneWithoutAFileAndForADirectoryInItsPlace) {
  EXPECT_EQ(fresh_at_home(open), usual);
  std::filesystem::create_directory(home.path("tavren_tmp/tavrend_rpc_num"));
  EXPECT_EQ(fresh_at_home(open), usual);
}

TEST_F(ProgramNumber, IsTheUsualOneWhenTheFileMayNotBeRead) {
  name_number("100200\n");
  const std::string file = home.path("tavren_tmp/tavrend_rpc_num");
  chmod(file.c_str(), 0);
  chmod(home.path().c_str(), 0755);
  EXPECT_EQ(fresh_at_home([&] {
              const bool may_not = seteuid(65534) == 0 && ::open(file.c_str(), O_RDONLY) == -1 && errno == EACCES;
              return may_not ? open() : "it may be read";
            }),
            usual);
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
  EXPECT_EQ(fresh_at_home([&] {
              tavren_get_tmp_root();
              setenv("TAVREN_HOME", home.path("elsewhere").c_str(), 1);
              return open();
            }),
            "localhost 100200 1 tcp\n");
}

TEST_F(ProgramNumber, IsReadAtEachOpening) {
  name_number("100200\n");
  EXPECT_EQ(fresh_at_home([&] {
              const std::string first = open();
              name_number("100201\n");
              return first + open();
            }),
            "localhost 100200 1 tcp\nlocalhost 100201 1 tcp\n");
}

TEST_F(ProgramNumber, StaysTheUsualOneWhenTheHomeComesAfterTheFirstOpening) {
  name_number("100200\n");
  EXPECT_EQ(fresh([&] {
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
  EXPECT_EQ(fresh_at_home([] {
              open();
              unsetenv("TAVREN_HOME");
              return open();
            }),
            "localhost 100200 1 tcp\n");
}

/* It is a home like any other, and the number is looked for there. */
TEST_F(ProgramNumber, IsNotTheUsualOneForAnEmptyHome) {
  setenv("TAVREN_HOME", "", 1);
  open();
  EXPECT_EQ(made, "/tavren_tmp");
}

/* With a number file in the place where a machine without TAVREN_HOME would look. */
TEST(UsualNumber, IsUsedWithoutAHomeAndStaysWhenOneComes) {
  need_own_machine("a /tmp of its own");
  ASSERT_TRUE(enter_private_tmp());
  write_file("/tmp/tavrend_rpc_num", "100172\n");
  unsetenv("TAVREN_HOME");
  for (int i = 0; i < 2; ++i) {
    tavren_api_handle_t handle{};
    tavren_api_open(&handle);
    setenv("TAVREN_HOME", "/tmp/home", 1);
  }
  EXPECT_EQ(asked, "localhost 100171 1 tcp\nlocalhost 100171 1 tcp\n");
}

}  // namespace
