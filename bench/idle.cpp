/*
 * Waits until the archiving daemon has archived what is due, and prints how often its threads wake up in a minute in
 * which nothing is, and its resident memory in KiB. Runs where bench/beside-tavrend has started it.
 *
 *   idle
 */
#include <stdio.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "caller.h"

namespace {

/* Returns the number behind name in one of the kernel's status files. */
long number_in(const std::string& file, const std::string& name) {
  std::ifstream status(file);
  std::string word;
  while (status >> word && word != name + ":") {
  }
  long number = -1;
  if (!(status >> number)) throw std::runtime_error("no " + name + " in " + file);
  return number;
}

/* Each wake-up ends with waiting again, which the kernel counts. */
long waits(const std::string& daemon) {
  long all = 0;
  for (const auto& thread : std::filesystem::directory_iterator(daemon + "/task")) {
    all += number_in(thread.path() / "status", "voluntary_ctxt_switches");
  }
  return all;
}

}  // namespace

int main() {
  const std::string daemon = "/proc/" + from_environment("DAEMON");
  constexpr unsigned int minute = 60;     /* seconds */
  constexpr unsigned int short_while = 2; /* until what the last call has begun is over */
  {
    Caller caller;
    caller.configure();
    caller.run_task();
    while (caller.archived() == 0 || !caller.is_sleeping()) usleep(25000);
  }
  sleep(short_while);
  const long before = waits(daemon);
  sleep(minute);
  printf("%ld %ld\n", waits(daemon) - before, number_in(daemon + "/status", "VmRSS"));
  return 0;
}
