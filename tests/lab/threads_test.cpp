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

TEST_F(OtherThread, KillsACommand) {
  TavrenHost& host = connected_session();
  EXPECT_EQ(interrupt([&] { host.run_and_check_ecode("touch begun; sleep 100"); }, "[ -e $LAB_ARCHIVE/begun ]",
                      [&] { host.kill_ssh(); }),
            End::error);
}

TEST_F(OtherThread, CancelsACommand) {
  TavrenHost& host = connected_session();
  EXPECT_EQ(interrupt([&] { host.run_and_check_ecode("touch begun; sleep 100"); }, "[ -e $LAB_ARCHIVE/begun ]",
                      [&] { host.disable(); }),
            End::cancelled);
}

TEST_F(OtherThread, KillsAFile) {
  TavrenHost& host = connected_session();
  host.start_send_file("file", 0xFFFFFFFF, 0644);
  EXPECT_EQ(interrupt([&] { send_for_ever(host); }, "[ -s $LAB_ARCHIVE/file ]", [&] { host.kill_ssh(); }), End::error);
}

TEST_F(OtherThread, CancelsAFile) {
  TavrenHost& host = connected_session();
  host.start_send_file("file", 0xFFFFFFFF, 0644);
  EXPECT_EQ(interrupt([&] { send_for_ever(host); }, "[ -s $LAB_ARCHIVE/file ]", [&] { host.disable(); }),
            End::cancelled);
}

TEST_F(OtherThread, KillsAStream) {
  TavrenHost& host = connected_session();
  host.start_send_stream("stream");
  EXPECT_EQ(interrupt([&] { send_for_ever(host); }, "[ -s $LAB_ARCHIVE/stream ]", [&] { host.kill_ssh(); }),
            End::error);
}

TEST_F(OtherThread, CancelsAStream) {
  TavrenHost& host = connected_session();
  host.start_send_stream("stream");
  EXPECT_EQ(interrupt([&] { send_for_ever(host); }, "[ -s $LAB_ARCHIVE/stream ]", [&] { host.disable(); }),
            End::cancelled);
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
