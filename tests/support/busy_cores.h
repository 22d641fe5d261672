#ifndef TESTS_SUPPORT_BUSY_CORES_H
#define TESTS_SUPPORT_BUSY_CORES_H

#include <algorithm>
#include <atomic>
#include <thread>
#include <vector>

/* Keeps all cores of the machine busy while it lives. */
class BusyCores {
 public:
  BusyCores() {
    for (unsigned i = 0; i < std::max(2U, std::thread::hardware_concurrency()); ++i) {
      threads.emplace_back([this] {
        while (!enough.load(std::memory_order_relaxed)) {
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
  std::atomic<bool> enough{false};
  std::vector<std::thread> threads;
};

#endif
