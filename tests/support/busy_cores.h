#ifndef TESTS_SUPPORT_BUSY_CORES_H
#define TESTS_SUPPORT_BUSY_CORES_H

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

/*
 * Keeps all cores of the machine busy while it lives, where nobody else does: beside other tests that is so most of the
 * time, and they have better use for them.
 */
class BusyCores {
 public:
  BusyCores() {
    for (unsigned i = 0; i < cores; ++i) {
      threads.emplace_back([this] {
        while (!enough.load(std::memory_order_relaxed)) {
          if (running() > 3 * cores) usleep(10000);
          burn(std::chrono::milliseconds(2));
        }
      });
    }
  }
  ~BusyCores() {
    enough = true;
    for (std::thread& thread : threads) thread.join();
  }
  BusyCores(const BusyCores&) = delete;
  BusyCores& operator=(const BusyCores&) = delete;

 private:
  /* How many threads of the whole machine run or could; as if there were none where the system does not say so. */
  static unsigned running() {
    std::ifstream loads("/proc/loadavg");
    std::string load;
    unsigned count = 0;
    loads >> load >> load >> load >> count;
    return count;
  }

  static void burn(std::chrono::milliseconds time) {
    const auto end = std::chrono::steady_clock::now() + time;
    while (std::chrono::steady_clock::now() < end) {
    }
  }

  const unsigned cores = std::max(2U, std::thread::hardware_concurrency());
  std::atomic<bool> enough{false};
  std::vector<std::thread> threads;
};

#endif
