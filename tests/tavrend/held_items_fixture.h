#ifndef TESTS_TAVREND_HELD_ITEMS_FIXTURE_H
#define TESTS_TAVREND_HELD_ITEMS_FIXTURE_H

#include <filesystem>
#include <string>

#include "tavrend/procedures_fixture.h"

/* Items whose answers are held back as long as the test wants: the last one, when the far side has all bytes. */
class HeldItems : public Procedure {
 protected:
  /* Starts the daemon, and waits until so many bytes of the one item of section are there, with answers to it. */
  void hold(const std::string& section, const std::string& configuration, std::uintmax_t size, int answers = 2) {
    lab::run(
        "touch $LAB_ARCHIVE/../hold && cat >$LAB_ARCHIVE/../held-scp <<'END' && chmod 755 $LAB_ARCHIVE/../held-scp\n"
        "#!/bin/sh\n"
        "case $* in */*) ;; *) exec scp -q -t \"$@\" ;; esac\n"
        "scp -q -t \"$@\" | {\n"
        "  dd bs=1 count=" +
        std::to_string(answers) +
        " 2>/dev/null\n"
        "  touch ../held\n"
        "  while [ -e ../hold ]; do sleep 0.02; done\n"
        "  exec cat\n"
        "}\n"
        "END\n"
        "chown $LAB_USER $LAB_ARCHIVE/../hold");
    start(configuration);
    EXPECT_EQ(set_remote_command("scp", "../held-scp"), "");
    EXPECT_EQ(set_config(), 0);
    EXPECT_EQ(run_task("LogTypeTask." + section), 0);
    wait_until("an item", [&] {
      return std::filesystem::exists(home() / "held") && items(section).size() == 1 &&
             std::filesystem::file_size(lab::archived(section + "/" + items(section)[0])) >= size;
    });
  }

  static std::filesystem::path home() { return std::filesystem::path(lab::value("LAB_ARCHIVE")).parent_path(); }
  static void let_go() { std::filesystem::remove(home() / "hold"); }

  std::string in_a_day(const std::string& section, const std::string& what) const {
    return "[" + section + "]\n" + what + "\ninterval = 1d\n";
  }

  /* Has the killed daemon begin again, and do what it would do in a day. */
  void run_again(const std::string& section) {
    let_go();
    start_again();
    ASSERT_EQ(run_task("LogTypeTask." + section), 0);
  }

  /* Returns how many items of a daemon that has ended are on their way. */
  int intents(const std::string& which = "1") const {
    return change_state("UPDATE intent SET first = first WHERE " + which);
  }
};

#endif
