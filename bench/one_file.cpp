/*
 * Sends one sparse file to a sink that discards it, and prints how many seconds that took and how much memory this
 * program needed at the most, in KiB.
 *
 *   one_file library|bare BYTES
 */
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <stdexcept>
#include <string>

#include "sessions.h"

namespace {

constexpr size_t piece_size = 2048;
constexpr char sink[] = "/dev/null";

int sparse_file(off_t size) {
  const std::string path = from_environment("LAB") + "/sparse";
  const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  if (fd == -1 || ftruncate(fd, size) == -1) throw std::runtime_error("cannot make " + path);
  return fd;
}

long peak_memory() {
  std::ifstream status("/proc/self/status");
  std::string word;
  while (status >> word && word != "VmHWM:") {
  }
  long kib = 0;
  status >> kib;
  return kib;
}

template <class Action>
void report(Action action) {
  const auto start = std::chrono::steady_clock::now();
  action();
  printf("%.6f %ld\n", std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(), peak_memory());
}

void send_bare(int fd, size_t size) {
  BareSession session;
  report([&] {
    session.start_file(sink, size);
    char piece[piece_size];
    for (ssize_t n = 0; (n = read(fd, piece, sizeof piece)) > 0;) session.write(piece, static_cast<size_t>(n));
    session.end_file();
  });
}

void send_library(int fd) {
  const LibrarySession session = connected_session();
  report([&] { session->send_file(fd, "sparse", sink, -1, 0644); });
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  const ArchiveHost host("one_file");
  const auto size = static_cast<size_t>(atoll(argv[2]));
  const int fd = sparse_file(static_cast<off_t>(size));
  if (strcmp(argv[1], "library") == 0) {
    send_library(fd);
  } else {
    send_bare(fd, size);
  }
  return 0;
}
