#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <streambuf>
#include <tuple>

#include "core/tunables_fixture.h"
#include "support/run_in_child.h"

using testing::HasSubstr;

namespace {

class SetTunables : public TunablesTest {};

TEST_F(SetTunables, AppliesEachLineUntilOneIsNone) {
  const std::tuple<const char*, const char*, const char*> texts[] = {
      {"each line", "ssh_command_timeout=30\nlog_dir_prefix=/logs\n", "log_dir_prefix=/logs\nssh_command_timeout=30\n"},
      {"refused ones", "unknown=1\nssh_command_timeout=x\nssh_connect_timeout=40\nunknown=2\n",
       "ssh_connect_timeout=40\n"},
      {"up to a line without an equals sign", "ssh_command_timeout=30\nno assignment\nssh_connect_timeout=40\n",
       "ssh_command_timeout=30\n"},
      {"up to an empty line", "ssh_command_timeout=30\n\nssh_connect_timeout=40\n", "ssh_command_timeout=30\n"},
      {"up to the last newline", "ssh_command_timeout=30\nssh_connect_timeout=40", "ssh_command_timeout=30\n"},
      {"split at the first equals sign", "log_dir_prefix=a=b=\n", "log_dir_prefix=a=b=\n"},
      {"untrimmed", " ssh_command_timeout=30\nssh_connect_timeout =40\nlog_dir_prefix= x \n", "log_dir_prefix= x \n"},
      {"a restored default", "ssh_command_timeout=30\nssh_command_timeout=default\n", ""},
      {"nothing", "", ""},
      {"nothing of an empty line", "\n", ""},
      {"nothing of an equals sign", "=", ""},
      {"nothing of a line of an equals sign", "=\n", ""},
      {"the last of two", "ssh_command_timeout=30\nssh_command_timeout=31\n", "ssh_command_timeout=31\n"},
  };
  for (const auto& [what, text, applied] : texts) {
    SCOPED_TRACE(what);
    restore_defaults();
    tunables.set_tunables(text);
    EXPECT_EQ(changed(), applied);
  }
}

class PrintTunables : public TunablesTest {};

TEST_F(PrintTunables, WritesEveryChangedTunableNamesAscending) {
  for (const char* name : tunable_names) set(name, "7");
  EXPECT_EQ(changed(),
            "failure_retry_interval=7\nlog_dir_prefix=7\nloopback_login=7\nssh_command_timeout=7\n"
            "ssh_connect_timeout=7\nssh_du_command_timeout=7\nssh_shell_start_timeout=7\nsubprocess_log_size=7\n");
}

TEST_F(PrintTunables, LeavesOutAValueThatWasSetToItsDefault) {
  set("failure_retry_interval", "300");
  EXPECT_EQ(changed(), "");
}

TEST_F(PrintTunables, WritesWhatReproducesTheStateElsewhere) {
  set("ssh_command_timeout", "-30");
  set("log_dir_prefix", "/logs=x ");
  TavrenTunables::tavrend_tunables.set_tunables(changed());
  EXPECT_EQ(table(TavrenTunables::tavrend_tunables), table(tunables));
}

class TunableTable : public TunablesTest {};

TEST_F(TunableTable, ShowsEveryTunable) {
  EXPECT_EQ(table(tunables),
            "TUNABLE                  VALUE\n"
            "-------                  -----\n"
            "failure_retry_interval   300\n"
            "log_dir_prefix           \n"
            "loopback_login           0\n"
            "ssh_command_timeout      60\n"
            "ssh_connect_timeout      120\n"
            "ssh_du_command_timeout   120\n"
            "ssh_shell_start_timeout  120\n"
            "subprocess_log_size      0\n");
}

TEST_F(TunableTable, ShowsTheDefaultsOfWhatWasChanged) {
  set("ssh_command_timeout", "30");
  EXPECT_THAT(table(tunables), HasSubstr("\nssh_command_timeout      30 (default: 60)\n"));
  set("log_dir_prefix", "/logs");
  EXPECT_THAT(table(tunables), HasSubstr("\nlog_dir_prefix           /logs (default: )\n"));
}

TEST_F(TunableTable, DoesNotPadANameOf25CharactersOrMore) {
  const Outcome outcome = run_in_child([] {
    TavrenTunables& registry = TavrenTunables::tavrend_tunables;
    const TavrenTunables::IntTunable of_24("a_name_of_24_characters_", 24, registry);
    const TavrenTunables::IntTunable of_25("a_name_of_25_characters__", 25, registry);
    const TavrenTunables::IntTunable of_26("a_name_of_26_characters___", 26, registry);
    fputs(table(registry).c_str(), stdout);
  });
  EXPECT_THAT(outcome.out, HasSubstr("\na_name_of_24_characters_ 24\n"
                                     "a_name_of_25_characters__25\n"
                                     "a_name_of_26_characters___26\n"));
}

/* Calls an action whenever something is written. */
template <class Action>
class CallingBuffer : public std::streambuf {
 public:
  explicit CallingBuffer(Action called) : action(called) {}

 private:
  int overflow(int c) override {
    action();
    return c == EOF ? 0 : c;
  }
  std::streamsize xsputn(const char*, std::streamsize n) override {
    action();
    return n;
  }

  Action action;
};

class TunablesLock : public TunablesTest {};

TEST_F(TunablesLock, IsHeldWhileTunablesArePrinted) {
  set("ssh_command_timeout", "30");
  expect_assertion("TavrenMutex", "owner != pthread_self()", [this] {
    CallingBuffer buffer([this] { refusal("ssh_connect_timeout", "1"); });
    std::ostream out(&buffer);
    out.exceptions(std::ios_base::badbit);
    tunables.print_tunables(out);
  });
}

TEST_F(TunablesLock, IsHeldWhileTheTableIsPrinted) {
  expect_assertion("TavrenMutex", "owner != pthread_self()", [this] {
    /* The two lines of the heading are written before the registry is read: four texts. */
    CallingBuffer buffer([this, writes = 0]() mutable {
      if (++writes > 4) refusal("ssh_connect_timeout", "1");
    });
    std::ostream out(&buffer);
    tunables.print_tunable_table(out);
  });
}

TEST_F(TunablesLock, IsHeldWhileAValueIsSet) {
  class CallsBack : public TavrenTunables::IntTunable {
   public:
    using IntTunable::IntTunable;
    void set_value(const std::string&, std::string& error) override {
      TavrenTunables::tavrend_tunables.set_tunable("ssh_connect_timeout", "1", error);
    }
  };
  expect_assertion("TavrenMutex", "owner != pthread_self()", [] {
    const CallsBack tunable("calls_back", 0, TavrenTunables::tavrend_tunables);
    std::string error;
    TavrenTunables::tavrend_tunables.set_tunable("calls_back", "1", error);
  });
}

TEST_F(TunablesLock, IsNotNeededByTheGetters) {
  set("ssh_command_timeout", "30");
  int read = 0;
  CallingBuffer buffer([&] { read = tunables.get_ssh_command_timeout(); });
  std::ostream out(&buffer);
  tunables.print_tunables(out);
  EXPECT_EQ(read, 30);
}

}  // namespace
