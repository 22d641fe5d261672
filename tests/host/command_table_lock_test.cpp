#include <gtest/gtest.h>
#include <stdio.h>

#include <functional>
#include <ostream>
#include <streambuf>
#include <string>

#include "TavrenHost.h"
#include "support/failing_memory.h"
#include "support/run_in_child.h"

/*
 * That each access to the command table holds its lock: whoever looks a command up in the middle of one takes the lock
 * a second time.
 */
namespace {

const std::string long_text(100, 'x'); /* does not fit into a string object */

void look_up() { TavrenHost::get_cmd("ls"); }

void expect_lock(const std::function<void()>& access) {
  TavrenHost::reset_cmd_map();
  expect_assertion("TavrenMutex", "owner != pthread_self()", access);
}

/* Looks a command up when an entry of the table is written. */
class LookingUpBuffer : public std::streambuf {
  std::streamsize xsputn(const char* text, std::streamsize length) override {
    if (std::string(text, static_cast<size_t>(length)) == "/bin/cat ") look_up();
    return length;
  }
  int overflow(int c) override { return c == EOF ? 0 : c; }
};

}  // namespace

TEST(CommandTableLock, IsHeldWhileACommandIsLookedUp) {
  expect_lock([] {
    TavrenHost::set_cmds("ls=" + long_text + "\n");
    failing_memory::at_each_allocation(look_up); /* by the copy that is returned */
    look_up();
  });
}

TEST(CommandTableLock, IsHeldWhileACommandIsSet) {
  expect_lock([] {
    std::string message;
    failing_memory::at_each_allocation(look_up);
    TavrenHost::set_cmd("ls", long_text, message);
  });
}

TEST(CommandTableLock, IsHeldWhileCommandsAreLoaded) {
  const std::string text = "ls=" + long_text + "\n";
  expect_lock([&] {
    failing_memory::at_each_allocation(look_up);
    TavrenHost::set_cmds(text);
  });
}

TEST(CommandTableLock, IsHeldWhileCommandsArePrinted) {
  expect_lock([] {
    LookingUpBuffer buffer;
    std::ostream out(&buffer);
    TavrenHost::print_cmds(out);
  });
}

TEST(CommandTableLock, IsHeldWhileTheTableForPeopleIsPrinted) {
  expect_lock([] {
    LookingUpBuffer buffer;
    std::ostream out(&buffer);
    TavrenHost::print_cmd_table(out);
  });
}
