#include <gtest/gtest.h>
#include <rpc/rpc.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <stdexcept>
#include <string>

#include "support/files.h"
#include "support/own_machine.h"
#include "support/private_tmp.h"
#include "support/real_function.h"
#include "support/temporary_directory.h"
#include "tavren_api.h"

/* As in the other tests of the program number, no client is created: what counts is which one was asked for. */
namespace {

rpcprog_t asked = 0;
std::string made; /* the directory that was made last */

}  // namespace

STANDS_BEFORE_THE_REAL_ONE CLIENT* clnt_create(const char*, rpcprog_t program, rpcvers_t, const char*) {
  asked = program;
  return nullptr;
}

/* A directory in the real root would stay there. */
STANDS_BEFORE_THE_REAL_ONE int mkdir(const char* path, mode_t) noexcept {
  made = path;
  return 0;
}

namespace {

/* A machine with a number file in the place where one without TAVREN_HOME would look. */
class UsualNumber : public testing::Test {
 protected:
  UsualNumber() {
    need_own_machine("a /tmp of its own");
    if (!enter_private_tmp()) throw std::runtime_error("no /tmp of our own");
    write_file("/tmp/tavrend_rpc_num", "100172\n");
    unsetenv("TAVREN_HOME");
  }

  static rpcprog_t open() {
    tavren_api_handle_t handle{};
    tavren_api_open(&handle);
    return asked;
  }
};

TEST_F(UsualNumber, IsUsedWithoutAHomeWhateverTheFileHolds) { EXPECT_EQ(open(), 100171U); }

TEST_F(UsualNumber, StaysWhenTheHomeComesAfterTheFirstOpening) {
  open();
  const TemporaryDirectory home;
  setenv("TAVREN_HOME", home.path().c_str(), 1);
  EXPECT_EQ(open(), 100171U);
}

/* It is a home like any other, and the number is looked for there. */
TEST_F(UsualNumber, IsNotForAnEmptyHome) {
  setenv("TAVREN_HOME", "", 1);
  open();
  EXPECT_EQ(made, "/tavren_tmp");
}

}  // namespace
