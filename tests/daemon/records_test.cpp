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

TEST_F(SettingsCopy, HoldsAllSixStrings) {
  tavren_settings_copy(&original.record, &copy);
  for (const String member : settings_strings) EXPECT_STREQ(copy.*member, original.record.*member);
}

TEST_F(SettingsCopy, SharesNoStringWithItsOriginal) {
  tavren_settings_copy(&original.record, &copy);
  for (const String member : settings_strings) EXPECT_NE(copy.*member, original.record.*member);
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

class MissingString : public testing::TestWithParam<size_t> {};

TEST_P(MissingString, InCopiedSettingsFailsAnAssertion) {
  expect_assertion("tavren_api", settings_are_complete, [] {
    CompleteSettings settings;
    settings.record.*settings_strings[GetParam()] = nullptr;
    tavren_settings_t copy{};
    tavren_settings_copy(&settings.record, &copy);
  });
}

TEST_P(MissingString, InACopiedConfigurationFailsAnAssertion) {
  expect_assertion("tavren_api", settings_are_complete, [] {
    CompleteSettings settings;
    tavren_config_t config{settings.record, {1, 2}};
    config.settings.*settings_strings[GetParam()] = nullptr;
    tavren_config_t copy{};
    tavren_config_copy(&config, &copy);
  });
}

INSTANTIATE_TEST_SUITE_P(Each, MissingString, testing::Range<size_t>(0, 6));

class FreedSettings : public testing::Test {
 protected:
  FreedSettings() { tavren_settings_copy(&original.record, &settings); }

  CompleteSettings original;
  tavren_settings_t settings{};
};

TEST_F(FreedSettings, AreEmpty) {
  tavren_settings_free_contents(&settings);
  for (const String member : settings_strings) EXPECT_EQ(settings.*member, nullptr);
}

TEST_F(FreedSettings, MayBeFreedAgain) {
  tavren_settings_free_contents(&settings);
  tavren_settings_free_contents(&settings);
  for (const String member : settings_strings) EXPECT_EQ(settings.*member, nullptr);
}

TEST_F(FreedSettings, MayBeFilledAgain) {
  tavren_settings_free_contents(&settings);
  tavren_settings_copy(&original.record, &settings);
  EXPECT_EQ(tavren_settings_are_equal(&original.record, &settings), 1);
  tavren_settings_free_contents(&settings);
}

TEST_F(FreedSettings, HadTheirPasswordWiped) {
  wiped_texts.clear();
  tavren_settings_free_contents(&settings);
  EXPECT_EQ(wiped_texts, "p w|");
}

TEST_F(FreedSettings, MayHaveBeenIncomplete) {
  free(settings.password);
  settings.password = nullptr;
  free(settings.fingerprint);
  settings.fingerprint = nullptr;
  tavren_settings_free_contents(&settings);
  for (const String member : settings_strings) EXPECT_EQ(settings.*member, nullptr);
}

TEST(EqualSettings, HaveEqualStringsInDifferentPlaces) {
  const CompleteSettings a, b;
  EXPECT_EQ(tavren_settings_are_equal(&a.record, &b.record), 1);
}

TEST(EqualSettings, MayDifferInTheirFingerprint) {
  const CompleteSettings a;
  CompleteSettings b;
  char other[] = "f:2";
  b.record.fingerprint = other;
  EXPECT_EQ(tavren_settings_are_equal(&a.record, &b.record), 1);
  b.record.fingerprint = nullptr;
  EXPECT_EQ(tavren_settings_are_equal(&a.record, &b.record), 1);
}

TEST(EqualSettings, MayBothLackEverything) {
  const tavren_settings_t a{}, b{};
  EXPECT_EQ(tavren_settings_are_equal(&a, &b), 1);
}

/* The fingerprint, the last member, does not count. */
class ComparedString : public testing::TestWithParam<size_t> {
 protected:
  CompleteSettings a, b;
  String member = settings_strings[GetParam()];
};

TEST_P(ComparedString, MakesADifferenceWhenItDiffers) {
  char other[] = "other";
  b.record.*member = other;
  EXPECT_EQ(tavren_settings_are_equal(&a.record, &b.record), 0);
}

TEST_P(ComparedString, MakesADifferenceByItsLetterCase) {
  char lower[] = "x", upper[] = "X";
  a.record.*member = lower;
  b.record.*member = upper;
  EXPECT_EQ(tavren_settings_are_equal(&a.record, &b.record), 0);
}

TEST_P(ComparedString, ThatIsNullDiffersFromAnEmptyOne) {
  char empty[] = "";
  a.record.*member = nullptr;
  b.record.*member = empty;
  EXPECT_EQ(tavren_settings_are_equal(&a.record, &b.record), 0);
  EXPECT_EQ(tavren_settings_are_equal(&b.record, &a.record), 0);
}

TEST_P(ComparedString, ThatIsNullInBothIsEqual) {
  a.record.*member = nullptr;
  b.record.*member = nullptr;
  EXPECT_EQ(tavren_settings_are_equal(&a.record, &b.record), 1);
}

INSTANTIATE_TEST_SUITE_P(Each, ComparedString, testing::Range<size_t>(0, 5));

TEST(ConfigCopy, HoldsTheSettingsAndBothLimits) {
  CompleteSettings settings;
  const tavren_config_t config{settings.record, {-1, 2147483647}};
  tavren_config_t copy{};
  tavren_config_copy(&config, &copy);
  for (const String member : settings_strings) EXPECT_STREQ(copy.settings.*member, settings.record.*member);
  EXPECT_NE(copy.settings.host, settings.record.host);
  EXPECT_EQ(copy.space_limit[TAVREN_COMPARTMENT_0], -1);
  EXPECT_EQ(copy.space_limit[TAVREN_COMPARTMENT_1], 2147483647);
  tavren_config_free_contents(&copy);
}

TEST(FreedConfig, IsEmptyButForItsLimits) {
  CompleteSettings settings;
  const tavren_config_t config{settings.record, {5, -1}};
  tavren_config_t copy{};
  tavren_config_copy(&config, &copy);
  tavren_config_free_contents(&copy);
  for (const String member : settings_strings) EXPECT_EQ(copy.settings.*member, nullptr);
  EXPECT_EQ(copy.space_limit[0], 5);
  EXPECT_EQ(copy.space_limit[1], -1);
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

TEST(Records, ArePlainStructures) {
  EXPECT_TRUE((std::is_trivial_v<tavren_settings_t> && std::is_standard_layout_v<tavren_settings_t>));
  EXPECT_TRUE((std::is_trivial_v<tavren_config_t> && std::is_standard_layout_v<tavren_config_t>));
  EXPECT_TRUE(
      (std::is_trivial_v<tavren_compartment_status_t> && std::is_standard_layout_v<tavren_compartment_status_t>));
  EXPECT_TRUE((std::is_trivial_v<tavren_status_t> && std::is_standard_layout_v<tavren_status_t>));
  EXPECT_TRUE((std::is_trivial_v<tavren_bytes_t> && std::is_standard_layout_v<tavren_bytes_t>));
}

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
