#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "core/catalogue_fixture.h"
#include "tavren.h"

namespace {

/* A buffer of size bytes within a longer one. */
class Buffer {
 public:
  explicit Buffer(size_t size) : content(size + 8, '#') {}
  char* data() { return content.data(); }

  /* A bar stands for a NUL byte, a # for each byte that was not touched. */
  std::string written() const {
    std::string text = content;
    std::replace(text.begin(), text.end(), '\0', '|');
    return text;
  }

 private:
  std::string content;
};

template <class Value>
std::string count_and_buffer(int (*format)(Value, char*), Value value) {
  Buffer buffer(TAVREN_FORMAT_SIZE);
  const int count = format(value, buffer.data());
  return std::to_string(count) + " " + buffer.written() + "\n";
}

/* Fifty characters each, where TAVREN_FORMAT_SIZE has room for the first 31; and refusals that are longer still. */
constexpr char fifty[] = "12345678901234567890123456789012345678901234567890";

class LongTexts : public CatalogueTest {
 protected:
  LongTexts()
      : CatalogueTest({{"Unlimited", fifty},
                       {"Not monitored", fifty},
                       {"Unknown", fifty},
                       {"Query failed", fifty},
                       {"None", fifty},
                       {"%d MB", "%d" + std::string(fifty + 1)},
                       {"Failed to create directory %s, errno=%d", "errno=%2$d: %1$s"},
                       {"Target specification must have the form: user@host:directory.", std::string(200, 't')},
                       {"The user name is more than %d bytes long.", "%d" + std::string(200, 'u')}}) {}
};

constexpr char cut_text[] = " 1234567890123456789012345678901|########\n";

TEST_F(LongTexts, OfSizesAreCutAndTheirWholeLengthReturned) {
  const std::string each = std::string("50") + cut_text;
  EXPECT_EQ(translated([] {
              std::string all;
              for (const int mb : {-1, 1}) all += count_and_buffer(tavren_format_space_limit, mb);
              for (const int mb : {-1, -2, -3, 1}) all += count_and_buffer(tavren_format_space_used, mb);
              return all;
            }),
            each + each + each + each + each + each);
}

TEST_F(LongTexts, OfTimesAreCutAndTheWrittenLengthReturned) {
  EXPECT_EQ(translated([] { return count_and_buffer(tavren_format_time, time_t{0}); }), std::string("31") + cut_text);
}

TEST_F(LongTexts, WithTheNumberInFrontShowThatAPathIsTooLong) {
  std::string home;
  while (home.size() < 4096) home += "/nowhere";
  EXPECT_EQ(translated([&] {
              setenv("TAVREN_HOME", home.c_str(), 1);
              char message[TAVREN_MESSAGE_SIZE] = "";
              tavren_setup_tmp_dir("x", message);
              return std::string(message);
            }),
            "errno=36: " + home.substr(0, TAVREN_MESSAGE_SIZE - 11));
}

TEST_F(LongTexts, OfRefusedTargetsAreCut) {
  const auto refused = [](std::string spec) {
    Buffer message(TAVREN_MESSAGE_SIZE);
    char *user = nullptr, *host = nullptr, *dir = nullptr;
    tavren_process_target(spec.data(), &user, &host, &dir, message.data());
    return message.written();
  };
  EXPECT_EQ(translated([&] { return refused("x"); }), std::string(127, 't') + "|########");
  EXPECT_EQ(translated([&] { return refused(std::string(64, 'x') + "@h:d"); }),
            "63" + std::string(125, 'u') + "|########");
}

}  // namespace
