/*
 * What an error of 25 lines takes on its way from the daemon to a person: written down, read back, printed.
 */
#include <benchmark/benchmark.h>

#include "long_error.h"

namespace {

void error_library(benchmark::State& state) {
  const TavrenError error = long_error();
  for (auto _ : state) benchmark::DoNotOptimize(sent_and_printed(error));
}

BENCHMARK(error_library)->Name("error/library")->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
