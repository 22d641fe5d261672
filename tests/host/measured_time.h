#ifndef TESTS_HOST_MEASURED_TIME_H
#define TESTS_HOST_MEASURED_TIME_H

#include <unistd.h>

#include <functional>
#include <future>
#include <string>

#include "support/host_session.h"
#include "support/process_state.h"
#include "support/recorded_system.h"
#include "support/scripted_client.h"
#include "tavren_basic.h"

/*
 * Time-outs of which no two are alike, so that the time that passes on a stopped uptime clock tells which of them was
 * used, and from when it was counted.
 */
constexpr int connect_time = 2; /* seconds */
constexpr int shell_start_time = 8;
constexpr int command_time = 3;
constexpr int fixed_send_time = 5; /* of the short answers to the client and the sink: no tunable */

/* Uptime comes in whole seconds, so every wait may last a second longer. */
constexpr int all_of(int timeout) { return timeout + 1; }

class MeasuredTime {
 protected:
  MeasuredTime() {
    set_tunable("ssh_connect_timeout", std::to_string(connect_time));
    set_tunable("ssh_shell_start_timeout", std::to_string(shell_start_time));
    set_tunable("ssh_command_timeout", std::to_string(command_time));
    set_tunable("ssh_du_command_timeout", "20");
    /* What comes before the measured step may take any time. */
    recorded_system::stop_uptime();
  }
  ~MeasuredTime() {
    recorded_system::reset();
    set_tunable("ssh_du_command_timeout", "default");
  }
  MeasuredTime(const MeasuredTime&) = delete;
  MeasuredTime& operator=(const MeasuredTime&) = delete;

  void start_measuring(const std::string& silence = "") {
    recorded_system::stop_uptime(silence);
    start = tavren_get_uptime();
  }

  /*
   * Runs action in another thread. When its far side, which has meeting's directory, has written to the named pipe
   * "pausing" and the action waits for it, so many seconds of uptime pass, and the far side may go on.
   */
  static void run_with_pause(const std::function<void()>& action, const ScriptedClient& meeting, int seconds) {
    std::promise<pid_t> thread;
    auto running = std::async(std::launch::async, [&] {
      thread.set_value(gettid());
      action();
    });
    wait_at(meeting.path("pausing"));
    wait_until_it_stays_asleep(thread.get_future().get());
    recorded_system::pass_uptime(seconds);
    release(meeting.path("go"));
    running.get();
  }

  /* The seconds of uptime that have passed. */
  int passed() const { return tavren_get_uptime() - start; }

 private:
  int start = 0;
};

#endif
