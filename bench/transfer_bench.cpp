/*
 * What goes through a session beside what the same client takes from a bare loop: files, streams, larger pieces, and
 * several sessions at once. Whatever has arrived is compared with what was sent, outside of the time that counts.
 */
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "sessions.h"
#include "tavren_host_util.h"
#include "time_iteration.h"

namespace {

constexpr size_t data_size = size_t{256} << 20;
constexpr size_t small_piece = 2048;
constexpr size_t large_piece = 65536;

const std::vector<char>& data() {
  static const std::vector<char> bytes = [] {
    std::vector<char> random(data_size);
    std::mt19937_64 generator;
    for (size_t i = 0; i < data_size; i += 8) {
      const uint64_t number = generator();
      memcpy(&random[i], &number, 8);
    }
    return random;
  }();
  return bytes;
}

/* Takes the file path away. Throws unless it holds the first size bytes of data. */
void check_and_remove(const std::string& path, size_t size) {
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  struct stat status {};
  if (fd == -1 || fstat(fd, &status) == -1 || status.st_size != static_cast<off_t>(size)) {
    throw std::runtime_error(path + " has not arrived whole");
  }
  void* const arrived = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, fd, 0);
  const bool same = arrived != MAP_FAILED && memcmp(arrived, data().data(), size) == 0;
  if (arrived != MAP_FAILED) munmap(arrived, size);
  close(fd);
  unlink(path.c_str());
  if (!same) throw std::runtime_error(path + " is not what was sent");
}

void send_file(TavrenHost& session, const std::string& path, size_t size) {
  session.send_data(data().data(), static_cast<int>(size), path, 0644);
}

void send_file(BareSession& session, const std::string& path, size_t size, size_t piece = small_piece) {
  session.start_file(path, size);
  session.write_pieces(data().data(), size, piece);
  session.end_file();
}

std::unique_ptr<BareSession> bare_session() { return std::make_unique<BareSession>(); }

/*
 * Every sample has sessions of its own, connected outside of the time that counts: one that has carried much already is
 * faster than a new one, and what it owes to chance would be in every sample that it serves.
 */
template <class Connect, class Send>
void measure(benchmark::State& state, Connect connect, Send send) {
  for (auto _ : state) {
    const auto session = connect();
    time_iteration(state, [&] { send(*session); });
    check_and_remove(archived("file"), data_size);
  }
}

/* File in small pieces. */

template <class Connect>
void send_small_pieces(benchmark::State& state, Connect connect) {
  measure(state, connect, [](auto& session) { send_file(session, archived("file"), data_size); });
}

/* The same, login included, beside the stock copy program. */

void copy_library(benchmark::State& state) {
  for (auto _ : state) {
    time_iteration(state, [] {
      const LibrarySession session = connected_session();
      send_file(*session, archived("file"), data_size);
    });
    check_and_remove(archived("file"), data_size);
  }
}

void copy_scp(benchmark::State& state) {
  const std::string source = from_environment("LAB") + "/data";
  FILE* const file = fopen(source.c_str(), "we");
  if (file == nullptr || fwrite(data().data(), 1, data_size, file) != data_size || fclose(file) != 0) {
    throw std::runtime_error("cannot write " + source);
  }
  const std::vector<std::string>& client = client_command();
  const std::string target = from_environment("LAB_USER") + "@" + from_environment("LAB_HOST") + ":" + archived("file");
  std::vector<std::string> command = {"/usr/bin/sshpass", "-p", from_environment("LAB_PASSWORD"),
                                      "/usr/bin/scp",     "-O", "-q"};
  for (const std::string& word : client) {
    if (word.rfind("-o", 0) == 0) command.push_back(word);
  }
  command.insert(command.end(), {source, target});
  for (auto _ : state) {
    time_iteration(state, [&] { run_program(command); });
    check_and_remove(archived("file"), data_size);
  }
  unlink(source.c_str());
}

/* File through the C interface, in large pieces. */

void check(int result, char* message) {
  if (result != 0) throw std::runtime_error(message != nullptr ? message : "out of memory");
}

struct Close {
  void operator()(tavren_hp_t* handle) const {
    tavren_hp_close(handle);
    tavren_hp_destroy(handle);
  }
};

std::unique_ptr<tavren_hp_t, Close> open_handle() {
  tavren_settings_t settings{};
  new_session()->get_settings(settings);
  char* message = nullptr;
  std::unique_ptr<tavren_hp_t, Close> handle(tavren_hp_new(&settings, &message));
  tavren_settings_free_contents(&settings);
  check(handle == nullptr ? -1 : tavren_hp_open(handle.get(), &message), message);
  return handle;
}

void large_pieces_library(benchmark::State& state) {
  measure(state, open_handle, [](tavren_hp_t& handle) {
    char* message = nullptr;
    check(tavren_hp_start_send_file(&handle, archived("file").c_str(), data_size, 0644, &message), message);
    for (size_t i = 0; i < data_size; i += large_piece) {
      check(tavren_hp_continue_send_file(&handle, &data()[i], large_piece, &message), message);
    }
    check(tavren_hp_end_send_file(&handle, &message), message);
  });
}

void large_pieces_bare(benchmark::State& state) {
  measure(state, bare_session,
          [](BareSession& session) { send_file(session, archived("file"), data_size, large_piece); });
}

void large_pieces_polled(benchmark::State& state) {
  measure(state, bare_session, [](BareSession& session) {
    session.start_file(archived("file"), data_size);
    session.poll_pieces(data().data(), data_size, large_piece);
    session.end_file();
  });
}

/* Stream. */

void stream_library(benchmark::State& state) {
  measure(state, connected_session, [](TavrenHost& session) {
    session.start_send_stream(archived("file"));
    for (size_t i = 0; i < data_size; i += small_piece) session.continue_send_stream(&data()[i], small_piece);
    session.end_send_stream();
  });
}

void stream_bare(benchmark::State& state) {
  measure(state, bare_session, [](BareSession& session) {
    session.start_stream(archived("file"));
    session.write_pieces(data().data(), data_size, small_piece);
    session.end_of_file();
  });
}

/* Sessions at once, each with a thread: together they send as much as one alone. */

template <class Connect>
void send_at_once(benchmark::State& state, Connect connect, size_t count) {
  const size_t size = data_size / count;
  const auto path = [](size_t number) { return archived("file" + std::to_string(number)); };
  for (auto _ : state) {
    std::vector<decltype(connect())> sessions;
    while (sessions.size() < count) sessions.push_back(connect());
    time_iteration(state, [&] {
      std::vector<std::thread> threads;
      for (size_t i = 0; i < count; ++i) threads.emplace_back([&, i] { send_file(*sessions[i], path(i), size); });
      for (std::thread& thread : threads) thread.join();
    });
    for (size_t i = 0; i < count; ++i) check_and_remove(path(i), size);
  }
}

/* Named LINE/SIDE: scripts/bench runs a line at a time. */
template <class Function>
void add(const std::string& name, Function function) {
  benchmark::RegisterBenchmark(name.c_str(), function)->UseManualTime()->Iterations(1)->Unit(benchmark::kMillisecond);
}

void add_all() {
  add("file/library", [](benchmark::State& state) { send_small_pieces(state, connected_session); });
  add("file/bare", [](benchmark::State& state) { send_small_pieces(state, bare_session); });
  add("copy/library", copy_library);
  add("copy/scp", copy_scp);
  add("large_pieces/library", large_pieces_library);
  add("large_pieces/bare", large_pieces_bare);
  add("polled/library", large_pieces_library);
  add("polled/bare", large_pieces_polled);
  add("stream/library", stream_library);
  add("stream/bare", stream_bare);
  for (const size_t count : {1, 2, 4, 8, 16}) {
    const std::string line = "sessions_" + std::to_string(count);
    add(line + "/library", [count](benchmark::State& state) { send_at_once(state, connected_session, count); });
    add(line + "/bare", [count](benchmark::State& state) { send_at_once(state, bare_session, count); });
  }
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  const ArchiveHost host("transfer_bench");
  data();
  client_command();
  add_all();
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
