#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>

#include "support/run_in_child.h"
#include "tavren_assert.h"
#include "tavren_cmem.h"
#include "tavren_malloc.h"

/* Whatever the standard streams lead to, the diagnostic comes and the process ends. */
namespace {

constexpr char diagnostic[] = "\nASSERTION ERROR (f:12)\nassertion failed: a == b\n";
constexpr char out_of_memory[] = "FATAL ERROR: Ran out of heap memory.\n";

struct Ending {
  const char* name;
  std::function<void()> end;
  const char* says;
  std::function<bool(const Outcome&)> is_its_end;
};

void fail_a_check() { _tavren_assert("a == b", "f", 12); }

const Ending endings[] = {
    {"an assertion", fail_a_check, diagnostic, [](const Outcome& outcome) { return outcome.killed_by(SIGABRT); }},
    {"a suppressed assertion",
     [] {
       tavren_suppress_abort = true;
       fail_a_check();
     },
     diagnostic, [](const Outcome& outcome) { return outcome.exited_with(0); }},
    {"exhausted memory", tavren_basic_malloc_handler, out_of_memory,
     [](const Outcome& outcome) { return outcome.exited_with(2); }},
    {"suppressed exhausted memory",
     [] {
       tavren_suppress_abort = true;
       tavren_basic_malloc_handler();
     },
     out_of_memory, [](const Outcome& outcome) { return outcome.exited_with(0); }}};

/* A pipe as the standard output, with a text in the stream's buffer. The reading end is kept open. */
int make_output_a_pipe(size_t buffered) {
  int ends[2];
  if (pipe(ends) != 0 || dup2(ends[1], STDOUT_FILENO) == -1) abort();
  close(ends[1]);
  static char buffer[200000];
  setvbuf(stdout, buffer, _IOFBF, sizeof buffer);
  for (size_t i = 0; i < buffered; ++i) fputc('x', stdout);
  return ends[0];
}

void fill(int fd) {
  const int flags = fcntl(fd, F_GETFL);
  fcntl(fd, F_SETFL, flags | O_NONBLOCK);
  while (write(fd, "0123456789", 10) > 0) {
  }
  fcntl(fd, F_SETFL, flags);
}

/* Ends a child in each of these ways after prepare has made its streams what they are. */
void expect_the_end_after(const std::function<void()>& prepare) {
  for (const Ending& ending : endings) {
    SCOPED_TRACE(ending.name);
    const Outcome outcome = run_in_child([&] {
      signal(SIGPIPE, SIG_DFL);
      alarm(30);
      prepare();
      ending.end();
    });
    EXPECT_EQ(outcome.err, ending.says);
    EXPECT_TRUE(ending.is_its_end(outcome)) << outcome.wait_status;
  }
}

}  // namespace

TEST(FatalPath, EndsWhenTheOutputHasNoReader) {
  expect_the_end_after([] { close(make_output_a_pipe(10)); });
}

TEST(FatalPath, EndsWhenTheOutputIsAFullPipe) {
  expect_the_end_after([] {
    make_output_a_pipe(10);
    fill(STDOUT_FILENO);
  });
}

TEST(FatalPath, EndsWhenMoreIsBufferedThanAPipeHolds) {
  expect_the_end_after([] { make_output_a_pipe(150000); });
}

TEST(FatalPath, EndsWhenTheOutputIsATerminalThatNobodyReads) {
  expect_the_end_after([] {
    const int master = posix_openpt(O_RDWR | O_NOCTTY);
    if (grantpt(master) != 0 || unlockpt(master) != 0) abort();
    const int slave = open(ptsname(master), O_RDWR | O_NOCTTY);
    if (dup2(slave, STDOUT_FILENO) == -1) abort();
    fputs("waits in the buffer", stdout);
    fill(slave);
  });
}

TEST(FatalPath, EndsWhenAnotherThreadHoldsTheStreams) {
  expect_the_end_after([] {
    make_output_a_pipe(10);
    std::thread([] {
      flockfile(stdout);
      flockfile(stderr);
    }).join();
  });
}

TEST(FatalPath, EndsWhenAnotherThreadWaitsInAWriteToTheOutput) {
  expect_the_end_after([] {
    make_output_a_pipe(0);
    fill(STDOUT_FILENO);
    std::atomic<bool> has_it{false};
    std::thread writer([&has_it] {
      flockfile(stdout);
      has_it = true;
      for (;;) fputs("more and more and more", stdout);
    });
    while (!has_it) std::this_thread::yield();
    writer.detach();
  });
}

TEST(FatalPath, EndsWhenTheStreamsAreClosed) {
  expect_the_end_after([] {
    fputs("nowhere", stdout);
    close(STDOUT_FILENO);
    close(STDIN_FILENO);
  });
}

TEST(FatalPathOnce, EndsWhenTheErrorOutputTakesNothing) {
  const Outcome outcome = run_in_child([] {
    alarm(30);
    int ends[2];
    if (pipe(ends) != 0 || dup2(ends[1], STDERR_FILENO) == -1) abort();
    fill(STDERR_FILENO);
    fail_a_check();
  });
  EXPECT_TRUE(outcome.killed_by(SIGABRT)) << outcome.wait_status;
}

TEST(FatalPathOnce, WaitsForAnErrorOutputWhoseReaderIsSlow) {
  const Outcome outcome = run_in_child([] {
    int ends[2];
    if (pipe(ends) != 0) abort();
    const int real_error = dup(STDERR_FILENO);
    dup2(ends[1], STDERR_FILENO);
    close(ends[1]);
    fill(STDERR_FILENO);
    const pid_t child = fork();
    if (child == 0) fail_a_check();
    close(STDERR_FILENO);
    usleep(200000); /* it has to wait by now; when not, it need not, and the test holds as well */
    std::string heard;
    char piece[4096];
    for (ssize_t n = 0; (n = read(ends[0], piece, sizeof piece)) > 0;) heard.append(piece, static_cast<size_t>(n));
    heard.erase(0, heard.find('\n'));
    if (write(real_error, heard.data(), heard.size()) == -1) abort();
  });
  EXPECT_EQ(outcome.err, diagnostic);
}

TEST(FatalPathOnce, LetsAnExitHandlerPrintToAnOutputWithoutAReader) {
  const Outcome outcome = run_in_child([] {
    signal(SIGPIPE, SIG_DFL);
    close(make_output_a_pipe(0));
    atexit([] {
      puts("says good-bye");
      fflush(stdout);
    });
    tavren_suppress_abort = true;
    fail_a_check();
  });
  EXPECT_TRUE(outcome.exited_with(0)) << outcome.wait_status;
}

TEST(FatalPathOnce, LeavesTheDescriptorsAsTheyWere) {
  const Outcome outcome = run_in_child([] {
    make_output_a_pipe(10);
    tavren_set_malloc_handler([] {});
    _tavren_check_alloc("f", 12);
    const bool blocks =
        (fcntl(STDOUT_FILENO, F_GETFL) & O_NONBLOCK) == 0 && (fcntl(STDERR_FILENO, F_GETFL) & O_NONBLOCK) == 0;
    sigset_t blocked;
    pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
    _exit(blocks && sigismember(&blocked, SIGPIPE) == 0 ? 3 : 4);
  });
  EXPECT_TRUE(outcome.exited_with(3)) << outcome.wait_status;
}

TEST(AllocationReport, LosesNothingOfWhatASlowReaderHasYetToTakeWhenTheHandlerReturns) {
  const Outcome outcome = run_in_child([] {
    signal(SIGPIPE, SIG_DFL);
    alarm(30);
    tavren_set_malloc_handler([] {});
    const int reader = make_output_a_pipe(150000);
    size_t taken = 0;
    std::thread slow([&] {
      usleep(100000);
      char piece[1000];
      for (ssize_t n = 0; taken < 150000 && (n = read(reader, piece, sizeof piece)) > 0;)
        taken += static_cast<size_t>(n);
    });
    _tavren_check_alloc("f", 12);
    slow.join();
    _exit(taken == 150000 && ferror(stdout) == 0 ? 0 : 1);
  });
  EXPECT_TRUE(outcome.exited_with(0));
  EXPECT_EQ(outcome.err, "Memory allocation failed: f, line 12\n");
}

TEST(AllocationReport, OutlivesAnOutputWithoutAReaderWhenTheHandlerReturns) {
  const Outcome outcome = run_in_child([] {
    signal(SIGPIPE, SIG_DFL);
    tavren_set_malloc_handler([] {});
    close(make_output_a_pipe(10));
    _tavren_check_alloc("f", 12);
    _exit(0);
  });
  EXPECT_TRUE(outcome.exited_with(0));
  EXPECT_EQ(outcome.err, "Memory allocation failed: f, line 12\n");
}
