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

  /* Sends a stream that is killed a while before its end was asked for, or after. Returns whether it was a success. */
  bool ends_well(int number, const std::function<void(TavrenHost&)>& kill) {
    TavrenHost& host = connected_session();
    host.start_send_stream("stream");
    for (size_t sent = 0; sent < content.size(); sent += 2048) {
      const size_t piece = std::min<size_t>(content.size() - sent, 2048);
      host.continue_send_stream(content.data() + sent, static_cast<unsigned int>(piece));
    }
    std::thread killer([&] {
      usleep(static_cast<useconds_t>(number) * 3000);
      kill(host);
    });
    bool success = true;
    try {
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
