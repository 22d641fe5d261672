#include <gtest/gtest.h>
#include <stddef.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <array>
#include <string>
#include <type_traits>

#include "daemon/settings_strings.h"
#include "support/complete_settings.h"
#include "support/real_function.h"
#include "support/run_in_child.h"
#include "support/wiped_texts.h"
#include "tavren_api.h"

namespace {

bool memory_is_out = false; /* for copies of strings; set in children only */

}  // namespace

STANDS_BEFORE_THE_REAL_ONE char* strdup(const char* text) noexcept {
  if (memory_is_out) return nullptr;
  return real<char*(const char*)>("strdup")(text);
}

namespace {

/* A complete record with a text of its own in each member; the record points into this object. */
class CompleteSettings {
 public:
  CompleteSettings() {
    for (size_t i = 0; i < settings_strings.size(); ++i) record.*settings_strings[i] = texts[i].data();
  }
  CompleteSettings(const CompleteSettings&) = delete;
  CompleteSettings& operator=(const CompleteSettings&) = delete;

  tavren_settings_t record{};

 private:
  std::array<std::string, 6> texts = {"h", "/d", "u", "p w", "type key", "f:1"};
};

class SettingsCopy : public testing::Test {
 protected:
  ~SettingsCopy() override { tavren_settings_free_contents(&copy); }

  CompleteSettings original;
  tavren_settings_t copy{};
};

TEST_F(SettingsCopy, HoldsAllSixStringsAndSharesNoneWithItsOriginal) {
  tavren_settings_copy(&original.record, &copy);
  for (const String member : settings_strings) {
    EXPECT_STREQ(copy.*member, original.record.*member);
    EXPECT_NE(copy.*member, original.record.*member);
  }
}

TEST_F(SettingsCopy, TakesEmptyStrings) {
  char empty[] = "";
  for (const String member : settings_strings) original.record.*member = empty;
  tavren_settings_copy(&original.record, &copy);
  for (const String member : settings_strings) EXPECT_STREQ(copy.*member, "");
}

TEST_F(SettingsCopy, OverwritesThePreviousPointersWithoutFreeingThem) {
  CompleteSettings previous;
  copy = previous.record;
  tavren_settings_copy(&original.record, &copy);
  for (const String member : settings_strings) {
    EXPECT_NE(copy.*member, previous.record.*member);
    EXPECT_STREQ(previous.record.*member, original.record.*member);
    EXPECT_STREQ(copy.*member, original.record.*member);
  }
}

TEST(SettingsCopyWithoutMemory, LeavesNullAndReportsNothing) {
  const Outcome outcome = run_in_child([] {
    CompleteSettings original;
    tavren_settings_t copy = original.record;
    memory_is_out = true;
    tavren_settings_copy(&original.record, &copy);
    for (const String member : settings_strings) {
      if (copy.*member != nullptr) _exit(4);
    }
    _exit(3);
  });
  EXPECT_TRUE(outcome.exited_with(3)) << outcome.wait_status;
  EXPECT_EQ(outcome.err, "");
}

TEST(MissingString, InACopiedRecordFailsAnAssertion) {
  for (const String member : settings_strings) {
    CompleteSettings settings;
    settings.record.*member = nullptr;
    expect_assertion("tavren_api", settings_are_complete, [&settings] {
      tavren_settings_t copy{};
      tavren_settings_copy(&settings.record, &copy);
    });
    expect_assertion("tavren_api", settings_are_complete, [&settings] {
      const tavren_config_t config{settings.record, {1, 2}};
      tavren_config_t copy{};
      tavren_config_copy(&config, &copy);
    });
  }
}

class FreedSettings : public SettingsCopy {
 protected:
  FreedSettings() { tavren_settings_copy(&original.record, &copy); }
};

TEST_F(FreedSettings, AreEmptyAndMayBeFreedAgain) {
  for (int i = 0; i < 2; ++i) {
    tavren_settings_free_contents(&copy);
    for (const String member : settings_strings) EXPECT_EQ(copy.*member, nullptr);
  }
}

TEST_F(FreedSettings, MayBeFilledAgain) {
  tavren_settings_free_contents(&copy);
  tavren_settings_copy(&original.record, &copy);
  EXPECT_EQ(tavren_settings_are_equal(&original.record, &copy), 1);
}

TEST_F(FreedSettings, HadTheirPasswordWiped) {
  wiped_texts.clear();
  tavren_settings_free_contents(&copy);
  EXPECT_EQ(wiped_texts, "p w|");
}

TEST_F(FreedSettings, MayHaveBeenIncomplete) {
  free(copy.password);
  copy.password = nullptr;
  free(copy.fingerprint);
  copy.fingerprint = nullptr;
  tavren_settings_free_contents(&copy);
  for (const String member : settings_strings) EXPECT_EQ(copy.*member, nullptr);
}

TEST(EqualSettings, HaveEqualStringsInDifferentPlacesButForTheirFingerprint) {
  const CompleteSettings a;
  CompleteSettings b;
  char other[] = "f:2";
  for (char* const fingerprint : {b.record.fingerprint, other, static_cast<char*>(nullptr)}) {
    b.record.fingerprint = fingerprint;
    EXPECT_EQ(tavren_settings_are_equal(&a.record, &b.record), 1);
  }
}

TEST(EqualSettings, MayBothLackEverything) {
  const tavren_settings_t a{}, b{};
  EXPECT_EQ(tavren_settings_are_equal(&a, &b), 1);
}

/* The fingerprint, the last member, does not count. */
TEST(ComparedString, MakesADifferenceWhenItDiffersAndNullDiffersFromAnEmptyOne) {
  char lower[] = "x", upper[] = "X", empty[] = "";
  for (size_t i = 0; i < 5; ++i) {
    CompleteSettings a, b;
    const String member = settings_strings[i];
    for (char* const other : {lower, upper, empty, static_cast<char*>(nullptr)}) {
      b.record.*member = other;
      EXPECT_EQ(tavren_settings_are_equal(&a.record, &b.record), 0) << i;
      EXPECT_EQ(tavren_settings_are_equal(&b.record, &a.record), 0) << i;
      a.record.*member = other;
      EXPECT_EQ(tavren_settings_are_equal(&a.record, &b.record), 1) << i;
    }
  }
}

TEST(ConfigCopy, HoldsTheSettingsAndBothLimitsWhichStayWhenItIsFreed) {
  CompleteSettings settings;
  const tavren_config_t config{settings.record, {-1, 2147483647}};
  tavren_config_t copy{};
  tavren_config_copy(&config, &copy);
  for (const String member : settings_strings) EXPECT_STREQ(copy.settings.*member, settings.record.*member);
  EXPECT_NE(copy.settings.host, settings.record.host);
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(copy.space_limit[TAVREN_COMPARTMENT_0], -1);
    EXPECT_EQ(copy.space_limit[TAVREN_COMPARTMENT_1], 2147483647);
    tavren_config_free_contents(&copy);
    for (const String member : settings_strings) EXPECT_EQ(copy.settings.*member, nullptr);
  }
}

TEST(Records, HaveTheNumbersOfTheDaemonInterface) {
  EXPECT_EQ(TAVREN_STATE_DISABLED, 0);
  EXPECT_EQ(TAVREN_STATE_ENABLED, 1);
  EXPECT_EQ(TAVREN_CONNECTION_NONE, 0);
  EXPECT_EQ(TAVREN_CONNECTION_OK, 1);
  EXPECT_EQ(TAVREN_CONNECTION_FAILED, 2);
  EXPECT_EQ(TAVREN_COMPARTMENT_0, 0);
  EXPECT_EQ(TAVREN_COMPARTMENT_1, 1);
  EXPECT_EQ(TAVREN_COMPARTMENTS, 2);
  EXPECT_EQ(TAVREN_API_E_CONNECT, -1);
  EXPECT_EQ(TAVREN_API_E_RPC, -3);
}

template <class... Record>
constexpr bool are_plain = ((std::is_trivial_v<Record> && std::is_standard_layout_v<Record>)&&...);
static_assert(
    are_plain<tavren_settings_t, tavren_config_t, tavren_compartment_status_t, tavren_status_t, tavren_bytes_t>);

TEST(Records, HoldTheSettingsStringsInTheirOrder) {
  EXPECT_EQ(sizeof(tavren_settings_t), 6 * sizeof(char*));
  const CompleteSettings settings;
  const char* strings[6];
  memcpy(strings, &settings.record, sizeof strings);
  for (size_t i = 0; i < settings_strings.size(); ++i) EXPECT_EQ(strings[i], settings.record.*settings_strings[i]);
}

TEST(Records, Hold32BitIntegersInTheirOrder) {
  EXPECT_EQ(offsetof(tavren_config_t, settings), 0U);
  EXPECT_EQ(offsetof(tavren_config_t, space_limit), sizeof(tavren_settings_t));
  EXPECT_EQ(sizeof(tavren_config_t::space_limit), 8U);

  EXPECT_EQ(offsetof(tavren_compartment_status_t, word1), 0U);
  EXPECT_EQ(offsetof(tavren_compartment_status_t, word2), 4U);
  EXPECT_EQ(offsetof(tavren_compartment_status_t, word3), 8U);

  EXPECT_EQ(offsetof(tavren_status_t, connection_time), 0U);
  EXPECT_EQ(offsetof(tavren_status_t, connection_status), 4U);
  EXPECT_EQ(offsetof(tavren_status_t, compartment_status), 8U);
  EXPECT_EQ(sizeof(tavren_status_t), 32U);

  EXPECT_EQ(offsetof(tavren_bytes_t, code), 0U);
  EXPECT_LT(offsetof(tavren_bytes_t, data.data_len), offsetof(tavren_bytes_t, data.data_val));
}

TEST(Records, HoldIntegersOfTheNamedTypes) {
  using Status = tavren_compartment_status_t;
  EXPECT_TRUE((std::is_same_v<decltype(tavren_config_t::space_limit), int32_t[2]>));
  EXPECT_TRUE((std::is_same_v<decltype(Status::word1), int32_t>));
  EXPECT_TRUE((std::is_same_v<decltype(Status::word2), int32_t>));
  EXPECT_TRUE((std::is_same_v<decltype(Status::word3), int32_t>));
  EXPECT_TRUE((std::is_same_v<decltype(tavren_status_t::connection_time), int32_t>));
  EXPECT_TRUE((std::is_same_v<decltype(tavren_api_handle_t::error), int32_t>));
  EXPECT_TRUE((std::is_same_v<decltype(tavren_bytes_t::code), int32_t>));
  EXPECT_TRUE((std::is_same_v<decltype(tavren_bytes_t::data.data_len), uint32_t>));
  EXPECT_TRUE((std::is_same_v<decltype(tavren_bytes_t::data.data_val), char*>));
  EXPECT_EQ(sizeof(tavren_state_t), 4U);
  EXPECT_EQ(sizeof(tavren_connection_status_t), 4U);
  EXPECT_EQ(sizeof(tavren_compartment_t), 4U);
}

}  // namespace
