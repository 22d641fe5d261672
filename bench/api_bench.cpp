/*
 * What a call of the client API costs beside the bare call that it makes. Runs where a daemon is registered.
 */
#include <benchmark/benchmark.h>
#include <stdarg.h>
#include <stdio.h>
#include <sys/time.h>

#include "tavren_api.h"
#include "tavren_rpc.h"

namespace {

tavren_api_handle_t handle;

bool_t xdr_nothing(XDR*, ...) { return TRUE; }

bool_t xdr_state(XDR* xdrs, ...) {
  va_list arguments;
  va_start(arguments, xdrs);
  const bool_t result = xdr_enum(xdrs, va_arg(arguments, enum_t*));
  va_end(arguments);
  return result;
}

void api_get_state(benchmark::State& state) {
  tavren_state_t answer{};
  for (auto _ : state) {
    if (tavren_api_get_state(&handle, &answer) != 0) state.SkipWithError("no answer");
  }
}

void bare_get_state(benchmark::State& state) {
  constexpr timeval timeout{25, 0};
  enum_t answer = 0;
  for (auto _ : state) {
    if (clnt_call(handle.clnt, TAVREN_RPC_GET_STATE, xdr_nothing, nullptr, xdr_state, reinterpret_cast<char*>(&answer),
                  timeout) != RPC_SUCCESS) {
      state.SkipWithError("no answer");
    }
  }
}

BENCHMARK(api_get_state)->Name("api/library");
BENCHMARK(bare_get_state)->Name("api/clnt_call");

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (tavren_api_open(&handle) != 0) {
    char message[TAVREN_API_TEXT_SIZE];
    fprintf(stderr, "%s\n", tavren_api_errmsg(&handle, message));
    return 1;
  }
  benchmark::RunSpecifiedBenchmarks();
  tavren_api_close(&handle);
  return 0;
}
