#include "tavren_assert.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>

#include <string>

#include "core/buffered_streams.h"
#include "support/run_in_child.h"

/* The program's name and the abort information are never reset, so everything that sets them runs in a child. */
namespace {

std::string name_after_setting(const std::string& path) {
  return run_in_child([&] {
           tavren_set_program_name(path.c_str());
           fputs(tavren_get_program_name(), stdout);
         })
      .out;
}

TEST(ProgramName, IsErrorUntilItIsSet) { EXPECT_STREQ(tavren_get_program_name(), "error"); }

TEST(ProgramName, IsThePartAfterTheLastSlash) { EXPECT_EQ(name_after_setting("/usr/sbin/tavrend"), "tavrend"); }

TEST(ProgramName, WithoutASlashIsTheWholePath) { EXPECT_EQ(name_after_setting("setarchive"), "setarchive"); }

TEST(ProgramName, AfterASlashAtTheEndIsEmpty) { EXPECT_EQ(name_after_setting("/usr/sbin/"), ""); }

TEST(ProgramName, IsCutTo31Characters) {
  const std::string name = "0123456789012345678901234567890123456789";
  EXPECT_EQ(name_after_setting("/bin/" + name), name.substr(0, 31));
}

TEST(ProgramName, Of31CharactersStaysWhole) {
  EXPECT_EQ(name_after_setting("0123456789012345678901234567890"), "0123456789012345678901234567890");
}

TEST(ProgramName, IsACopy) {
  const Outcome outcome = run_in_child([] {
    char path[] = "first";
    tavren_set_program_name(path);
    path[0] = 'x';
    fputs(tavren_get_program_name(), stdout);
  });
  EXPECT_EQ(outcome.out, "first");
}

TEST(ProgramName, MayBeSetToItself) {
  const Outcome outcome = run_in_child([] {
    tavren_set_program_name("/bin/prog");
    tavren_set_program_name(tavren_get_program_name());
    fputs(tavren_get_program_name(), stdout);
  });
  EXPECT_EQ(outcome.out, "prog") << outcome.err;
}

TEST(ProgramName, IsTakenFromTheLastCall) {
  const Outcome outcome = run_in_child([] {
    tavren_set_program_name("a_long_name");
    tavren_set_program_name("short");
    fputs(tavren_get_program_name(), stdout);
  });
  EXPECT_EQ(outcome.out, "short");
}

TEST(Assertion, ShowsItsExpressionSourceAndLine) {
  const Outcome outcome = run_in_child([] { _tavren_assert("a == b", "f", 12); });
  EXPECT_EQ(outcome.err, "\nASSERTION ERROR (f:12)\nassertion failed: a == b\n");
}

TEST(Assertion, Aborts) {
  EXPECT_TRUE(run_in_child([] { _tavren_assert("a == b", "f", 12); }).killed_by(SIGABRT));
}

TEST(Assertion, TakesNoFormatFromItsExpression) {
  const Outcome outcome = run_in_child([] { _tavren_assert("a %s %d", "f", 12); });
  EXPECT_EQ(outcome.err, "\nASSERTION ERROR (f:12)\nassertion failed: a %s %d\n");
}

TEST(Abort, ShowsEmptyInformationWhenNoneIsSet) {
  const Outcome outcome = run_in_child([] { _tavren_abort("message"); });
  EXPECT_EQ(outcome.err, "\n (:0)\nmessage\n");
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
  const std::string message(200, 'm');
  const Outcome outcome = run_in_child([&] { _tavren_abort("%s", message.c_str()); });
  EXPECT_EQ(outcome.err, "\n (:0)\n" + message.substr(0, 159) + "\n");
}

TEST(Abort, ShowsAMessageOf159BytesWhole) {
  const std::string message(159, 'm');
  const Outcome outcome = run_in_child([&] { _tavren_abort("%s", message.c_str()); });
  EXPECT_EQ(outcome.err, "\n (:0)\n" + message + "\n");
}

TEST(Abort, FlushesTheBufferedStreamsFirst) {
  const Outcome outcome = run_in_child([] {
    leave_texts_in_the_buffers();
    _tavren_abort("message");
  });
  EXPECT_EQ(outcome.err, "to standard output,to standard error,\n (:0)\nmessage\n");
}

TEST(Abort, ShowsItsDiagnosticWhenTheBufferedStreamsAreUnusable) {
  const Outcome outcome = run_in_child([] {
    make_streams_unusable();
    _tavren_abort("message");
  });
  EXPECT_EQ(outcome.err, "\n (:0)\nmessage\n");
}

void say_goodbye() { fputs("exit handlers ran", stdout); }

TEST(SuppressedAbort, IsOffAtTheStart) {
  EXPECT_FALSE(tavren_suppress_abort);
  EXPECT_EQ(sizeof tavren_suppress_abort, 1U);
}

TEST(SuppressedAbort, ExitsWithStatusZeroAfterTheDiagnostic) {
  const Outcome outcome = run_in_child([] {
    tavren_suppress_abort = true;
    _tavren_assert("a == b", "f", 12);
  });
  EXPECT_TRUE(outcome.exited_with(0)) << outcome.wait_status;
  EXPECT_EQ(outcome.err, "\nASSERTION ERROR (f:12)\nassertion failed: a == b\n");
}

TEST(SuppressedAbort, RunsTheExitHandlers) {
  const Outcome outcome = run_in_child([] {
    atexit(say_goodbye);
    tavren_suppress_abort = true;
    _tavren_abort("message");
  });
  EXPECT_EQ(outcome.out, "exit handlers ran");
}

TEST(NotSuppressedAbort, RunsNoExitHandlers) {
  const Outcome outcome = run_in_child([] {
    atexit(say_goodbye);
    _tavren_abort("message");
  });
  EXPECT_EQ(outcome.out, "");
}

}  // namespace
