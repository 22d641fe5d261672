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
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "caller.h"

namespace {

constexpr int callers = 50;
constexpr int rounds = 50;
constexpr useconds_t pause_us = 20000;                     /* before each round */
constexpr off_t large = off_t{4} * 1024 * 1024 * 1024 - 1; /* bytes, more than are sent in all rounds */

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
