#include <chrono>
#include <functional>
#include <optional>
#include <thread>

#include "TavrenExceptions.h"
#include "TavrenKeyDownloader.h"
#include "core/error_lines.h"
#include "endurance/endurance.h"
#include "support/named.h"
#include "support/own_machine.h"
#include "tavren_basic.h"

/*
 * The network fails, or the server stands still, in the middle of each thing that a session does.
 */
namespace {

/* A way in which the far side falls silent, and comes back. */
struct Cut {
  const char* begin;
  const char* end;
};

/* A queue too short for any packet drops them all. */
constexpr Named<Cut> cuts[] = {
    {"PacketsDropped", {"tc qdisc add dev lo root bfifo limit 1", "tc qdisc del dev lo root"}},
    {"ServerStopped", {"pkill -STOP sshd", "pkill -CONT sshd"}},
};

/* A thing that a session does, after what prepares it. */
struct Step {
  bool needs_session;
  void (*run)(TavrenHost&);
};

constexpr size_t file_size = 30000000;

const std::string& content() {
  static const std::string bytes(file_size, 'x');
  return bytes;
}

void send_stream(TavrenHost& host) {
  host.start_send_stream("stream");
  host.continue_send_stream(content().data(), static_cast<unsigned int>(content().size()));
  host.end_send_stream();
}

void send_file(TavrenHost& host) { host.send_data(content().data(), static_cast<int>(file_size), "file", 0644); }

void run_command(TavrenHost& host) {
  host.run_and_expect_line("i=0; while [ $i -lt 20 ]; do sleep 0.02; i=$((i + 1)); done; echo done", "done");
}

const Named<Step> steps[] = {
    {"Login", {false, [](TavrenHost& host) { host.open_connection(); }}},
    {"Command", {true, run_command}},
    {"File", {true, send_file}},
    {"Stream", {true, send_stream}},
    {"HostTest", {true, [](TavrenHost& host) { host.test_host(); }}},
    {"KeyDownload",
     {false,
      [](TavrenHost&) {
        std::string key;
        TavrenKeyDownloader(lab::value("LAB_HOST")).download_host_key(key);
      }}},
};

/* Returns "" for success, and otherwise what was thrown says. */
std::string outcome_of(const std::function<void()>& action) {
  try {
    action();
  } catch (const TavrenError& error) {
    return printed(error);
  } catch (const TavrenTimeout&) {
    return "timeout";
  }
  return "";
}

constexpr int timeout = 3; /* seconds, where the cut stays */

struct ShortTimeouts {
  const ScopedTunable connect{"ssh_connect_timeout", timeout};
  const ScopedTunable start{"ssh_shell_start_timeout", timeout};
  const ScopedTunable command{"ssh_command_timeout", timeout};
};

class NetworkCut : public LabTest, public testing::WithParamInterface<std::tuple<Named<Step>, Named<Cut>>> {
 protected:
  NetworkCut() { need_own_machine("a network that is cut"); }

  const Step& step() const { return std::get<0>(GetParam()).value; }
  const Cut& cut() const { return std::get<1>(GetParam()).value; }

  /*
   * Runs the step with the far side silent from after milliseconds on, for so many milliseconds, 0: for ever. Returns
   * the outcome; seconds receives how long it took.
   */
  std::string run(int after, int length, int& seconds) {
    TavrenHost host(false, false);
    Settings settings = lab::settings();
    host.set_settings(settings.record());
    host.enable();
    if (step().needs_session) host.open_connection();
    std::optional<ShortTimeouts> short_timeouts; /* of the step, not of what comes before it */
    if (length == 0) short_timeouts.emplace();
    if (after == 0) lab::run(cut().begin);
    std::thread cutter([this, after, length] {
      std::this_thread::sleep_for(std::chrono::milliseconds(after));
      if (after != 0) lab::run(cut().begin);
      if (length == 0) return;
      std::this_thread::sleep_for(std::chrono::milliseconds(length));
      lab::run(cut().end);
    });
    const int started = tavren_get_uptime();
    const std::string outcome = outcome_of([&] { step().run(host); });
    seconds = tavren_get_uptime() - started;
    cutter.join();
    if (length == 0) lab::run(cut().end);
    host.close_connection();
    return outcome;
  }

  /* Milliseconds from the start of a step to a cut: before it, in its middle, and when it may be over. */
  static std::vector<int> moments() {
    std::vector<int> all = {0, 25, 250};
    if (repetitions(0, 1) == 1) all = {0, 10, 20, 30, 40, 60, 90, 120, 150, 200, 250, 300, 350, 400, 500, 700};
    return all;
  }

  void expect_no_remains(const Footprint& before) {
    const Footprint after = Footprint::now();
    EXPECT_EQ(after.descriptors, before.descriptors);
    EXPECT_EQ(after.children, before.children);
  }
};

TEST_P(NetworkCut, ThatPassesGoesUnnoticed) {
  const Footprint before = Footprint::now();
  for (const int after : moments()) {
    int seconds = 0;
    EXPECT_EQ(run(after, 1200, seconds), "") << "cut after " << after << " ms";
  }
  expect_no_remains(before);
}

TEST_P(NetworkCut, ThatStaysIsAnErrorByTheDeadline) {
  const Footprint before = Footprint::now();
  constexpr int longest_run_of_steps = 6; /* each with its time-out and the second that a wait may last longer */
  int failures = 0;
  for (const int after : moments()) {
    int seconds = 0;
    const std::string outcome = run(after, 0, seconds);
    std::cout << "cut after " << after << " ms: " << (outcome.empty() ? "success" : outcome) << " in " << seconds
              << " s\n";
    EXPECT_LE(seconds, longest_run_of_steps * (timeout + 1));
    if (!outcome.empty()) ++failures;
  }
  EXPECT_GT(failures, 0);
  expect_no_remains(before);
}

INSTANTIATE_TEST_SUITE_P(, NetworkCut, testing::Combine(testing::ValuesIn(steps), testing::ValuesIn(cuts)),
                         [](const auto& test) {
                           return std::string(std::get<0>(test.param).name) + std::get<1>(test.param).name;
                         });

}  // namespace
