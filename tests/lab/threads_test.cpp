#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "TavrenExceptions.h"
#include "lab/lab.h"

namespace {

/* A session that one thread drives and another one breaks. */
class OtherThread : public LabTest {
 protected:
  enum class End { error, cancelled, timeout, none };

  /* Runs work and, once the archive host shows that it is under way, interruption. Returns how work ended. */
  End interrupt(const std::function<void()>& work, const std::string& under_way,
                const std::function<void()>& interruption) {
    std::atomic<End> end{End::none};
    std::thread worker([&] { end = end_of(work); });
    lab::run("for i in $(seq 1000); do if " + under_way + "; then exit 0; fi; sleep 0.01; done; exit 1");
    interruption();
    worker.join();
    return end;
  }

  /* Expects that work in a session ends in an error when the session is killed, and as cancelled when disabled. */
  void expect_ends(const std::function<void(TavrenHost&)>& work, const std::string& under_way) {
    TavrenHost& killed = connected_session();
    EXPECT_EQ(interrupt([&] { work(killed); }, under_way, [&] { killed.kill_ssh(); }), End::error);
    lab::run("rm -r $LAB_ARCHIVE/*");
    TavrenHost& cancelled = connected_session();
    EXPECT_EQ(interrupt([&] { work(cancelled); }, under_way, [&] { cancelled.disable(); }), End::cancelled);
  }

  static void send_for_ever(TavrenHost& host) {
    const std::string content(100000, 'x');
    for (;;) host.continue_send_file(content.data(), 100000);
  }

 private:
  static End end_of(const std::function<void()>& work) {
    try {
      work();
    } catch (const TavrenError&) {
      return End::error;
    } catch (const TavrenOperationCancelled&) {
      return End::cancelled;
    } catch (const TavrenTimeout&) {
      return End::timeout;
    }
    return End::none;
  }
};

TEST_F(OtherThread, KillsALogin) {
  lab::serve_silence();
  TavrenHost& host = session(lab::settings());
  EXPECT_EQ(interrupt([&] { host.open_connection(); }, "sleep 0.2; [ -e $LAB/accepted ]", [&] { host.kill_ssh(); }),
            End::error);
}

TEST_F(OtherThread, KillsOrCancelsACommand) {
  expect_ends([](TavrenHost& host) { host.run_and_check_ecode("touch begun; sleep 100"); },
              "[ -e $LAB_ARCHIVE/begun ]");
}

TEST_F(OtherThread, KillsOrCancelsAFile) {
  expect_ends(
      [](TavrenHost& host) {
        host.start_send_file("file", 0xFFFFFFFF, 0644);
        send_for_ever(host);
      },
      "[ -s $LAB_ARCHIVE/file ]");
}

TEST_F(OtherThread, KillsOrCancelsAStream) {
  expect_ends(
      [](TavrenHost& host) {
        host.start_send_stream("stream");
        send_for_ever(host);
      },
      "[ -s $LAB_ARCHIVE/stream ]");
}

TEST_F(OtherThread, ReadsAndClearsTheStatusOfASessionInUse) {
  TavrenHost& host = session(lab::settings());
  std::atomic<bool> done{false};
  std::thread reader([&] {
    while (!done) {
      tavren_connection_status_t status = TAVREN_CONNECTION_NONE;
      long when = 0;
      host.get_connection_status(status, when);
      host.clear_connection_status();
    }
  });
  host.open_connection();
  host.run_and_check_ecode("true");
  done = true;
  reader.join();
  SUCCEED();
}

}  // namespace
