#ifndef TESTS_TOOLS_CTL_FIXTURE_H
#define TESTS_TOOLS_CTL_FIXTURE_H

#include <stdlib.h>
#include <sys/wait.h>

#include <string>

#include "daemon/daemon_fixture.h"

/* tavren_ctl, as a person or a script would run it, beside a daemon whose answers a test sets. */
class TavrenCtl : public DaemonTest {
 protected:
  /* Runs it, with settings of environment variables in front. Returns its exit status. */
  static int ctl(const std::string& arguments, const std::string& environment = "") {
    return exit_status(environment + " " TAVREN_CTL " " + arguments + " >$LAB/out 2>$LAB/err");
  }

  /* Returns what it prints when it succeeds; otherwise its exit status and what it says on the error output. */
  static std::string shown_by(const std::string& arguments) {
    const int status = ctl(arguments);
    return status == 0 ? out() : std::to_string(status) + ": " + err();
  }

  /* Returns its JSON as Python reads it, members by name, all of it ASCII. */
  static std::string json(const std::string& arguments) {
    static const char normalise[] =
        " | python3 -c 'import json, sys; print(json.dumps(json.loads(sys.stdin.buffer.read().decode()), "
        "sort_keys=True))'";
    EXPECT_EQ(exit_status(TAVREN_CTL " " + arguments + normalise + " >$LAB/out 2>$LAB/err"), 0) << err();
    return out();
  }

  static int exit_status(const std::string& command) {
    const int status = system(command.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  static std::string out() { return read_file(std::string(getenv("LAB")) + "/out"); }
  static std::string err() { return read_file(std::string(getenv("LAB")) + "/err"); }

  /* A daemon that archives, with those words about its compartments: space used, items waiting and archived. */
  void archives(const std::string& audit, const std::string& logs) {
    answer("get_state", "1");
    answer("is_tavrend_sleeping", "1");
    answer("get_archive_host", "h");
    answer("get_archive_directory", "/d");
    answer("get_status", "0\n1\n" + audit + "\n" + logs + "\n");
  }

  /* The configuration, with those limits. */
  void has_limits(const std::string& audit, const std::string& logs) {
    answer("get_config", "h\n/d\nu\nsecret\nssh-x AA\nSHA256:x\n" + audit + "\n" + logs + "\n");
  }
};

#endif
