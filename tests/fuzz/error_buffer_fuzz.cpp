/* The counted buffer in which errors come from the daemon. */
#include <ios>
#include <list>
#include <memory>

#include "fuzz/serialised.h"

namespace {

struct Errors {
  ~Errors() {
    for (TavrenError* error : list) delete error;
  }
  std::list<TavrenError*> list;
};

/* Reads a buffer of exactly these bytes, which need not end in a NUL byte, into errors. */
void parse(const std::string& text, Errors& errors) {
  const auto data = std::make_unique<char[]>(text.size());
  memcpy(data.get(), text.data(), text.size());
  tavren_bytes_t bytes{};
  bytes.data.data_len = static_cast<uint32_t>(text.size());
  bytes.data.data_val = data.get();
  TavrenError::tavren_bytes_to_errors(bytes, errors.list);
}

std::string buffer_of(const Errors& errors) {
  std::string buffer = std::to_string(errors.list.size()) + '\0';
  for (const TavrenError* error : errors.list) buffer += serialised::form_of(*error);
  return buffer;
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text = Input(data, size).rest();
  std::vector<SerialisedModel::Error> expected;
  const bool malformed = serialised::is_malformed([&] { SerialisedModel(text).errors(expected); });
  Errors errors;
  try {
    parse(text, errors);
    MUST(!malformed);
    Errors again;
    parse(buffer_of(errors), again);
    MUST(errors.list.size() == again.list.size());
    for (auto i = errors.list.begin(), j = again.list.begin(); i != errors.list.end(); ++i, ++j) {
      serialised::check_same(**i, **j);
    }
  } catch (const FailedAssertion& failed) {
    MUST(malformed && serialised::is_stated(failed));
  } catch (const std::ios_base::failure&) {
    /* The stated outcome for a buffer that is too short. */
    MUST(malformed);
  }
  /* Also those before the place where the text went wrong. */
  MUST(errors.list.size() == expected.size());
  size_t i = 0;
  for (const TavrenError* error : errors.list) {
    serialised::check_says(*error, expected[i++]);
    serialised::check_round_trip(*error);
  }
  return 0;
}
