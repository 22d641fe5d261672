#ifndef TESTS_TAVREND_ARCHIVING_RUN_H
#define TESTS_TAVREND_ARCHIVING_RUN_H

#include <string>
#include <vector>

#include "plan/schedule.h"
#include "tavrend/daemon_fixture.h"

/*
 * A daemon that finds work when it starts: its archive is to be claimed, a log has grown and was rotated, and closed
 * files are waiting. The same again as often as it is wanted.
 */
class ArchivingRun : public TavrendTest {
 protected:
  /* Archives a first line, and lets all the other things happen while no daemon runs. */
  void prepare() {
    become_chassis(chassis_without_delay());
    append("messages", "one\n");
    write_file(config_file, configuration("1"));
    start_again();
    ASSERT_EQ(set_config(), 0);
    expect_archived("messages", "one\n", plain_archive_of);
    stop();
    /* Nothing is due when it is configured anew, so that the claim is left for later. */
    start(configuration("365d"));
    ASSERT_EQ(set_config(), 0);
    stop();
    write_file(config_file, configuration("1"));
    append("messages", "two\nthree\n");
    lab::run("mv " + log("messages") + " " + log("messages.1"));
    append("messages", "four\n");
    append("closed.1", closed_file);
    append("closed.2", closed_file);
    lab::run("cp -a " + state + " $LAB/state.before && cp -a $LAB_ARCHIVE $LAB/archive.before");
  }

  /* Takes back all that was done since. */
  void begin_again() const {
    lab::run("rm -rf " + state + " $LAB_ARCHIVE/* $LAB_ARCHIVE/.chassis* && cp -a $LAB/state.before " + state +
             " && cp -a $LAB/archive.before/. $LAB_ARCHIVE");
  }

  std::vector<std::string> command() const { return {TAVREND, "--config", config_file, "--state", state}; }

  /* Whether everything has arrived, and the daemon has noted it. */
  static bool is_archived() {
    return plain_archive_of("messages") == messages && archive_of("closed") == closed_file + closed_file;
  }

  void expect_everything_after_the_next_start() {
    start_again();
    expect_archived("messages", messages, plain_archive_of);
    expect_archived("closed", closed_file + closed_file);
    EXPECT_EQ(errors(), "");
    stop(SIGKILL);
  }

  static inline const std::string messages = "one\ntwo\nthree\nfour\n";
  static inline const std::string closed_file = many_lines(1000);

 private:
  std::string configuration(const std::string& interval) const {
    return "[messages]\nfollow = " + log("messages") + "\ncompress = zstd\ninterval = " + interval +
           "\n[closed]\nfiles = " + log("closed.*") + "\ninterval = " + interval + "\n";
  }

  /* Returns a name for this machine with which the first run of both comes as soon as the daemon has started. */
  static std::string chassis_without_delay() {
    constexpr int64_t soon_ms = 5;
    for (int number = 1;; ++number) {
      std::string name = "CH-" + std::to_string(number);
      if (first_delay_ms(name, "LogTypeTask.messages", 1) <= soon_ms &&
          first_delay_ms(name, "LogTypeTask.closed", 1) <= soon_ms) {
        return name;
      }
    }
  }
};

#endif
