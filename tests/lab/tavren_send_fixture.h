#ifndef TESTS_LAB_TAVREN_SEND_FIXTURE_H
#define TESTS_LAB_TAVREN_SEND_FIXTURE_H

#include <stdlib.h>
#include <sys/wait.h>

#include <string>

#include "lab/lab.h"
#include "support/files.h"

/* The program, as a person or a script would run it. */
class TavrenSend : public LabTest {
 protected:
  /* Runs it with arguments, the account's password on descriptor 3. Returns its exit status. */
  int send(const std::string& arguments) { return shell(TAVREN_SEND " -p 3 " + arguments + " 3<$LAB/password"); }

  int shell(const std::string& command) {
    write_file(lab::value("LAB") + "/password", lab::value("LAB_PASSWORD") + "\n");
    const int status = system(("{ " + command + "; } >$LAB/out 2>$LAB/err </dev/null").c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  static std::string out() { return read_file(lab::value("LAB") + "/out"); }
  static std::string err() { return read_file(lab::value("LAB") + "/err"); }

  const std::string target = "$LAB_USER@$LAB_HOST:$LAB_ARCHIVE ";
};

#endif
