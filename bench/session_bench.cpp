/*
 * What a session costs that carries little: logging in, a command, its output, and fetching the host's key.
 */
#include <benchmark/benchmark.h>

#include <fstream>
#include <list>
#include <stdexcept>
#include <string>
#include <vector>

#include "sessions.h"
#include "tavren_host_util.h"
#include "time_iteration.h"

namespace {

constexpr int timeout = 60; /* seconds */
constexpr int lines = 1000;
constexpr size_t line_size = 80;           /* bytes, with the newline */
constexpr size_t library_read_size = 1024; /* bytes that a read of the library takes at the most */

/* Logging in, the end of the session not counted, beside a program that logs in and runs the shortest command. */

void login_library(benchmark::State& state) {
  for (auto _ : state) {
    const LibrarySession session = new_session();
    time_iteration(state, [&] { session->open_connection(); });
  }
}

void login_sshpass(benchmark::State& state) {
  std::vector<std::string> command = {"/usr/bin/sshpass", "-p", from_environment("LAB_PASSWORD")};
  command.insert(command.end(), client_command().begin(), client_command().end());
  command.back() = "true"; /* in the place of the session's shell */
  for (auto _ : state) time_iteration(state, [&] { run_program(command); });
}

/* Fetching the host's key. */

void key_library(benchmark::State& state) {
  for (auto _ : state) {
    char key[TAVREN_HOST_KEY_SIZE];
    char* error = nullptr;
    int result = 0;
    time_iteration(state,
                   [&] { result = tavren_download_host_key(from_environment("LAB_HOST").c_str(), key, &error); });
    if (result != 0 || key != from_environment("LAB_HOST_KEY")) throw std::runtime_error("not the host's key");
  }
}

void key_keyscan(benchmark::State& state) {
  for (auto _ : state) {
    time_iteration(state, [] { run_program({"/usr/bin/ssh-keyscan", "-t", "ed25519", from_environment("LAB_HOST")}); });
  }
}

/* Commands: the same bytes to the same shell, and back. */

void run_library(benchmark::State& state, const std::string& command, size_t expected_lines) {
  const LibrarySession session = connected_session();
  for (auto _ : state) {
    int status = -1;
    std::list<std::string> output;
    session->run_command(command, status, output, timeout);
    if (status != 0 || output.size() != expected_lines) throw std::runtime_error("not the command's output");
  }
}

void run_bare(benchmark::State& state, const std::string& command, size_t read_size = 65536) {
  BareSession session(read_size);
  for (auto _ : state) {
    session.write("echo '** RUNNING " + command + "'; " + command + "\necho '** EXIT CODE: '$?\n");
    session.read_until("** EXIT CODE: 0\n");
  }
}

std::string long_output() {
  const std::string path = archived("lines");
  std::ofstream file(path);
  for (int i = 0; i < lines; ++i) file << std::string(line_size - 1, static_cast<char>('a' + i % 26)) << '\n';
  return "cat " + path;
}

void command_library(benchmark::State& state) { run_library(state, "echo line", 1); }
void command_bare(benchmark::State& state) { run_bare(state, "echo line"); }
void output_library(benchmark::State& state) { run_library(state, long_output(), lines); }
void output_bare(benchmark::State& state) { run_bare(state, long_output()); }
void output_small_reads(benchmark::State& state) { run_bare(state, long_output(), library_read_size); }

/* Named LINE/SIDE: scripts/bench runs a line at a time. */
BENCHMARK(login_library)->Name("login/library")->UseManualTime()->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(login_sshpass)->Name("login/sshpass")->UseManualTime()->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(key_library)->Name("key/library")->UseManualTime()->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(key_keyscan)->Name("key/ssh-keyscan")->UseManualTime()->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(command_library)->Name("command/library")->UseRealTime()->Iterations(2000)->Unit(benchmark::kMicrosecond);
BENCHMARK(command_bare)->Name("command/bare")->UseRealTime()->Iterations(2000)->Unit(benchmark::kMicrosecond);
BENCHMARK(output_library)->Name("output/library")->UseRealTime()->Iterations(300)->Unit(benchmark::kMicrosecond);
BENCHMARK(output_bare)->Name("output/bare")->UseRealTime()->Iterations(300)->Unit(benchmark::kMicrosecond);
BENCHMARK(output_library)->Name("reads/library")->UseRealTime()->Iterations(300)->Unit(benchmark::kMicrosecond);
BENCHMARK(output_small_reads)->Name("reads/bare")->UseRealTime()->Iterations(300)->Unit(benchmark::kMicrosecond);

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  const ArchiveHost host("session_bench");
  client_command();
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
