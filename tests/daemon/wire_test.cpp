#include "daemon/wire.h"

#include <gtest/gtest.h>

#include <string>

#include "daemon/settings_strings.h"
#include "support/wiped_texts.h"

using wire::text;
using wire::unit;

namespace {

struct Strings {
  std::string host = "h", dir = "/d", user = "usr", password = "four", host_key = "ssh-x AA", fingerprint;

  tavren_settings_t record() {
    return {host.data(), dir.data(), user.data(), password.data(), host_key.data(), fingerprint.data()};
  }
  std::string bytes() const {
    return text(host) + text(dir) + text(user) + text(password) + text(host_key) + text(fingerprint);
  }
};

std::string shown(const tavren_settings_t& s) {
  std::string all;
  for (const String member : settings_strings) all += s.*member + std::string("|");
  return all;
}

constexpr char sample_settings[] = "h|/d|usr|four|ssh-x AA||";

tavren_status_t sample_status() { return {1000, TAVREN_CONNECTION_FAILED, {{1, -2, 3}, {INT32_MAX, INT32_MIN, 6}}}; }

std::string sample_status_bytes() {
  return unit(1000) + unit(2) + unit(1) + unit(0xFFFFFFFE) + unit(3) + unit(0x7FFFFFFF) + unit(0x80000000) + unit(6);
}

/* Everything that is shorter than the record is refused, and what was allocated by then can be released. */
template <class Object>
void expect_refused_when_cut(bool_t (*filter)(XDR*, Object*), const std::string& bytes) {
  for (size_t length = 0; length < bytes.size(); ++length) {
    Object object{};
    EXPECT_FALSE(wire::decode(filter, bytes.substr(0, length), &object)) << length;
    wire::release(filter, &object);
  }
}

template <class Enumeration>
void expect_one_unit(bool_t (*filter)(XDR*, Enumeration*), Enumeration value) {
  const std::string bytes = unit(static_cast<uint32_t>(value));
  EXPECT_EQ(wire::encoded(filter, value), bytes);
  Enumeration decoded{};
  EXPECT_TRUE(wire::decode(filter, bytes, &decoded));
  EXPECT_EQ(decoded, value);
  expect_refused_when_cut(filter, bytes);
}

TEST(Wire, EnumerationsAreOneUnitEach) {
  expect_one_unit(xdr_tavren_state_t, TAVREN_STATE_ENABLED);
  expect_one_unit(xdr_tavren_connection_status_t, TAVREN_CONNECTION_FAILED);
  expect_one_unit(xdr_tavren_compartment_t, TAVREN_COMPARTMENT_1);
}

TEST(Wire, SettingsAreSixStrings) {
  Strings strings;
  EXPECT_EQ(wire::encoded(xdr_tavren_settings_t, strings.record()), strings.bytes());
  tavren_settings_t settings{};
  ASSERT_TRUE(wire::decode(xdr_tavren_settings_t, strings.bytes(), &settings));
  EXPECT_EQ(shown(settings), sample_settings);
  wire::release(xdr_tavren_settings_t, &settings);
  expect_refused_when_cut(xdr_tavren_settings_t, strings.bytes());
}

TEST(Wire, SettingsWithoutOneOfTheStringsAreNotSent) {
  Strings strings;
  for (const String member : settings_strings) {
    tavren_settings_t settings = strings.record();
    settings.*member = nullptr;
    EXPECT_EQ(wire::encoded(xdr_tavren_settings_t, settings), std::nullopt);
  }
}

/* Also where nothing has come behind it. */
TEST(Wire, SettingsHaveTheirPasswordWipedBeforeItIsReleased) {
  const Strings strings;
  const std::string cut = text(strings.host) + text(strings.dir) + text(strings.user) + text(strings.password);
  for (const std::string& bytes : {strings.bytes(), cut}) {
    tavren_settings_t settings{};
    EXPECT_EQ(wire::decode(xdr_tavren_settings_t, bytes, &settings), bytes != cut);
    wiped_texts.clear();
    wire::release(xdr_tavren_settings_t, &settings);
    EXPECT_EQ(wiped_texts, "four|");
  }
}

TEST(Wire, SettingsMayHoldAMegabyte) {
  Strings strings;
  strings.host_key.assign(1 << 20, 'k');
  EXPECT_EQ(wire::encoded(xdr_tavren_settings_t, strings.record(), 2 << 20), strings.bytes());
}

TEST(Wire, AConfigurationIsItsSettingsAndTwoLimits) {
  Strings strings;
  const std::string bytes = strings.bytes() + unit(0x01020304) + unit(0xFFFFFFFF);
  EXPECT_EQ(wire::encoded(xdr_tavren_config_t, tavren_config_t{strings.record(), {0x01020304, -1}}), bytes);
  tavren_config_t config{};
  ASSERT_TRUE(wire::decode(xdr_tavren_config_t, bytes, &config));
  EXPECT_EQ(shown(config.settings), sample_settings);
  EXPECT_EQ(config.space_limit[0], 0x01020304);
  EXPECT_EQ(config.space_limit[1], -1);
  wire::release(xdr_tavren_config_t, &config);
  expect_refused_when_cut(xdr_tavren_config_t, bytes);
}

TEST(Wire, ACompartmentStatusIsThreeUnits) {
  const std::string bytes = unit(1) + unit(0xFFFFFFFE) + unit(0x80000000);
  EXPECT_EQ(wire::encoded(xdr_tavren_compartment_status_t, tavren_compartment_status_t{1, -2, INT32_MIN}), bytes);
  tavren_compartment_status_t status{};
  EXPECT_TRUE(wire::decode(xdr_tavren_compartment_status_t, bytes, &status));
  EXPECT_EQ(status.word1, 1);
  EXPECT_EQ(status.word2, -2);
  EXPECT_EQ(status.word3, INT32_MIN);
  expect_refused_when_cut(xdr_tavren_compartment_status_t, bytes);
}

TEST(Wire, AStatusIsThirtyTwoBytes) {
  EXPECT_EQ(wire::encoded(xdr_tavren_status_t, sample_status()), sample_status_bytes());
  EXPECT_EQ(sample_status_bytes().size(), 32U);
  tavren_status_t status{};
  ASSERT_TRUE(wire::decode(xdr_tavren_status_t, sample_status_bytes(), &status));
  EXPECT_EQ(status.connection_time, 1000);
  EXPECT_EQ(status.connection_status, TAVREN_CONNECTION_FAILED);
  EXPECT_EQ(status.compartment_status[0].word2, -2);
  EXPECT_EQ(status.compartment_status[1].word1, INT32_MAX);
  EXPECT_EQ(status.compartment_status[1].word3, 6);
  expect_refused_when_cut(xdr_tavren_status_t, sample_status_bytes());
}

/* After January 2038 the seconds no longer fit: what a daemon cuts to four bytes arrives as a negative number. */
TEST(Wire, AConnectionTimeBeyond2038IsNegative) {
  const std::string rest = sample_status_bytes().substr(4);
  tavren_status_t status{};
  ASSERT_TRUE(wire::decode(xdr_tavren_status_t, unit(0x80000000) + rest, &status));
  EXPECT_EQ(status.connection_time, INT32_MIN);
  EXPECT_EQ(wire::encoded(xdr_tavren_status_t, status), unit(0x80000000) + rest);
}

TEST(Wire, BytesAreAUnitEach) {
  char data[] = {'a', '\0', '\x80'};
  const std::string bytes = unit(5) + unit(3) + unit('a') + unit(0) + unit(0xFFFFFF80);
  EXPECT_EQ(wire::encoded(xdr_tavren_bytes_t, tavren_bytes_t{5, {3, data}}), bytes);
  EXPECT_EQ(bytes.size(), 4U + 4U + 3U * 4U);
  tavren_bytes_t decoded{};
  ASSERT_TRUE(wire::decode(xdr_tavren_bytes_t, bytes, &decoded));
  EXPECT_EQ(decoded.code, 5);
  EXPECT_EQ(std::string(decoded.data.data_val, decoded.data.data_len), std::string(data, sizeof data));
  wire::release(xdr_tavren_bytes_t, &decoded);
  expect_refused_when_cut(xdr_tavren_bytes_t, bytes);
}

TEST(Wire, WhatIsEncodedMayBeReadOnly) {
  static const char data[] = "read";
  EXPECT_EQ(wire::encoded(xdr_tavren_bytes_t, tavren_bytes_t{0, {1, const_cast<char*>(data)}}),
            unit(0) + unit(1) + unit('r'));
  static const tavren_state_t state = TAVREN_STATE_ENABLED;
  EXPECT_EQ(wire::encoded(xdr_tavren_state_t, state), unit(1));
  static const tavren_status_t status = {5, TAVREN_CONNECTION_OK, {{1, 2, 3}, {4, 5, 6}}};
  EXPECT_EQ(wire::encoded(xdr_tavren_status_t, status)->substr(0, 8), unit(5) + unit(1));
}

/* A byte above 127 is a negative number to most daemons, and may be a positive one to some. */
TEST(Wire, BytesAbove127AreDecodedInEitherForm) {
  tavren_bytes_t decoded{};
  ASSERT_TRUE(wire::decode(xdr_tavren_bytes_t, unit(0) + unit(2) + unit(0xFFFFFF80) + unit(0xFF), &decoded));
  EXPECT_EQ(std::string(decoded.data.data_val, decoded.data.data_len), "\x80\xff");
  wire::release(xdr_tavren_bytes_t, &decoded);
}

TEST(Wire, NoBytesAreTheirNumber) {
  EXPECT_EQ(wire::encoded(xdr_tavren_bytes_t, tavren_bytes_t{-1, {0, nullptr}}), unit(0xFFFFFFFF) + unit(0));
  tavren_bytes_t decoded{};
  EXPECT_TRUE(wire::decode(xdr_tavren_bytes_t, unit(0) + unit(0), &decoded));
  EXPECT_EQ(decoded.data.data_len, 0U);
  wire::release(xdr_tavren_bytes_t, &decoded);
}

TEST(Wire, PackedBytesAreRefused) {
  tavren_bytes_t decoded{};
  EXPECT_FALSE(wire::decode(xdr_tavren_bytes_t, unit(0) + text("abcdefgh"), &decoded));
  wire::release(xdr_tavren_bytes_t, &decoded);
}

TEST(Wire, NoConfigurationIsEightBytes) {
  const std::string bytes = unit(0) + unit(1);
  EXPECT_EQ(wire::encoded(xdr_tavren_rpc_set_config_1_argument, tavren_rpc_set_config_1_argument{nullptr, TRUE}),
            bytes);
  tavren_rpc_set_config_1_argument argument{};
  ASSERT_TRUE(wire::decode(xdr_tavren_rpc_set_config_1_argument, bytes, &argument));
  EXPECT_EQ(argument.arg1, nullptr);
  EXPECT_EQ(argument.arg2, TRUE);
}

TEST(Wire, AConfigurationToBeSetComesBehindAFlag) {
  Strings strings;
  tavren_config_t config{strings.record(), {7, 8}};
  const std::string bytes = unit(1) + strings.bytes() + unit(7) + unit(8) + unit(0);
  EXPECT_EQ(wire::encoded(xdr_tavren_rpc_set_config_1_argument, tavren_rpc_set_config_1_argument{&config, FALSE}),
            bytes);
  tavren_rpc_set_config_1_argument argument{};
  ASSERT_TRUE(wire::decode(xdr_tavren_rpc_set_config_1_argument, bytes, &argument));
  EXPECT_EQ(shown(argument.arg1->settings), sample_settings);
  EXPECT_EQ(argument.arg1->space_limit[1], 8);
  EXPECT_EQ(argument.arg2, FALSE);
  wire::release(xdr_tavren_rpc_set_config_1_argument, &argument);
  expect_refused_when_cut(xdr_tavren_rpc_set_config_1_argument, bytes);
}

/* The three arguments of a name and a value have the same form. */
template <class Argument>
void expect_two_strings(bool_t (*filter)(XDR*, Argument*)) {
  char name[] = "name", value[] = "a value";
  const std::string bytes = text(name) + text(value);
  EXPECT_EQ(wire::encoded(filter, Argument{name, value}), bytes);
  Argument argument{};
  ASSERT_TRUE(wire::decode(filter, bytes, &argument));
  EXPECT_STREQ(argument.arg1, name);
  EXPECT_STREQ(argument.arg2, value);
  wire::release(filter, &argument);
  expect_refused_when_cut(filter, bytes);
  EXPECT_EQ(wire::encoded(filter, Argument{name, nullptr}), std::nullopt);
  EXPECT_EQ(wire::encoded(filter, Argument{nullptr, value}), std::nullopt);
  std::string long_value(1 << 20, 'v');
  EXPECT_EQ(wire::encoded(filter, Argument{name, long_value.data()}, 2 << 20), text(name) + text(long_value));
}

TEST(Wire, ANameAndAValueAreTwoStrings) {
  expect_two_strings(xdr_tavren_rpc_set_tunable_1_argument);
  expect_two_strings(xdr_tavren_rpc_set_remote_command_1_argument);
  expect_two_strings(xdr_tavren_rpc_set_interval_1_argument);
}

}  // namespace
