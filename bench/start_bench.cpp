/*
 * How long a program takes that does nothing: one that links the library, one that links nothing, and one that links
 * the C++ run time, which a program in C++ has loaded anyway.
 */
#include <benchmark/benchmark.h>

#include "sessions.h"

namespace {

void linked(benchmark::State& state) {
  for (auto _ : state) run_program({START_LINKED});
}

void c_program(benchmark::State& state) {
  for (auto _ : state) run_program({START_C});
}

void cpp_program(benchmark::State& state) {
  for (auto _ : state) run_program({START_CPP});
}

BENCHMARK(linked)->Name("start_c/library")->UseRealTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(c_program)->Name("start_c/without")->UseRealTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(linked)->Name("start_cpp/library")->UseRealTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(cpp_program)->Name("start_cpp/without")->UseRealTime()->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
