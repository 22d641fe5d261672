#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <atomic>

#include "lab/lab.h"
#include "support/real_function.h"

/*
 * Counts what the process does while a file is sent. The definitions take the place of the C library's and the C++
 * run time's for the library under test too.
 */
namespace {

std::atomic<bool> counting{false};
std::atomic<int> allocations{0};
std::atomic<int> exceptions{0};
std::atomic<int> reads{0};
std::atomic<int> writes{0};

void count(std::atomic<int>& counter) {
  if (counting.load(std::memory_order_relaxed)) ++counter;
}

}  // namespace

extern "C" {

void* __libc_malloc(size_t size);
void* __libc_calloc(size_t number, size_t size);
void* __libc_realloc(void* block, size_t size);

void* malloc(size_t size) {
  count(allocations);
  return __libc_malloc(size);
}

void* calloc(size_t number, size_t size) {
  count(allocations);
  return __libc_calloc(number, size);
}

void* realloc(void* block, size_t size) {
  count(allocations);
  return __libc_realloc(block, size);
}

void* __cxa_allocate_exception(size_t size) noexcept {
  static auto* const allocate = real<void*(size_t)>("__cxa_allocate_exception");
  count(exceptions);
  return allocate(size);
}

ssize_t read(int fd, void* buffer, size_t size) {
  static auto* const real_read = real<ssize_t(int, void*, size_t)>("read");
  count(reads);
  return real_read(fd, buffer, size);
}

ssize_t write(int fd, const void* data, size_t size) {
  static auto* const real_write = real<ssize_t(int, const void*, size_t)>("write");
  count(writes);
  return real_write(fd, data, size);
}
}

namespace {

constexpr int chunks = 10000;
constexpr unsigned int chunk_size = 2048;

class ChunkCost : public LabTest {
 protected:
  /* Sends chunks and counts meanwhile. */
  void send_counted(TavrenHost& host, int number) {
    counting = true;
    for (int i = 0; i < number; ++i) host.continue_send_file(chunk.data(), chunk_size);
    counting = false;
  }

  const std::string chunk = std::string(chunk_size, 'x');
};

/* The start of a file does what its chunks must not: the counters see it. */
TEST_F(ChunkCost, IsCountedInsideTheLibrary) {
  TavrenHost& host = connected_session();
  counting = true;
  host.start_send_file("file", 0, 0644);
  EXPECT_EQ(error_of([&] { host.run_line("no command may come now", nullptr), tavren_throw_syscall_error("x", 1); }),
            "24\n  - System call \"x\" failed with error code 1\n");
  counting = false;
  EXPECT_GT(allocations, 0);
  EXPECT_GT(exceptions, 0);
  EXPECT_GT(reads, 0);
  EXPECT_GT(writes, 0);
}

/* Of a session that has sent some before. */
TEST_F(ChunkCost, IsNoAllocationNoExceptionAndOneReadWhateverTheTerminalTakes) {
  TavrenHost& host = connected_session();
  host.start_send_file("file", chunks * chunk_size, 0644);
  host.continue_send_file(chunk.data(), chunk_size);
  send_counted(host, chunks - 1);
  host.end_send_file();
  EXPECT_EQ(allocations, 0);
  EXPECT_EQ(exceptions, 0);
  EXPECT_EQ(reads, chunks - 1);
}

TEST_F(ChunkCost, IsOneWriteUnlessTheTerminalIsFull) {
  TavrenHost& host = connected_session();
  host.start_send_file("file", 0xFFFFFFFF, 0644);
  send_counted(host, 1); /* a few chunks fit into any terminal */
  EXPECT_EQ(writes, 1);
}

}  // namespace
