#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <string>
#include <thread>

#include "TavrenError.h"
#include "lab/lab.h"
#include "support/files.h"

namespace {

/*
 * Streams whose client or far shell is killed while they end, at one moment after another. Whatever the moment, a
 * success is a file that is whole.
 */
class StreamThatIsCutOff : public LabTest {
 protected:
  static constexpr int streams = 15;

  void send(TavrenHost& host, size_t first, size_t end) const {
    for (size_t sent = first; sent < end; sent += 2048) {
      host.continue_send_stream(content.data() + sent, static_cast<unsigned int>(std::min<size_t>(end - sent, 2048)));
    }
  }

  /*
   * Sends a stream that is killed a while after its middle, before its end was asked for or behind that. Returns
   * whether it was a success.
   */
  bool ends_well(int number, const std::function<void(TavrenHost&)>& kill) {
    TavrenHost& host = connected_session();
    host.start_send_stream("stream");
    send(host, 0, content.size() / 2);
    std::thread killer([&] {
      usleep(static_cast<useconds_t>(number) * 3000);
      kill(host);
    });
    bool success = true;
    try {
      send(host, content.size() / 2, content.size());
      host.end_send_stream();
    } catch (const TavrenError&) {
      success = false;
    }
    killer.join();
    host.close_connection();
    return success;
  }

  /* Expects of every stream that it is whole if it was a success, and that at least one was cut off. */
  void expect_honest_ends(const std::function<void(TavrenHost&)>& kill) {
    int failures = 0;
    for (int number = 0; number < streams; ++number) {
      if (ends_well(number, kill)) {
        EXPECT_TRUE(read_file(lab::archived("stream")) == content) << "stream " << number;
      } else {
        ++failures;
      }
    }
    EXPECT_GT(failures, 0);
  }

  const std::string content = std::string(1500000, 'x') + "\n";
};

TEST_F(StreamThatIsCutOff, ByAnEndOfTheClientIsNoSuccess) {
  expect_honest_ends([](TavrenHost& host) { host.kill_ssh(); });
}

TEST_F(StreamThatIsCutOff, ByAnEndOfTheFarShellIsNoSuccess) {
  /* As when the archive host shuts down. */
  expect_honest_ends([](TavrenHost&) { lab::run("pkill -KILL -u $LAB_USER -x sh; true"); });
}

TEST_F(StreamThatIsCutOff, ByAnEndOfTheServersSessionIsNoSuccess) {
  expect_honest_ends([](TavrenHost&) { lab::run("pkill -KILL -u $LAB_USER sshd; true"); });
}

}  // namespace
