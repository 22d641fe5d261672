#include <gtest/gtest.h>
#include <stdio.h>

#include <functional>
#include <ostream>
#include <streambuf>
#include <string>
#include <utility>

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

TEST(CommandTableLock, IsHeldWhileACommandIsLookedUpOrSetAndWhileCommandsAreLoaded) {
  const std::string text = "ls=" + long_text + "\n";
  std::string message;
  const std::pair<const char*, std::function<void()>> accesses[] = {
      {"looked up", look_up}, /* which allocates the copy that it returns */
      {"set", [&] { TavrenHost::set_cmd("ls", long_text, message); }},
      {"loaded", [&] { TavrenHost::set_cmds(text); }},
  };
  for (const auto& [what, access] : accesses) {
    SCOPED_TRACE(what);
    expect_lock([&text, &do_access = access] {
      TavrenHost::set_cmds(text);
      failing_memory::at_each_allocation(look_up);
      do_access();
    });
  }
}

TEST(CommandTableLock, IsHeldWhileCommandsArePrinted) {
  for (const auto print : {TavrenHost::print_cmds, TavrenHost::print_cmd_table}) {
    expect_lock([print] {
      LookingUpBuffer buffer;
      std::ostream out(&buffer);
      print(out);
    });
  }
}
