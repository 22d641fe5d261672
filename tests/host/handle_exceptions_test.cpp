#include <gtest/gtest.h>
#include <signal.h>

#include <new>
#include <stdexcept>

#include "TavrenExceptions.h"
#include "host/handle_fixture.h"
#include "support/failing_memory.h"
#include "support/named.h"

/*
 * What becomes of each exception in each function behind a handle. The asymmetry is deliberate: the functions that
 * end, probe and remove set the message only when they succeed or fail for a reason that has one.
 */
namespace {

struct Function {
  bool clears_message_on_entry; /* and takes exhausted memory for a failure */
  void (*prepare)(tavren_hp_t*);
  int (*call)(tavren_hp_t*, char**);
};

void prepare_nothing(tavren_hp_t*) {}
void start_file(tavren_hp_t* handle) { handle->host->start_send_file("file", 3, 0644); }
void send_file(tavren_hp_t* handle) {
  start_file(handle);
  handle->host->continue_send_file("abc", 3);
}
void start_stream(tavren_hp_t* handle) { handle->host->start_send_stream("file"); }

const Named<Function> functions[] = {
    {"StartSendFile",
     {true, prepare_nothing,
      [](tavren_hp_t* h, char** m) { return tavren_hp_start_send_file(h, "file", 3, 0644, m); }}},
    {"ContinueSendFile",
     {true, start_file, [](tavren_hp_t* h, char** m) { return tavren_hp_continue_send_file(h, "abc", 3, m); }}},
    {"StartSendStream",
     {true, prepare_nothing, [](tavren_hp_t* h, char** m) { return tavren_hp_start_send_stream(h, "file", m); }}},
    {"ContinueSendStream",
     {true, start_stream, [](tavren_hp_t* h, char** m) { return tavren_hp_continue_send_stream(h, "abc", 3, m); }}},
    {"EndSendFile", {false, send_file, tavren_hp_end_send_file}},
    {"EndSendStream", {false, start_stream, tavren_hp_end_send_stream}},
    {"TryToCreateFile",
     {false, prepare_nothing, [](tavren_hp_t* h, char** m) { return tavren_hp_try_to_create_file(h, "file", m); }}},
    {"RemoveFile",
     {false, prepare_nothing, [](tavren_hp_t* h, char** m) { return tavren_hp_remove_file(h, "file", m); }}},
};

class HandleFunction : public HandleTest, public testing::WithParamInterface<Named<Function>> {
 protected:
  /* A session in which the function can be called, and a message pointer that somebody has left over. */
  void prepare() {
    create();
    GetParam().value.prepare(handle);
    message = left_over;
  }
  ~HandleFunction() override {
    if (message == left_over) message = nullptr;
  }

  int call() { return GetParam().value.call(handle, &message); }

  /* A continuation succeeds as long as it need not wait and nobody has complained. */
  int call_until_it_fails() {
    for (int i = 0; i < 1000000; ++i) {
      const int result = call();
      if (result != 0) return result;
    }
    return 0;
  }

  /* What the message must be after an exception that has none. */
  char* untouched_or_cleared() { return GetParam().value.clears_message_on_entry ? nullptr : left_over; }
};

class HandleWait : public HandleFunction {};

}  // namespace

TEST_P(HandleFunction, ThatSucceedsReturnsZeroAndANullMessage) {
  prepare();
  EXPECT_EQ(call(), 0);
  EXPECT_EQ(message, nullptr);
}

TEST_P(HandleFunction, ThatFailsReturnsMinusOneAndTheErrorsBody) {
  prepare();
  break_session();
  EXPECT_EQ(call_until_it_fails(), -1);
  ASSERT_NE(message, left_over);
  EXPECT_EQ(first_lines(take_message(), 1), "  - Program exited unexpectedly: " + client.path() + "\n");
}

TEST_P(HandleFunction, ThatRunsOutOfMemoryReturnsMinusOneOrPassesItOn) {
  prepare();
  break_session();
  const failing_memory::FailAllocation exhausted(1);
  if (GetParam().value.clears_message_on_entry) {
    EXPECT_EQ(call_until_it_fails(), -1);
  } else {
    EXPECT_THROW(call_until_it_fails(), std::bad_alloc);
  }
  EXPECT_EQ(message, untouched_or_cleared());
}

TEST_P(HandleFunction, PassesACancellationOn) {
  prepare();
  handle->host->disable();
  /* A child that says nothing more: a cancelled session that need not wait would not notice. */
  kill(child, SIGSTOP);
  EXPECT_THROW(call_until_it_fails(), TavrenOperationCancelled);
  EXPECT_EQ(message, untouched_or_cleared());
  kill(child, SIGCONT);
}

TEST_P(HandleFunction, PassesAnyOtherExceptionOn) {
  prepare();
  recorded_system::at_next("write", [] { throw std::length_error("too long"); });
  EXPECT_THROW(call(), std::length_error);
  EXPECT_EQ(message, untouched_or_cleared());
}

INSTANTIATE_TEST_SUITE_P(, HandleFunction, testing::ValuesIn(functions), by_name);

TEST_P(HandleWait, PassesATimeoutOn) {
  prepare();
  set_tunable("ssh_command_timeout", "1");
  kill(child, SIGSTOP);
  EXPECT_THROW(call_until_it_fails(), TavrenTimeout);
  EXPECT_EQ(message, nullptr);
  kill(child, SIGCONT);
}

/* The other functions turn a time-out into an error of their own. */
INSTANTIATE_TEST_SUITE_P(, HandleWait, testing::Values(functions[1], functions[3]), by_name);
