#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <tuple>

#include "support/files.h"
#include "support/private_tmp.h"
#include "support/run_in_child.h"
#include "tavren_assert.h"

namespace {

constexpr char first_report[] = "/tmp/tavrend_error.0";
constexpr char later_report[] = "/tmp/tavrend_error";
constexpr char sample[] = "ASSERTION ERROR (f:12)\nassertion failed: a == b\n";

/* Shows all that lies in /tmp on the standard output: mode, name and content of each file. */
void show_tmp() {
  if (system("cd /tmp && for f in *; do [ ! -f $f ] || { stat -c '%a %n' $f; cat $f; }; done") == -1) abort();
}

/* Lets a program of that name fail a check. */
void fail_a_check(const char* program, const std::string& expression = "a == b") {
  run_in_child([&] {
    tavren_set_program_name(program);
    _tavren_assert(expression.c_str(), "f", 12);
  });
}

class ReportFile : public PrivateTmpTest {
 protected:
  /* Runs action in a private /tmp and returns what show_tmp shows there after it. */
  static std::string tmp_after(const std::function<void()>& action) {
    return run_in_child([&] {
             if (!enter_private_tmp()) abort();
             umask(022);
             action();
             fflush(stdout);
             show_tmp();
           })
        .out;
  }
};

/* Everybody may put something into the report's place. */
TEST_F(ReportFile, IsThatOfTheDaemonsFirstAndOfItsLastFailure) {
  const std::string report = sample, first = "644 tavrend_error.0\n", later = "644 tavrend_error\n";
  const std::tuple<const char*, std::function<void()>, std::string> reports[] = {
      {"the first ends in zero", [] { fail_a_check("/usr/sbin/tavrend"); }, first + report},
      {"the second leaves the first one alone", [] { write_file(first_report, "the first"), fail_a_check("tavrend"); },
       later + report + first + "the first"},
      {"the third overwrites the second",
       [] {
         write_file(first_report, "the first\n");
         write_file(later_report, std::string(1000, 'x'));
         fail_a_check("tavrend");
       },
       later + report + first + "the first\n"},
      {"everybody may write it where the umask allows it", [] { umask(0), fail_a_check("tavrend"); },
       "666 tavrend_error.0\n" + report},
      {"it has the first 159 bytes of a long message", [] { fail_a_check("tavrend", std::string(200, 'm')); },
       first + "ASSERTION ERROR (f:12)\nassertion failed: " + std::string(159 - 18, 'm') + "\n"},
      {"also when abort is suppressed", [] { tavren_suppress_abort = true, fail_a_check("tavrend"); }, first + report},
      {"none of a program without a name", [] { run_in_child([] { _tavren_assert("a == b", "f", 12); }); }, ""},
      {"none of another program",
       [] {
         for (const char* program : {"tavrend2", "tavren", "Tavrend"}) fail_a_check(program);
       },
       ""},
      {"none through a link", [] { symlink("/tmp/elsewhere", first_report), fail_a_check("tavrend"); }, ""},
      {"a named pipe in its place is not waited for",
       [] {
         write_file(first_report, "the first");
         mkfifo(later_report, 0666);
         fail_a_check("tavrend");
       },
       first + "the first"}};
  for (const auto& [what, action, shown] : reports) EXPECT_EQ(tmp_after(action), shown) << what;
}

/* Notes in order which files of a directory are written and closed. */
class WrittenFiles {
 public:
  explicit WrittenFiles(const char* directory) : fd(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
    if (inotify_add_watch(fd, directory, IN_MODIFY | IN_CLOSE_WRITE) == -1) throw std::runtime_error("no watch");
  }
  ~WrittenFiles() { close(fd); }
  WrittenFiles(const WrittenFiles&) = delete;
  WrittenFiles& operator=(const WrittenFiles&) = delete;

  std::string notes() const {
    alignas(inotify_event) char events[4096];
    std::string text;
    const ssize_t length = read(fd, events, sizeof events);
    for (ssize_t place = 0; place < length;) {
      const auto* event = reinterpret_cast<const inotify_event*>(events + place);
      text += std::string(event->name) + ((event->mask & IN_MODIFY) != 0 ? " written\n" : " closed\n");
      place += static_cast<ssize_t>(sizeof *event + event->len);
    }
    return text;
  }

 private:
  int fd;
};

TEST_F(ReportFile, IsWrittenAndClosedBeforeTheBufferedStreamsAreFlushed) {
  const Outcome outcome = run_in_child([] {
    if (!enter_private_tmp()) abort();
    const WrittenFiles files("/tmp");
    run_in_child([] {
      dup2(open("/tmp/output", O_WRONLY | O_CREAT | O_CLOEXEC, 0666), STDOUT_FILENO);
      fputs("buffered", stdout);
      tavren_set_program_name("tavrend");
      _tavren_assert("a == b", "f", 12);
    });
    fputs(files.notes().c_str(), stdout);
  });
  EXPECT_EQ(outcome.out, "tavrend_error.0 written\ntavrend_error.0 closed\noutput written\noutput closed\n");
}

TEST_F(ReportFile, ThatCannotBeOpenedIsNamedBeforeTheDiagnostic) {
  const Outcome outcome = run_in_child([] {
    if (!enter_private_tmp()) exit(1);
    write_file(first_report, "the first");
    mkdir(later_report, 0755);
    tavren_set_program_name("tavrend");
    _tavren_assert("a == b", "f", 12);
  });
  EXPECT_EQ(outcome.err, "Failed to open /tmp/tavrend_error, errno=21\n\n" + std::string(sample));
  EXPECT_TRUE(outcome.killed_by(SIGABRT));
}

TEST_F(ReportFile, ThatCannotBeOpenedEndsTheProgramWhileAnotherThreadHoldsTheErrorStream) {
  const Outcome outcome = run_in_child([] {
    if (!enter_private_tmp()) exit(1);
    alarm(30);
    mkdir(first_report, 0755);
    mkdir(later_report, 0755);
    tavren_set_program_name("tavrend");
    std::thread([] { flockfile(stderr); }).join();
    _tavren_assert("a == b", "f", 12);
  });
  EXPECT_TRUE(outcome.killed_by(SIGABRT)) << outcome.wait_status;
}

}  // namespace
