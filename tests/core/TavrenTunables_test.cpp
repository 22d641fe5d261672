#include "TavrenTunables.h"

#include <gtest/gtest.h>
#include <stddef.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <sstream>
#include <type_traits>
#include <utility>

#include "core/tunables_fixture.h"
#include "support/run_in_child.h"

namespace {

class SetTunable : public TunablesTest {};

TEST_F(SetTunable, ChangesTheValueAtOnce) {
  set("ssh_command_timeout", "30");
  EXPECT_EQ(tunables.get_ssh_command_timeout(), 30);
}

TEST_F(SetTunable, OnSuccessLeavesTheCallersErrorText) {
  std::string error = "as it was";
  tunables.set_tunable("ssh_command_timeout", "30", error);
  tunables.set_tunable("log_dir_prefix", "x", error);
  EXPECT_EQ(error, "as it was");
}

TEST_F(SetTunable, RefusesAnUnknownName) {
  EXPECT_EQ(refusal("x", "1"), "Unknown tunable: \"x\".");
  EXPECT_EQ(changed(), "");
}

TEST_F(SetTunable, ReplacesTheErrorTextWhenItRefuses) {
  std::string error = "as it was";
  tunables.set_tunable("x", "1", error);
  EXPECT_EQ(error, "Unknown tunable: \"x\".");
}

TEST_F(SetTunable, ReplacesTheErrorTextWhenItRefusesANumber) {
  std::string error = "as it was";
  tunables.set_tunable("ssh_command_timeout", "x", error);
  EXPECT_EQ(error, "Invalid integer value: \"x\".");
}

TEST_F(SetTunable, MatchesNamesExactly) {
  for (const std::string name : {"SSH_command_timeout", "ssh_command_timeou", "ssh_command_timeout ", ""}) {
    EXPECT_EQ(refusal(name, "1"), "Unknown tunable: \"" + name + "\".");
  }
}

TEST_F(SetTunable, RestoresTheDefault) {
  set("ssh_command_timeout", "30");
  set("ssh_command_timeout", "default");
  EXPECT_EQ(tunables.get_ssh_command_timeout(), 60);
}

struct Number {
  std::string text;
  int value;
};

class NumberForATunable : public TunablesTest, public testing::WithParamInterface<Number> {};

TEST_P(NumberForATunable, IsAccepted) {
  EXPECT_EQ(refusal("ssh_command_timeout", GetParam().text), "");
  EXPECT_EQ(tunables.get_ssh_command_timeout(), GetParam().value);
}

INSTANTIATE_TEST_SUITE_P(Each, NumberForATunable,
                         testing::Values(Number{"30", 30}, Number{"0x1e", 30}, Number{"036", 30}, Number{" 30", 30},
                                         Number{"30 ", 30}, Number{"+30", 30}, Number{"0", 0}, Number{"-1", -1},
                                         Number{"2147483647", 2147483647}, Number{"-2147483648", -2147483647 - 1},
                                         Number{"4294967296", 2147483647}));

class NoNumberForATunable : public TunablesTest, public testing::WithParamInterface<std::string> {};

TEST_P(NoNumberForATunable, IsRefusedAndChangesNothing) {
  set("ssh_command_timeout", "45");
  EXPECT_EQ(refusal("ssh_command_timeout", GetParam()), "Invalid integer value: \"" + GetParam() + "\".");
  EXPECT_EQ(tunables.get_ssh_command_timeout(), 45);
}

INSTANTIATE_TEST_SUITE_P(Each, NoNumberForATunable,
                         testing::Values("30s", "", " ", "Default", "default ", " default", "x", "3 0", "0x", "-"));

class TextTunable : public TunablesTest {};

TEST_F(TextTunable, TakesAnyText) {
  for (const std::string text : {"/logs", " with blanks ", "a=b", "12", "Default"}) {
    EXPECT_EQ(refusal("log_dir_prefix", text), "");
    EXPECT_EQ(changed(), "log_dir_prefix=" + text + "\n");
  }
}

TEST_F(TextTunable, TakesTheEmptyText) {
  set("log_dir_prefix", "/logs");
  EXPECT_EQ(refusal("log_dir_prefix", ""), "");
  EXPECT_EQ(changed(), "");
}

TEST_F(TextTunable, IsRestoredByTheWordDefault) {
  set("log_dir_prefix", "/logs");
  set("log_dir_prefix", "default");
  EXPECT_EQ(changed(), "");
}

using Getter = int (TavrenTunables::*)() const;

class EachGetter : public TunablesTest, public testing::WithParamInterface<std::pair<const char*, Getter>> {};

TEST_P(EachGetter, ReadsItsOwnTunable) {
  const auto& [name, getter] = GetParam();
  set(name, "7");
  EXPECT_EQ((tunables.*getter)(), 7);
  EXPECT_EQ(changed(), std::string(name) + "=7\n");
}

INSTANTIATE_TEST_SUITE_P(
    OfTheTable, EachGetter,
    testing::Values(std::pair("loopback_login", &TavrenTunables::get_loopback_login),
                    std::pair("ssh_command_timeout", &TavrenTunables::get_ssh_command_timeout),
                    std::pair("ssh_connect_timeout", &TavrenTunables::get_ssh_connect_timeout),
                    std::pair("ssh_du_command_timeout", &TavrenTunables::get_ssh_du_command_timeout),
                    std::pair("ssh_shell_start_timeout", &TavrenTunables::get_ssh_shell_start_timeout),
                    std::pair("subprocess_log_size", &TavrenTunables::get_subprocess_log_size)),
    [](const auto& parameter) { return parameter.param.first; });

TEST_F(TunablesTest, HaveTheirDefaultsAtTheStart) {
  EXPECT_EQ(tunables.get_loopback_login(), 0);
  EXPECT_EQ(tunables.get_ssh_command_timeout(), 60);
  EXPECT_EQ(tunables.get_ssh_connect_timeout(), 120);
  EXPECT_EQ(tunables.get_ssh_du_command_timeout(), 120);
  EXPECT_EQ(tunables.get_ssh_shell_start_timeout(), 120);
  EXPECT_EQ(tunables.get_subprocess_log_size(), 0);
}

class Registries : public TunablesTest {};

TEST_F(Registries, AreTwoOfOneProcess) {
  EXPECT_EQ(&TavrenTunables::instance(), &TavrenTunables::instance());
  EXPECT_NE(&TavrenTunables::instance(), &TavrenTunables::tavrend_tunables);
}

TEST_F(Registries, KeepTheirValuesApart) {
  set("ssh_command_timeout", "30");
  EXPECT_EQ(TavrenTunables::tavrend_tunables.get_ssh_command_timeout(), 60);
  std::string error;
  TavrenTunables::tavrend_tunables.set_tunable("ssh_connect_timeout", "40", error);
  EXPECT_EQ(tunables.get_ssh_connect_timeout(), 120);
}

TEST_F(Registries, KeepTheirLocksApart) {
  /* The stream writes to the one registry while the other one is being printed. */
  class ChangesTheOther : public std::stringbuf {
    int sync() override { return 0; }
    std::streamsize xsputn(const char*, std::streamsize n) override {
      std::string error;
      TavrenTunables::tavrend_tunables.set_tunable("ssh_command_timeout", "31", error);
      return n;
    }
  } buffer;
  std::ostream out(&buffer);
  set("ssh_command_timeout", "30");
  tunables.print_tunables(out);
  EXPECT_EQ(TavrenTunables::tavrend_tunables.get_ssh_command_timeout(), 31);
}

TEST_F(Registries, AreNotCopied) {
  EXPECT_FALSE(std::is_copy_constructible_v<TavrenTunables>);
  EXPECT_FALSE(std::is_copy_assignable_v<TavrenTunables>);
}

/* Made before main, when the libraries have been loaded and nothing else has happened. */
const std::string table_at_load_time = [] {
  std::ostringstream text;
  TavrenTunables::tavrend_tunables.print_tunable_table(text);
  return text.str();
}();

TEST_F(Registries, OfTheProgramIsCompleteWhenTheLibraryIsLoaded) {
  EXPECT_EQ(table_at_load_time, table(TavrenTunables::instance()));
}

TEST(OwnTunable, OfANameThatIsTakenReplacesTheFirst) {
  const Outcome outcome = run_in_child([] {
    TavrenTunables& registry = TavrenTunables::tavrend_tunables;
    const TavrenTunables::IntTunable second("ssh_command_timeout", 5, registry);
    std::string error;
    registry.set_tunable("ssh_command_timeout", "9", error);
    printf("%d %d", second.get(), registry.get_ssh_command_timeout());
    fflush(stdout);
    _exit(0);
  });
  EXPECT_EQ(outcome.out, "9 60");
}

TEST(OwnTunable, OfTextAndOfANameThatIsTakenReplacesTheFirst) {
  const Outcome outcome = run_in_child([] {
    TavrenTunables& registry = TavrenTunables::tavrend_tunables;
    const TavrenTunables::StringTunable first("text", "x", registry);
    const TavrenTunables::StringTunable second("text", "x", registry);
    std::string error;
    registry.set_tunable("text", "y", error);
    printf("%s %s", first.get_value(false).c_str(), second.get_value(false).c_str());
    fflush(stdout);
    _exit(0);
  });
  EXPECT_EQ(outcome.out, "x y");
}

TEST(OwnTunable, OfTextWithADefaultTakesTheEmptyText) {
  const Outcome outcome = run_in_child([] {
    TavrenTunables& registry = TavrenTunables::tavrend_tunables;
    const TavrenTunables::StringTunable text("text", "x", registry);
    std::string error;
    registry.set_tunable("text", "", error);
    printf("%s", text.get_value(true).c_str());
    fflush(stdout);
    _exit(0);
  });
  EXPECT_EQ(outcome.out, " (default: x)");
}

TEST(OwnTunable, OfTextShowsAndRestoresADefaultThatIsNotEmpty) {
  const Outcome outcome = run_in_child([] {
    TavrenTunables& registry = TavrenTunables::tavrend_tunables;
    static TavrenTunables::StringTunable text("text", "x", registry);
    std::string error;
    registry.set_tunable("text", "y", error);
    printf("%s, ", text.get_value(true).c_str());
    registry.set_tunable("text", "default", error);
    printf("%s", text.get_value(true).c_str());
    fflush(stdout);
    _exit(0);
  });
  EXPECT_EQ(outcome.out, "y (default: x), x");
}

/* Returns the place of a virtual operation in the table of its class, which programs have compiled in. */
template <class Operation>
ptrdiff_t slot_of(Operation operation) {
  ptrdiff_t offset = 0;
  memcpy(&offset, &operation, sizeof offset);
#ifndef __arm__
  --offset; /* by which it differs from an address; ARM has another mark for that */
#endif
  return offset / static_cast<ptrdiff_t>(sizeof(void*));
}

TEST(OwnTunable, HasItsOperationsBehindTheTwoOfItsDestructor) {
  using Tunable = TavrenTunables::Tunable;
  EXPECT_EQ(slot_of(&Tunable::get_value), 2);
  EXPECT_EQ(slot_of(&Tunable::set_value), 3);
  EXPECT_EQ(slot_of(&Tunable::value_is_default), 4);
}

TEST(OwnTunable, StartsAtItsDefault) {
  const Outcome outcome = run_in_child([] {
    TavrenTunables& registry = TavrenTunables::tavrend_tunables;
    const TavrenTunables::IntTunable number("number", -5, registry);
    const TavrenTunables::StringTunable text("text", "x", registry);
    printf("%s %s %d %d", number.get_value(true).c_str(), text.get_value(true).c_str(), number.value_is_default(),
           text.value_is_default());
    fflush(stdout);
    _exit(0);
  });
  EXPECT_EQ(outcome.out, "-5 x 1 1");
}

}  // namespace
