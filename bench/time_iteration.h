#ifndef BENCH_TIME_ITERATION_H
#define BENCH_TIME_ITERATION_H

#include <benchmark/benchmark.h>

#include <chrono>

/* Measures action as one iteration of a benchmark that uses manual time: what stands around it does not count. */
template <class Action>
void time_iteration(benchmark::State& state, Action action) {
  const auto start = std::chrono::steady_clock::now();
  action();
  state.SetIterationTime(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
}

#endif
