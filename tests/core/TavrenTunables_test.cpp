#include "TavrenTunables.h"

#include <gtest/gtest.h>
#include <stddef.h>
#include <stdio.h>
#include <string.h>

#include <sstream>
#include <tuple>
#include <type_traits>
#include <utility>

#include "core/tunables_fixture.h"
#include "support/run_in_child.h"

namespace {

class SetTunable : public TunablesTest {};

TEST_F(SetTunable, ChangesTheValueAtOnceAndRestoresTheDefault) {
  set("ssh_command_timeout", "30");
  EXPECT_EQ(tunables.get_ssh_command_timeout(), 30);
  set("ssh_command_timeout", "default");
  EXPECT_EQ(tunables.get_ssh_command_timeout(), 60);
}

TEST_F(SetTunable, WritesTheCallersErrorTextWhenItRefuses) {
  std::string error = "as it was";
  tunables.set_tunable("ssh_command_timeout", "30", error);
  tunables.set_tunable("log_dir_prefix", "x", error);
  EXPECT_EQ(error, "as it was");
  tunables.set_tunable("x", "1", error);
  EXPECT_EQ(error, "Unknown tunable: \"x\".");
  tunables.set_tunable("ssh_command_timeout", "x", error);
  EXPECT_EQ(error, "Invalid integer value: \"x\".");
}

TEST_F(SetTunable, MatchesNamesExactly) {
  for (const std::string name : {"x", "SSH_command_timeout", "ssh_command_timeou", "ssh_command_timeout ", ""}) {
    EXPECT_EQ(refusal(name, "1"), "Unknown tunable: \"" + name + "\".");
    EXPECT_EQ(changed(), "");
  }
}

TEST_F(SetTunable, TakesNumbersAsTextsAndCutsThemToTheirRange) {
  const std::pair<const char*, int> numbers[] = {{"30", 30},
                                                 {"0x1e", 30},
                                                 {"036", 30},
                                                 {" 30", 30},
                                                 {"30 ", 30},
                                                 {"+30", 30},
                                                 {"0", 0},
                                                 {"-1", -1},
                                                 {"2147483647", 2147483647},
                                                 {"-2147483648", -2147483647 - 1},
                                                 {"4294967296", 2147483647}};
  for (const auto& [text, value] : numbers) {
    EXPECT_EQ(refusal("ssh_command_timeout", text), "");
    EXPECT_EQ(tunables.get_ssh_command_timeout(), value) << text;
  }
}

TEST_F(SetTunable, RefusesWhatIsNoNumberAndChangesNothing) {
  set("ssh_command_timeout", "45");
  for (const std::string text : {"30s", "", " ", "Default", "default ", " default", "x", "3 0", "0x", "-"}) {
    EXPECT_EQ(refusal("ssh_command_timeout", text), "Invalid integer value: \"" + text + "\".");
    EXPECT_EQ(tunables.get_ssh_command_timeout(), 45) << text;
  }
}

class TextTunable : public TunablesTest {};

TEST_F(TextTunable, TakesAnyTextButTheWordDefaultWhichRestoresIt) {
  for (const std::string text : {"/logs", " with blanks ", "a=b", "12", "Default"}) {
    EXPECT_EQ(refusal("log_dir_prefix", text), "");
    EXPECT_EQ(changed(), "log_dir_prefix=" + text + "\n");
  }
  for (const char* text : {"", "default"}) {
    set("log_dir_prefix", "/logs");
    set("log_dir_prefix", text);
    EXPECT_EQ(changed(), "");
  }
}

TEST_F(TunablesTest, HaveADefaultAndAGetterEach) {
  using Getter = int (TavrenTunables::*)() const;
  const std::tuple<std::string, Getter, int> getters[] = {
      {"loopback_login", &TavrenTunables::get_loopback_login, 0},
      {"ssh_command_timeout", &TavrenTunables::get_ssh_command_timeout, 60},
      {"ssh_connect_timeout", &TavrenTunables::get_ssh_connect_timeout, 120},
      {"ssh_du_command_timeout", &TavrenTunables::get_ssh_du_command_timeout, 120},
      {"ssh_shell_start_timeout", &TavrenTunables::get_ssh_shell_start_timeout, 120},
      {"subprocess_log_size", &TavrenTunables::get_subprocess_log_size, 0},
  };
  for (const auto& [name, getter, its_default] : getters) {
    SCOPED_TRACE(name);
    EXPECT_EQ((tunables.*getter)(), its_default);
    set(name, "7");
    EXPECT_EQ((tunables.*getter)(), 7);
    EXPECT_EQ(changed(), name + "=7\n");
    set(name, "default");
  }
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

/* Returns what show tells in a process whose registry keeps the names that it adds. */
std::string in_a_process(std::string (*show)(TavrenTunables&)) {
  return run_in_child([show] { fputs(show(TavrenTunables::tavrend_tunables).c_str(), stdout); }).out;
}

TEST(OwnTunable, OfANameThatIsTakenReplacesTheFirst) {
  EXPECT_EQ(in_a_process([](TavrenTunables& registry) {
              const TavrenTunables::IntTunable second("ssh_command_timeout", 5, registry);
              registry.set_tunables("ssh_command_timeout=9\n");
              return second.get_value(false) + " " + std::to_string(registry.get_ssh_command_timeout());
            }),
            "9 60");
}

TEST(OwnTunable, OfTextAndOfANameThatIsTakenReplacesTheFirst) {
  EXPECT_EQ(in_a_process([](TavrenTunables& registry) {
              const TavrenTunables::StringTunable first("text", "x", registry), second("text", "x", registry);
              registry.set_tunables("text=y\n");
              return first.get_value(false) + " " + second.get_value(false);
            }),
            "x y");
}

TEST(OwnTunable, OfTextShowsAndRestoresADefaultThatIsNotEmpty) {
  EXPECT_EQ(in_a_process([](TavrenTunables& registry) {
              const TavrenTunables::StringTunable text("text", "x", registry);
              std::string shown;
              for (const std::string value : {"", "y", "default"}) {
                registry.set_tunables("text=" + value + "\n");
                shown += text.get_value(true) + ", ";
              }
              return shown;
            }),
            " (default: x), y (default: x), x, ");
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
  EXPECT_EQ(in_a_process([](TavrenTunables& registry) {
              const TavrenTunables::IntTunable number("number", -5, registry);
              const TavrenTunables::StringTunable text("text", "x", registry);
              return number.get_value(true) + " " + text.get_value(true) + " " +
                     std::to_string(number.value_is_default()) + " " + std::to_string(text.value_is_default());
            }),
            "-5 x 1 1");
}

}  // namespace
