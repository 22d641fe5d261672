/*
 * Has the archiving daemon archive the files of its section, and prints how many seconds that took, its login included.
 * Runs where bench/beside-tavrend has started it.
 *
 *   archiving ITEMS     as many as there are to be
 */
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include "caller.h"

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  const int items = atoi(argv[1]);
  Caller caller;
  caller.configure();
  while (!caller.is_sleeping()) usleep(1000);
  if (caller.archived() != 0) throw std::runtime_error("something was archived too soon");
  const auto start = std::chrono::steady_clock::now();
  caller.run_task();
  while (caller.archived() < items) usleep(25000);
  printf("%.6f\n", std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
  return 0;
}
