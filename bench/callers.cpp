/*
 * Has many callers ask the archiving daemon for its status, all at once and again and again, and prints how long the
 * answers took: half of them, 99 of 100 and the slowest, in seconds. Runs where bench/beside-tavrend has started it.
 *
 *   callers quiet|sending     while the daemon has nothing to do, or sends a large file
 */
#include <fcntl.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "sessions.h"
#include "tavren_api.h"

namespace {

constexpr int callers = 50;
constexpr int rounds = 50;
constexpr useconds_t pause_us = 20000;                     /* before each round */
constexpr off_t large = off_t{4} * 1024 * 1024 * 1024 - 1; /* bytes, more than are sent in all rounds */

void need(int result, const char* what) {
  if (result != 0) throw std::runtime_error(std::string(what) + ": " + std::to_string(result));
}

class Caller {
 public:
  Caller() { need(tavren_api_open(&handle), "tavren_api_open"); }
  ~Caller() { tavren_api_close(&handle); }
  Caller(const Caller&) = delete;
  Caller& operator=(const Caller&) = delete;

  /* Returns the seconds until the answer. */
  double ask() {
    tavren_status_t status{};
    const auto start = std::chrono::steady_clock::now();
    need(tavren_api_get_status(&handle, &status), "tavren_api_get_status");
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  }

  void configure() {
    std::string texts[] = {from_environment("LAB_HOST"),     from_environment("LAB_ARCHIVE"),
                           from_environment("LAB_USER"),     from_environment("LAB_PASSWORD"),
                           from_environment("LAB_HOST_KEY"), ""};
    const tavren_config_t config = {
        {texts[0].data(), texts[1].data(), texts[2].data(), texts[3].data(), texts[4].data(), texts[5].data()},
        {-1, -1}};
    need(tavren_api_set_config(&handle, &config, 1), "tavren_api_set_config");
  }

  void run_task() { need(tavren_api_run_task(&handle, "LogTypeTask.large"), "tavren_api_run_task"); }

  bool is_sleeping() {
    int sleeping = 0;
    need(tavren_api_is_tavrend_sleeping(&handle, &sleeping), "tavren_api_is_tavrend_sleeping");
    return sleeping != 0;
  }

 private:
  tavren_api_handle_t handle{};
};

std::vector<double> ask_at_once() {
  std::vector<Caller> all(callers);
  std::vector<std::vector<double>> seconds(callers);
  std::vector<std::thread> threads;
  pthread_barrier_t barrier;
  pthread_barrier_init(&barrier, nullptr, callers);
  for (size_t i = 0; i < callers; ++i) {
    threads.emplace_back([&, i] {
      for (int round = 0; round < rounds; ++round) {
        usleep(pause_us);
        pthread_barrier_wait(&barrier);
        seconds[i].push_back(all[i].ask());
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  pthread_barrier_destroy(&barrier);
  std::vector<double> sorted;
  for (const auto& some : seconds) sorted.insert(sorted.end(), some.begin(), some.end());
  std::sort(sorted.begin(), sorted.end());
  return sorted;
}

/* Returns whether something of the file has arrived. */
bool has_begun() { return system("[ -n \"$(find \"$LAB_ARCHIVE\"/large -type f -size +1M 2>/dev/null)\" ]") == 0; }

void begin_to_send(Caller& caller) {
  const std::string path = from_environment("LAB") + "/logs/large";
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (fd == -1 || ftruncate(fd, large) == -1) throw std::runtime_error("cannot make " + path);
  close(fd);
  caller.run_task();
  while (!has_begun()) usleep(10000);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  const bool sends = strcmp(argv[1], "sending") == 0;
  Caller caller;
  caller.configure();
  if (sends) begin_to_send(caller);
  while (!sends && !caller.is_sleeping()) usleep(10000);
  const std::vector<double> seconds = ask_at_once();
  if (caller.is_sleeping() == sends) throw std::runtime_error("the file was sent too soon");
  const size_t count = seconds.size();
  printf("%.6f %.6f %.6f\n", seconds[count / 2], seconds[count - count / 100 - 1], seconds.back());
  return 0;
}
