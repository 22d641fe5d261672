#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <iostream>
#include <optional>
#include <random>

#include "lab/lab.h"
#include "support/busy_cores.h"
#include "support/files.h"
#include "support/random_bytes.h"

namespace {

class Streams : public LabTest {
 protected:
  /* Sends content, in pieces of random sizes, as a stream of a session of its own. */
  void send(const std::string& content, const std::string& name) {
    TavrenHost& host = connected_session();
    std::optional<BusyCores> busy; /* not while it logs in, which takes long enough */
    if (cores_are_busy) busy.emplace();
    host.start_send_stream(name);
    for (size_t sent = 0; sent < content.size();) {
      const size_t piece = std::min(content.size() - sent, static_cast<size_t>(generator() % 60000 + 1));
      host.continue_send_stream(content.data() + sent, static_cast<unsigned int>(piece));
      sent += piece;
    }
    host.end_send_stream();
    host.close_connection();
  }

  /* Sizes of every order of magnitude from 1 byte to 8 MiB. */
  size_t random_size() {
    const auto bits = static_cast<unsigned int>(generator() % 24);
    return std::min<size_t>((size_t{1} << bits) + generator() % (size_t{1} << bits), 8 << 20);
  }

  /* Sends count streams, of which all must arrive whole. */
  void expect_whole(int count) {
    int whole = 0;
    for (int i = 0; i < count; ++i) {
      std::string content = random_bytes(random_size(), generator());
      if (i % 2 == 0) content.back() = '\n';
      send(content, "stream");
      if (read_file(lab::archived("stream")) == content) ++whole;
      unlink(lab::archived("stream").c_str());
    }
    std::cout << whole << " of " << count << " streams whole\n";
    EXPECT_EQ(whole, count);
  }

  std::minstd_rand generator{4711};
  bool cores_are_busy = false;
};

TEST_F(Streams, OfEveryByteValueOrOfNothingArriveWhole) {
  std::string every_byte;
  for (int i = 0; i < 256 * 40; ++i) every_byte += static_cast<char>(i);
  for (const std::string& content : {every_byte, std::string()}) {
    send(content, "stream");
    EXPECT_EQ(read_file(lab::archived("stream")), content);
  }
}

TEST_F(Streams, OfRandomSizesAllArriveWhole) { expect_whole(200); }

TEST_F(Streams, OfRandomSizesAllArriveWholeWhileTheCoresAreBusy) {
  cores_are_busy = true;
  expect_whole(100);
}

}  // namespace
