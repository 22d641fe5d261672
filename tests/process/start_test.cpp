#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <type_traits>
#include <utility>

#include "TavrenProcess.h"
#include "process/children.h"
#include "process/observe.h"
#include "support/temporary_directory.h"

using namespace std::string_literals;

static_assert(!std::is_copy_constructible_v<TavrenProcess> && !std::is_copy_assignable_v<TavrenProcess>);
static_assert(!std::is_polymorphic_v<TavrenProcess>);

TEST(Start, ArgumentsArriveAsGivenAndInOrder) {
  TavrenProcess child("/bin/sh",
                      {"-c", "for a; do printf '<%s>\\n' \"$a\"; done; echo end", "sh", "", "a b", "--", "*", "$HOME",
                       "line\nline", "\xc3\xa9'\"\\", ""},
                      false);
  const std::string expected = "<>\n<a b>\n<-->\n<*>\n<$HOME>\n<line\nline>\n<\xc3\xa9'\"\\>\n<>\nend\n";
  EXPECT_EQ(all_output(child), expected);
}

TEST(Start, NoArgumentsIsAVectorOfTheProgramAlone) {
  TavrenProcess child("/bin/sh", {}, true);
  child.send("tr '\\000' '|' </proc/$$/cmdline; exit\n", patience);
  EXPECT_EQ(all_output(child), "/bin/sh|");
}

TEST(Start, ThousandsOfArgumentsArrive) {
  std::list<std::string> arguments = {"-c", "echo $#", "sh"};
  for (int i = 0; i < 5000; ++i) arguments.push_back("argument");
  TavrenProcess child("/bin/sh", arguments, false);
  EXPECT_EQ(next_line(child), "5000");
}

TEST(Start, ArgumentZeroIsTheProgramWithoutOneWhiteSpaceCharacterAtItsEnd) {
  for (const std::string end : {"", " ", "\n", "\t", "\r", "\v", "\f"}) {
    TavrenProcess child("/bin/cat" + end, {"/proc/self/cmdline"}, false);
    EXPECT_EQ(all_output(child), "/bin/cat\0/proc/self/cmdline\0"s) << testing::PrintToString(end);
  }
}

TEST(Start, EnvironmentIsEmpty) {
  setenv("TAVREN_TEST_VARIABLE", "1", 1);
  TavrenProcess child("/bin/cat", {"/proc/self/environ"}, false);
  EXPECT_EQ(all_output(child), "");
}

TEST(Start, TwoTrailingSpacesLeaveOne) {
  const TemporaryDirectory directory;
  std::filesystem::create_symlink("/bin/cat", directory.path("cat "));
  TavrenProcess child(directory.path("cat  "), {"/proc/self/cmdline"}, false);
  EXPECT_EQ(all_output(child), directory.path("cat ") + "\0/proc/self/cmdline\0"s);
}

TEST(Start, ProgramThatCannotRunShowsInTheFirstReadWithTheSystemsReason) {
  for (const auto& [program, reason] : {std::pair{"/no-such-command", "No such file or directory"},
                                        {" /bin/cat", "No such file or directory"}, /* blanks at the front stay */
                                        {"", "No such file or directory"},
                                        {"cat", "No such file or directory"}, /* no path is searched */
                                        {"/etc/passwd", "Permission denied"}}) {
    const std::string name = program;
    EXPECT_EQ(result_of_running(name), "13(" + name + ") 12(Failed to run " + name + ": " + reason + ")");
  }
  EXPECT_EQ(result_of_running("/no-such-command "), result_of_running("/no-such-command"));
}

TEST(Start, ProgramThatCannotRunExitsWithStatusOne) {
  for (const bool separate_stdin : {false, true}) {
    TavrenProcess child("/no-such-command", {}, separate_stdin);
    const siginfo_t info = end_of_a_child();
    EXPECT_EQ(info.si_code, CLD_EXITED);
    EXPECT_EQ(info.si_status, 1);
  }
}

TEST(Start, ChildRunsInTheHostsDirectory) {
  const TemporaryDirectory directory;
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(directory.path());
  TavrenProcess child("/bin/sh", {"-c", "pwd -P"}, false);
  std::filesystem::current_path(before);
  EXPECT_EQ(next_line(child), directory.path());
}

TEST(Start, ChildIsAChildOfTheHost) {
  TavrenProcess child = shell("echo $PPID");
  EXPECT_EQ(next_line(child), std::to_string(getpid()));
}

TEST(Start, RecentLinesAreEmptyAtFirst) {
  const TavrenProcess child = shell("echo line");
  EXPECT_TRUE(child.get_recent_lines().empty());
}
