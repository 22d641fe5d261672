/*
 * Each record of the daemon's protocol, decoded from memory and from record streams in odd pieces, against a plain
 * reading of the bytes; what was decoded encodes to the one form that the protocol has for it.
 */
#include <functional>
#include <optional>

#include "daemon/wire.h"
#include "fuzz/fuzz.h"

namespace {

/*
 * How records are described: i an integer, s a string, b a truth value, c a byte array with its count, ? a truth
 * value, and behind a true one a configuration.
 */
constexpr char config_form[] = "ssssssii";

constexpr size_t largest_announcement = 1 << 20; /* bytes */

/* A plain reading. */
struct Reading {
  size_t position = 0;
  std::string canonical;   /* the same content in the protocol's one form */
  bool is_complete = true; /* the bytes hold the whole record */
  bool is_hostile = false; /* they announce more than is worth allocating here, as the RPC library would */
};

class Reader {
 public:
  Reader(const std::string& record, const std::string& form) : bytes(record) {
    for (size_t i = 0; i < form.size() && reading.is_complete && !reading.is_hostile; ++i) {
      read(form[i]);
      if (form[i] == '?' && !is_present) i += strlen(config_form);
    }
  }
  Reading result() const { return reading; }

 private:
  std::optional<uint32_t> unit() {
    if (bytes.size() - reading.position < 4) {
      reading.is_complete = false;
      return std::nullopt;
    }
    uint32_t value = 0;
    for (int i = 0; i < 4; ++i) value = value << 8 | static_cast<uint8_t>(bytes[reading.position++]);
    return value;
  }

  void read(char kind) {
    const std::optional<uint32_t> value = unit();
    if (!value) return;
    switch (kind) {
      case 's':
        read_string(*value);
        break;
      case 'c':
        read_array(*value);
        break;
      case 'i':
        reading.canonical += wire::unit(*value);
        break;
      default:
        is_present = *value != 0;
        reading.canonical += wire::unit(is_present ? 1 : 0);
        break;
    }
  }

  void read_string(uint32_t length) {
    /* With its NUL byte it would be longer than the RPC library can tell. */
    if (length == UINT32_MAX) {
      reading.is_complete = false;
      return;
    }
    reading.is_hostile = length > largest_announcement;
    if (reading.is_hostile) return;
    const size_t padded = (length + 3) / 4 * 4;
    if (bytes.size() - reading.position < padded) {
      reading.is_complete = false;
      return;
    }
    reading.canonical += wire::text(up_to_nul(bytes.substr(reading.position, length)));
    reading.position += padded;
  }

  void read_array(uint32_t count) {
    reading.is_hostile = count > largest_announcement;
    if (reading.is_hostile) return;
    reading.canonical += wire::unit(count);
    for (uint32_t i = 0; i < count; ++i) {
      const std::optional<uint32_t> value = unit();
      if (!value) return;
      reading.canonical += wire::unit(static_cast<uint32_t>(static_cast<int8_t>(static_cast<uint8_t>(*value))));
    }
  }

  const std::string& bytes;
  Reading reading;
  bool is_present = true;
};

/*
 * Returns what the fragments of the first record in stream hold, up to an empty one that is not the last: the RPC
 * library takes that for nonsense.
 */
std::string first_record(const std::string& stream) {
  std::string record;
  for (size_t p = 0; p + 4 <= stream.size();) {
    uint32_t header = 0;
    for (int i = 0; i < 4; ++i) header = header << 8 | static_cast<uint8_t>(stream[p++]);
    if (header == 0) break;
    record += stream.substr(p, header & 0x7FFFFFFF);
    p += header & 0x7FFFFFFF;
    if ((header & 0x80000000) != 0) break;
  }
  return record;
}

template <class Object>
using Filter = bool_t (*)(XDR*, Object*);

template <class Object>
void check_memory(Filter<Object> filter, const std::string& bytes, const Reading& expected) {
  Object object{};
  std::string copy = bytes;
  XDR xdrs;
  xdrmem_create(&xdrs, copy.data(), static_cast<u_int>(copy.size()), XDR_DECODE);
  const bool decoded = filter(&xdrs, &object) != FALSE;
  const size_t position = xdr_getpos(&xdrs);
  xdr_destroy(&xdrs);
  MUST(decoded == expected.is_complete);
  if (decoded) {
    MUST(position == expected.position);
    MUST(wire::encoded(filter, object, expected.canonical.size()) == expected.canonical);
    MUST(wire::encoded_in_records(filter, object, 100) == expected.canonical);
    MUST(!wire::encoded(filter, object, expected.canonical.size() - 4));
  }
  wire::release(filter, &object);
}

template <class Object>
void check_stream(Filter<Object> filter, const std::string& stream, size_t piece, const Reading& expected) {
  Object object{};
  wire::Pipe pipe{stream, 0, piece};
  XDR xdrs;
  xdrrec_create(&xdrs, 100, 100, &pipe, wire::read_from, wire::write_to);
  xdrs.x_op = XDR_DECODE;
  const bool decoded = xdrrec_skiprecord(&xdrs) != FALSE && filter(&xdrs, &object) != FALSE;
  xdr_destroy(&xdrs);
  MUST(decoded == expected.is_complete);
  if (decoded) MUST(wire::encoded(filter, object, expected.canonical.size()) == expected.canonical);
  wire::release(filter, &object);
}

template <class Object>
void check(Filter<Object> filter, const std::string& form, Input& input) {
  const size_t fragment = input.byte() + 1;
  const size_t piece = input.byte() + 1;
  const bool has_headers = input.flag();
  const std::string bytes = input.rest();
  const std::string record = has_headers ? first_record(bytes) : bytes;
  const Reading expected = Reader(record, form).result();
  if (expected.is_hostile) return;
  check_memory(filter, record, expected);
  check_stream(filter, has_headers ? bytes : wire::with_headers(bytes, fragment), piece, expected);
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  const std::function<void()> checks[] = {
      [&input] { check(xdr_tavren_state_t, "i", input); },
      [&input] { check(xdr_tavren_connection_status_t, "i", input); },
      [&input] { check(xdr_tavren_compartment_t, "i", input); },
      [&input] { check(xdr_tavren_settings_t, "ssssss", input); },
      [&input] { check(xdr_tavren_config_t, config_form, input); },
      [&input] { check(xdr_tavren_compartment_status_t, "iii", input); },
      [&input] { check(xdr_tavren_status_t, "iiiiiiii", input); },
      [&input] { check(xdr_tavren_bytes_t, "ic", input); },
      [&input] { check(xdr_tavren_rpc_set_config_1_argument, std::string("?") + config_form + "b", input); },
      [&input] { check(xdr_tavren_rpc_set_tunable_1_argument, "ss", input); },
      [&input] { check(xdr_tavren_rpc_set_remote_command_1_argument, "ss", input); },
      [&input] { check(xdr_tavren_rpc_set_interval_1_argument, "ss", input); }};
  checks[input.byte() % 12]();
  return 0;
}
