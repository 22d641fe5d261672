#include <gtest/gtest.h>

#include <string>

#include "daemon/wire.h"

using wire::text;
using wire::unit;

/*
 * Each record through record streams whose fragments and reads end anywhere, so that every way of moving a unit is
 * taken.
 */
namespace {

std::string settings(const std::string& key) {
  return text("h") + text("/d") + text("usr") + text("four") + text(key) + text("");
}

/* Decodes the bytes in fragments of many lengths and encodes what came of them again. */
template <class Object>
void expect_same_in_fragments(bool_t (*filter)(XDR*, Object*), const std::string& bytes) {
  for (const size_t fragment : {1U, 3U, 4U, 5U, 8U, 9U, 11U, 12U, 129U, 10000U}) {
    for (const size_t piece : {1U, 13U, 1000U}) {
      Object object{};
      EXPECT_TRUE(wire::decode_records(filter, bytes, fragment, piece, &object)) << fragment << " " << piece;
      for (const u_int buffer_size : {100U, 104U, 108U, 112U}) {
        EXPECT_EQ(wire::encoded_in_records(filter, object, buffer_size), bytes) << fragment << " " << piece;
      }
      wire::release(filter, &object);
    }
  }
}

/* A daemon may have more values than this library knows. */
TEST(WireStreams, CarryEnumerationsAndValuesThatTheyDoNotHave) {
  for (const std::string& bytes : {unit(1), unit(2), unit(77), unit(0xFFFFFFFF)}) {
    expect_same_in_fragments(xdr_tavren_state_t, bytes);
    expect_same_in_fragments(xdr_tavren_connection_status_t, bytes);
    expect_same_in_fragments(xdr_tavren_compartment_t, bytes);
  }
}

/* Strings of all lengths move the limits over every place in the stream's buffer, its end included. */
TEST(WireStreams, CarrySettingsAndAConfigurationWhereverTheBufferEnds) {
  for (size_t length = 0; length < 116; ++length) {
    const std::string bytes = settings(std::string(length, 'k'));
    expect_same_in_fragments(xdr_tavren_settings_t, bytes);
    expect_same_in_fragments(xdr_tavren_config_t, bytes + unit(0x01020304) + unit(0x80000000));
  }
}

TEST(WireStreams, CarryAStatus) {
  const std::string compartment = unit(1) + unit(0xFFFFFFFE) + unit(0x80000000);
  expect_same_in_fragments(xdr_tavren_compartment_status_t, compartment);
  expect_same_in_fragments(xdr_tavren_status_t, unit(0x80000000) + unit(2) + compartment + compartment);
}

TEST(WireStreams, CarryBytes) {
  std::string bytes = unit(7) + unit(60);
  for (unsigned i = 0; i < 60; ++i) bytes += unit(i % 2 == 0 ? i : 0xFFFFFF80 + i);
  expect_same_in_fragments(xdr_tavren_bytes_t, bytes);
}

TEST(WireStreams, CarryAConfigurationToBeSet) {
  expect_same_in_fragments(xdr_tavren_rpc_set_config_1_argument, unit(0) + unit(1));
  expect_same_in_fragments(xdr_tavren_rpc_set_config_1_argument,
                           unit(1) + settings("key") + unit(7) + unit(8) + unit(0));
}

TEST(WireStreams, CarryANameAndAValue) {
  const std::string bytes = text("name") + text("a value");
  expect_same_in_fragments(xdr_tavren_rpc_set_tunable_1_argument, bytes);
  expect_same_in_fragments(xdr_tavren_rpc_set_remote_command_1_argument, bytes);
  expect_same_in_fragments(xdr_tavren_rpc_set_interval_1_argument, bytes);
}

TEST(WireStreams, CarryAMegabyte) {
  const std::string megabyte(1 << 20, 'm');
  tavren_config_t config{};
  EXPECT_TRUE(
      wire::decode_records(xdr_tavren_config_t, settings(megabyte) + unit(1) + unit(2), 10000, SIZE_MAX, &config));
  EXPECT_EQ(config.settings.host_key, megabyte);
  wire::release(xdr_tavren_config_t, &config);
  tavren_rpc_set_tunable_1_argument setting{};
  EXPECT_TRUE(wire::decode_records(xdr_tavren_rpc_set_tunable_1_argument, text("name") + text(megabyte), 10000,
                                   SIZE_MAX, &setting));
  EXPECT_EQ(setting.arg2, megabyte);
  wire::release(xdr_tavren_rpc_set_tunable_1_argument, &setting);
}

TEST(WireStreams, CarryTwoMebibytesOfErrors) {
  constexpr unsigned count = 2 << 20;
  std::string bytes = unit(0) + unit(count);
  bytes.append(std::string(count * 4, '\0'));
  tavren_bytes_t errors{};
  EXPECT_TRUE(wire::decode_records(xdr_tavren_bytes_t, bytes, 1 << 16, SIZE_MAX, &errors));
  EXPECT_EQ(errors.data.data_len, count);
  wire::release(xdr_tavren_bytes_t, &errors);
}

/* A stream in memory that counts who asks for a place in its own buffer. */
class InlineStream : public testing::Test {
 protected:
  void begin(xdr_op operation) {
    xdrmem_create(&xdrs, bytes.data(), static_cast<u_int>(bytes.size()), operation);
    real = xdrs.x_ops;
    counting = *real;
    counting.x_inline = count;
    xdrs.x_ops = &counting;
    asked = 0;
  }

  static int32_t* count(XDR* stream, u_int size) {
    if (size == 8) ++asked;
    return real->x_inline(stream, size);
  }

  std::string bytes = std::string(1000, '\0');
  XDR xdrs{};

  char text_of_it[2] = "x";

  static inline int asked = 0;

 private:
  static inline const XDR::xdr_ops* real = nullptr;
  XDR::xdr_ops counting{};
};

TEST_F(InlineStream, TakesBothLimitsAtOnce) {
  tavren_config_t config = {{text_of_it, text_of_it, text_of_it, text_of_it, text_of_it, text_of_it}, {1, 2}};
  begin(XDR_ENCODE);
  EXPECT_TRUE(xdr_tavren_config_t(&xdrs, &config));
  EXPECT_EQ(asked, 1);
  begin(XDR_DECODE);
  tavren_config_t decoded{};
  EXPECT_TRUE(xdr_tavren_config_t(&xdrs, &decoded));
  EXPECT_EQ(asked, 1);
  EXPECT_EQ(decoded.space_limit[1], 2);
  wire::release(xdr_tavren_config_t, &decoded);
}

TEST_F(InlineStream, GetsNothingBehindAMemberThatFails) {
  tavren_settings_t settings = {nullptr, text_of_it, text_of_it, text_of_it, text_of_it, text_of_it};
  begin(XDR_ENCODE);
  EXPECT_FALSE(xdr_tavren_settings_t(&xdrs, &settings));
  EXPECT_EQ(xdr_getpos(&xdrs), 0U);

  tavren_config_t config = {{text_of_it, text_of_it, text_of_it, text_of_it, text_of_it, nullptr}, {1, 2}};
  begin(XDR_ENCODE);
  EXPECT_FALSE(xdr_tavren_config_t(&xdrs, &config));
  EXPECT_EQ(asked, 0);

  tavren_rpc_set_config_1_argument change = {&config, TRUE};
  begin(XDR_ENCODE);
  EXPECT_FALSE(xdr_tavren_rpc_set_config_1_argument(&xdrs, &change));
  EXPECT_EQ(xdr_getpos(&xdrs), 4U + 5U * 8U); /* that there is one, and its strings before the one that is missing */

  tavren_rpc_set_tunable_1_argument argument = {nullptr, text_of_it};
  begin(XDR_ENCODE);
  EXPECT_FALSE(xdr_tavren_rpc_set_tunable_1_argument(&xdrs, &argument));
  EXPECT_EQ(xdr_getpos(&xdrs), 0U);
}

}  // namespace
