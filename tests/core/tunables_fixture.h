#ifndef TESTS_CORE_TUNABLES_FIXTURE_H
#define TESTS_CORE_TUNABLES_FIXTURE_H

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "TavrenTunables.h"

constexpr const char* tunable_names[] = {"failure_retry_interval",  "log_dir_prefix",      "loopback_login",
                                         "ssh_command_timeout",     "ssh_connect_timeout", "ssh_du_command_timeout",
                                         "ssh_shell_start_timeout", "subprocess_log_size"};

inline std::string table(TavrenTunables& registry) {
  std::ostringstream text;
  registry.print_tunable_table(text);
  return text.str();
}

/* Both registries of the process, each as in a fresh program before and after. */
class TunablesTest : public testing::Test {
 protected:
  TunablesTest() { restore_defaults(); }
  ~TunablesTest() override { restore_defaults(); }

  /* Returns what the registry answers, "" for an accepted value. */
  std::string refusal(const std::string& name, const std::string& value) {
    std::string error;
    tunables.set_tunable(name, value, error);
    return error;
  }

  void set(const std::string& name, const std::string& value) { EXPECT_EQ(refusal(name, value), ""); }

  /* Returns what print_tunables writes. */
  std::string changed() {
    std::ostringstream text;
    tunables.print_tunables(text);
    return text.str();
  }

  void restore_defaults() {
    std::string error;
    for (const char* name : tunable_names) {
      tunables.set_tunable(name, "default", error);
      TavrenTunables::tavrend_tunables.set_tunable(name, "default", error);
    }
    EXPECT_EQ(error, "");
  }

  TavrenTunables& tunables = TavrenTunables::instance();
};

#endif
