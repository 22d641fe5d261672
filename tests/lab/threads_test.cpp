#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <iostream>
#include <thread>
#include <vector>

#include "TavrenExceptions.h"
#include "lab/lab.h"
#include "support/files.h"

namespace {

/* A session that one thread drives and another one breaks. */
class OtherThread : public LabTest {
 protected:
  enum class End { error, cancelled, timeout, none };

  /* Runs work, and meanwhile, once the archive host shows that it is under way, interruption. Returns how work ended.
   */
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
  /* A server that accepts and says nothing: the client waits for it until somebody ends it. */
  lab::stop_sshd();
  lab::run(
      "socat TCP-LISTEN:22,bind=127.0.0.1,fork SYSTEM:'touch $LAB/accepted; sleep 100' & "
      "while ! grep -q ':0016 ' /proc/net/tcp; do sleep 0.01; done");
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

/* What keeps two sessions of one process apart: neither holds the other's terminal or pipes. */
TEST_F(OtherThread, SessionsOpenedAtOnceHoldNothingOfEachOther) {
  std::vector<TavrenHost*> hosts;
  for (int i = 0; i < 8; ++i) hosts.push_back(&session(lab::settings()));
  std::vector<std::thread> threads;
  for (TavrenHost* host : hosts) threads.emplace_back([host] { host->open_connection(); });
  for (std::thread& thread : threads) thread.join();
  lab::run("for pid in $(pgrep -x -P " + std::to_string(getpid()) +
           " ssh); do ls -l /proc/$pid/fd; done >$LAB/descriptors; ! grep -q ptmx $LAB/descriptors");
  lab::run("[ $(pgrep -x -c -P " + std::to_string(getpid()) + " ssh) = 8 ]");
}

/* Opens count sessions, at_once at a time, and returns how many logins succeeded. */
int count_logins(const std::function<TavrenHost&()>& make_session, int count, int at_once) {
  std::atomic<int> succeeded{0};
  for (int done = 0; done < count; done += at_once) {
    std::vector<TavrenHost*> hosts;
    for (int i = 0; i < at_once; ++i) hosts.push_back(&make_session());
    std::vector<std::thread> threads;
    for (TavrenHost* host : hosts) {
      threads.emplace_back([host, &succeeded] {
        if (error_of([host] { host->open_connection(); }) == "no TavrenError was thrown") ++succeeded;
        host->close_connection();
      });
    }
    for (std::thread& thread : threads) thread.join();
  }
  return succeeded;
}

TEST_F(OtherThread, AHundredLoginsAllSucceed) {
  const int succeeded = count_logins([this]() -> TavrenHost& { return session(lab::settings()); }, 100, 4);
  std::cout << succeeded << " of 100 logins succeeded\n";
  EXPECT_EQ(succeeded, 100);
}

/* Servers drop logins at random when too many come at once: each is a success or a named error, never a hang. */
TEST_F(OtherThread, ThirtyLoginsAtOnceAtABusyServerAllComeBack) {
  lab::configure_sshd("MaxStartups 5:50:20");
  const int succeeded = count_logins([this]() -> TavrenHost& { return session(lab::settings()); }, 30, 30);
  std::cout << succeeded << " of 30 logins succeeded\n";
  EXPECT_GT(succeeded, 0);
}

}  // namespace
