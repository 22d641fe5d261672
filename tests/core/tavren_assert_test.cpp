#include "tavren_assert.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>

#include <functional>
#include <string>

#include "core/buffered_streams.h"
#include "support/run_in_child.h"

/* The program's name and the abort information are never reset, so everything that sets them runs in a child. */
namespace {

/* Returns what a child shows on its standard error. */
std::string diagnostic_of(const std::function<void()>& action) { return run_in_child(action).err; }

/* Returns the program's name in a child that has set it. */
std::string name_after(const std::function<void()>& set) {
  return run_in_child([&] {
           set();
           fputs(tavren_get_program_name(), stdout);
         })
      .out;
}

std::string name_after_setting(const std::string& path) {
  return name_after([&] { tavren_set_program_name(path.c_str()); });
}

TEST(ProgramName, IsErrorUntilItIsSet) { EXPECT_STREQ(tavren_get_program_name(), "error"); }

TEST(ProgramName, IsThePartAfterTheLastSlashCutTo31Characters) {
  const std::string longest = "0123456789012345678901234567890";
  EXPECT_EQ(name_after_setting("/usr/sbin/tavrend"), "tavrend");
  EXPECT_EQ(name_after_setting("setarchive"), "setarchive");
  EXPECT_EQ(name_after_setting("/usr/sbin/"), "");
  EXPECT_EQ(name_after_setting("/bin/" + longest + "123456789"), longest);
  EXPECT_EQ(name_after_setting(longest), longest);
}

TEST(ProgramName, IsACopy) {
  EXPECT_EQ(name_after([] {
              char path[] = "first";
              tavren_set_program_name(path);
              path[0] = 'x';
            }),
            "first");
}

TEST(ProgramName, MayBeSetToItselfAndAgain) {
  EXPECT_EQ(name_after([] {
              tavren_set_program_name("/bin/prog");
              tavren_set_program_name(tavren_get_program_name());
            }),
            "prog");
  EXPECT_EQ(name_after([] {
              tavren_set_program_name("a_long_name");
              tavren_set_program_name("short");
            }),
            "short");
}

TEST(Assertion, TakesNoFormatFromItsExpression) {
  EXPECT_EQ(diagnostic_of([] { _tavren_assert("a %s %d", "f", 12); }),
            "\nASSERTION ERROR (f:12)\nassertion failed: a %s %d\n");
}

TEST(Abort, ShowsTheInformationThatWasSetAndTheFormattedMessage) {
  const Outcome outcome = run_in_child([] {
    _tavren_set_abort_info("A KIND", "source", -3);
    _tavren_abort("%s=%d", "number", 7);
  });
  EXPECT_EQ(outcome.err, "\nA KIND (source:-3)\nnumber=7\n");
  EXPECT_TRUE(outcome.killed_by(SIGABRT));
}

TEST(Abort, KeepsItsInformationAsPointers) {
  const Outcome outcome = run_in_child([] {
    static char kind[] = "before";
    static char file[] = "here";
    _tavren_set_abort_info(kind, file, 1);
    snprintf(kind, sizeof kind, "after");
    snprintf(file, sizeof file, "f");
    _tavren_abort("message");
  });
  EXPECT_EQ(outcome.err, "\nafter (f:1)\nmessage\n");
}

TEST(Abort, CutsItsHeaderTo79Bytes) {
  const Outcome outcome = run_in_child([] {
    static const std::string kind(100, 'k');
    _tavren_set_abort_info(kind.c_str(), "f", 1);
    _tavren_abort("message");
  });
  EXPECT_EQ(outcome.err, "\n" + std::string(79, 'k') + "message\n");
}

TEST(Abort, CutsItsMessageTo159Bytes) {
  const std::string longest(159, 'm');
  for (const std::string& message : {longest, longest + "and more"}) {
    EXPECT_EQ(diagnostic_of([&] { _tavren_abort("%s", message.c_str()); }), "\n (:0)\n" + longest + "\n");
  }
}

TEST(Abort, FlushesTheBufferedStreamsFirstIfItCanAndShowsItsDiagnostic) {
  for (const auto& [prepare, before] : states_of_the_streams) {
    EXPECT_EQ(diagnostic_of([prepare = prepare] {
                prepare();
                _tavren_abort("message");
              }),
              std::string(before) + "\n (:0)\nmessage\n");
  }
}

TEST(SuppressedAbort, IsOffAtTheStart) {
  EXPECT_FALSE(tavren_suppress_abort);
  EXPECT_EQ(sizeof tavren_suppress_abort, 1U);
}

TEST(Assertion, ShowsItsExpressionAndAbortsOrExitsWhereThatIsSuppressed) {
  for (const bool suppressed : {false, true}) {
    const Outcome outcome = run_in_child([suppressed] {
      atexit([] { fputs("exit handlers ran", stdout); });
      tavren_suppress_abort = suppressed;
      _tavren_assert("a == b", "f", 12);
    });
    EXPECT_EQ(outcome.err, "\nASSERTION ERROR (f:12)\nassertion failed: a == b\n");
    EXPECT_EQ(outcome.out, suppressed ? "exit handlers ran" : "");
    EXPECT_TRUE(suppressed ? outcome.exited_with(0) : outcome.killed_by(SIGABRT)) << outcome.wait_status;
  }
}

}  // namespace
