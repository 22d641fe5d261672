#include <gtest/gtest.h>
#include <stdio.h>

#include <functional>
#include <sstream>
#include <string>
#include <thread>
#include <tuple>

#include "TavrenHost.h"
#include "support/run_in_child.h"

namespace {

constexpr char default_table[] =
    "cat=/bin/cat \n"
    "cd=cd \n"
    "du=/usr/bin/du -sk \n"
    "head=/usr/bin/head -n 1 \n"
    "ls=/bin/ls -1 \n"
    "mkdir=/bin/mkdir -p \n"
    "rm=/bin/rm -f \n"
    "scp=scp -q -t \n"
    "sh=/bin/sh \n"
    "ssh=/usr/bin/ssh \n";

std::string table() {
  std::ostringstream out;
  TavrenHost::print_cmds(out);
  return out.str();
}

std::string table_after_a_host_is_made() {
  const TavrenHost host(false, false);
  return table();
}

/* Taken before main: a filled table is never empty again. */
const std::string table_when_loaded = table();
const std::string table_of_the_first_host = table_after_a_host_is_made();

/* Names cannot be taken out of the table again, so a test that adds one does it in a child process. */
std::string table_after(const std::function<void()>& action) {
  return run_in_child([&] {
           action();
           fputs(table().c_str(), stdout);
         })
      .out;
}

class CommandTable : public testing::Test {
 protected:
  CommandTable() { TavrenHost::reset_cmd_map(); }

  std::string message = "untouched";
};

}  // namespace

TEST_F(CommandTable, IsEmptyUntilTheFirstHostFillsItWithTheDefaults) {
  EXPECT_EQ(table_when_loaded, "");
  EXPECT_EQ(table_of_the_first_host, default_table);
}

TEST_F(CommandTable, AnotherHostLeavesItAsItIs) {
  TavrenHost::set_cmd("ls", "/opt/ls", message);
  EXPECT_NE(table_after_a_host_is_made().find("ls=/opt/ls \n"), std::string::npos);
}

TEST_F(CommandTable, ResetRestoresTheTenDefaultsAndKeepsOtherNames) {
  const std::string after = table_after([] {
    TavrenHost::set_cmds("cat=x\ncd=x\ndu=x\nhead=x\nls=x\nmkdir=x\nrm=x\nscp=x\nsh=x\nssh=x\nzip=/bin/zip \n");
    TavrenHost::reset_cmd_map();
  });
  EXPECT_EQ(after, std::string(default_table) + "zip=/bin/zip \n");
}

TEST_F(CommandTable, InitializingWithoutTheLockIsAFailedAssertion) {
  expect_assertion("TavrenHost", "cmd_map_mutex.have_lock()", [] { TavrenHost::initialize_cmd_map(); });
}

TEST_F(CommandTable, GetReturnsTheTextWithItsBlank) { EXPECT_EQ(TavrenHost::get_cmd("mkdir"), "/bin/mkdir -p "); }

TEST_F(CommandTable, GettingAnUnknownNameOrAnEmptyTextIsAFailedAssertion) {
  TavrenHost::set_cmds("ls=\n");
  for (const char* name : {"tar", "ls"}) {
    expect_assertion("TavrenHost", "result.size() != 0", [name] { TavrenHost::get_cmd(name); });
  }
}

TEST_F(CommandTable, SetAddsOneBlankToAnyTextAndLeavesTheMessageAlone) {
  for (const std::string text : {"/usr/bin/ls -1", "/usr/bin/ls ", "default"}) {
    TavrenHost::set_cmd("ls", text, message);
    EXPECT_EQ(TavrenHost::get_cmd("ls"), text + " ");
    EXPECT_EQ(message, "untouched");
  }
}

TEST_F(CommandTable, SettingAnUnknownNameSaysSoAndChangesNothing) {
  for (const std::string name : {"tar", "all"}) { /* which is known for the text "default" alone */
    TavrenHost::set_cmd(name, "defaults", message);
    EXPECT_EQ(message, "Unknown command name: \"" + name + "\".");
    EXPECT_EQ(table(), default_table);
  }
}

TEST_F(CommandTable, SettingAllToDefaultRestoresTheDefaultsAndKeepsOtherNames) {
  const std::string after = table_after([this] {
    TavrenHost::set_cmds("ls=/opt/ls \nzip=/bin/zip \n");
    TavrenHost::set_cmd("all", "default", message);
    fputs(message.c_str(), stdout);
  });
  EXPECT_EQ(after, "untouched" + std::string(default_table) + "zip=/bin/zip \n");
}

TEST_F(CommandTable, LoadingTakesLinesOfANameAndATextUntilOneIsNone) {
  const std::tuple<const char*, const char*, const char*> texts[] = {
      {"a text as it stands", "ls=  /opt/ls\n", "  /opt/ls"},
      {"split at the first equals sign", "ls=/opt/ls --color=never \n", "/opt/ls --color=never "},
      {"the last of two texts", "ls=/opt/ls \nls=/usr/bin/ls \n", "/usr/bin/ls "},
      {"up to a line without an equals sign", "ls=/opt/ls \njust words\ncat=/opt/cat \n", "/opt/ls "},
      {"up to an empty line", "ls=/opt/ls \n\ncat=/opt/cat \n", "/opt/ls "},
      {"up to a last line without a newline", "ls=/opt/ls \ncat=/opt/cat ", "/opt/ls "},
  };
  for (const auto& [what, loaded, ls] : texts) {
    SCOPED_TRACE(what);
    TavrenHost::reset_cmd_map();
    TavrenHost::set_cmds(loaded);
    EXPECT_EQ(TavrenHost::get_cmd("ls"), ls);
    EXPECT_EQ(TavrenHost::get_cmd("cat"), "/bin/cat ");
  }
}

TEST_F(CommandTable, LoadingTakesAnEmptyNameForAName) {
  const std::string after = table_after([] { TavrenHost::set_cmds("=nameless\nls=/opt/ls \n"); });
  EXPECT_EQ(after.find("=nameless\ncat=/bin/cat \n"), 0u) << after;
  EXPECT_NE(after.find("\nls=/opt/ls \n"), std::string::npos) << after;
}

TEST_F(CommandTable, LoadingAnEmptyTextChangesNothing) {
  TavrenHost::set_cmds("");
  EXPECT_EQ(table(), default_table);
}

TEST_F(CommandTable, WhatIsPrintedLoadsToTheSameTable) {
  TavrenHost::set_cmds("ls=/opt/ls --color=never \n");
  const std::string printed = table();
  TavrenHost::reset_cmd_map();
  TavrenHost::set_cmds(printed);
  EXPECT_EQ(table(), printed);
}

TEST_F(CommandTable, LoadingAddsNewNamesWhichArePrintedInTheOrderOfTheirBytes) {
  const std::string after = table_after([] { TavrenHost::set_cmds("zip=1\n\xc3\xa4=2\nZ=3\n"); });
  EXPECT_EQ(after, "Z=3\n" + std::string(default_table) + "zip=1\n\xc3\xa4=2\n");
}

TEST_F(CommandTable, PrintsATableForPeopleThatCutsNoLongName) {
  const Outcome outcome = run_in_child([] {
    TavrenHost::set_cmds("name-of-16-bytes=text \n");
    std::ostringstream out;
    TavrenHost::print_cmd_table(out);
    fputs(out.str().c_str(), stdout);
  });
  EXPECT_EQ(outcome.out,
            "NAME        COMMAND\n"
            "----        -------\n"
            "cat         /bin/cat \n"
            "cd          cd \n"
            "du          /usr/bin/du -sk \n"
            "head        /usr/bin/head -n 1 \n"
            "ls          /bin/ls -1 \n"
            "mkdir       /bin/mkdir -p \n"
            "name-of-16-bytestext \n"
            "rm          /bin/rm -f \n"
            "scp         scp -q -t \n"
            "sh          /bin/sh \n"
            "ssh         /usr/bin/ssh \n");
}

TEST_F(CommandTable, TheHeadingForPeopleIsWrittenBeforeTheTableIsLocked) {
  /* Looks a command up at every write of a heading line; with the table locked that could not work. */
  struct Lookup : std::stringbuf {
    std::streamsize xsputn(const char* text, std::streamsize length) override {
      const std::string written(text, static_cast<size_t>(length));
      if (written == "COMMAND\n" || written == "-------\n") lookups += TavrenHost::get_cmd("ls");
      return std::stringbuf::xsputn(text, length);
    }
    std::string lookups;
  } buffer;
  std::ostream out(&buffer);
  TavrenHost::print_cmd_table(out);
  EXPECT_EQ(buffer.lookups, "/bin/ls -1 /bin/ls -1 ");
}

TEST_F(CommandTable, ThreadsSeeWholeTextsOnly) {
  /* The thread sanitizer has the last word on this one. */
  std::string a(64, 'a'), b(64, 'b'), ignored;
  TavrenHost::set_cmd("ls", a, ignored);
  std::thread writer([&] {
    for (int i = 0; i < 1000; ++i) TavrenHost::set_cmd("ls", i % 2 == 0 ? b : a, ignored);
  });
  bool whole = true;
  for (int i = 0; i < 1000; ++i) {
    const std::string text = TavrenHost::get_cmd("ls");
    whole = whole && (text == a + " " || text == b + " ");
  }
  writer.join();
  EXPECT_TRUE(whole);
}
