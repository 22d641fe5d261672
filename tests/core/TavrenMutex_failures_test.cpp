/* A mutex that fails. */
#include <errno.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <map>
#include <string>

#include "TavrenMutex.h"
#include "TavrenTunables.h"
#include "support/real_function.h"
#include "support/run_in_child.h"
#include "tavren_assert.h"

namespace {

/* The function that fails next; other threads of the program are left alone. */
thread_local const char* failing = "";

/* What this thread's last initialisation was called with. */
thread_local const void* initialised = nullptr;
thread_local const pthread_mutexattr_t* attributes_given = nullptr;

/* The mutex whose destruction is told on the standard output. */
const void* watched = nullptr;

template <class... Arguments>
int real_unless_failing(const char* name, Arguments... arguments) {
  if (strcmp(failing, name) == 0) return EINVAL;
  return real<int(Arguments...)>(name)(arguments...);
}

}  // namespace

STANDS_BEFORE_THE_REAL_ONE int pthread_mutex_init(pthread_mutex_t* mutex,
                                                  const pthread_mutexattr_t* attributes) noexcept {
  initialised = mutex;
  attributes_given = attributes;
  return real_unless_failing("pthread_mutex_init", mutex, attributes);
}

STANDS_BEFORE_THE_REAL_ONE int pthread_mutex_destroy(pthread_mutex_t* mutex) noexcept {
  if (mutex == watched) dprintf(STDOUT_FILENO, "destroyed");
  return real_unless_failing("pthread_mutex_destroy", mutex);
}

STANDS_BEFORE_THE_REAL_ONE int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
  return real_unless_failing("pthread_mutex_lock", mutex);
}

STANDS_BEFORE_THE_REAL_ONE int pthread_mutex_unlock(pthread_mutex_t* mutex) noexcept {
  return real_unless_failing("pthread_mutex_unlock", mutex);
}

namespace {

TEST(Mutex, IsInitialisedWithTheDefaultAttributes) {
  const pthread_mutexattr_t others{};
  attributes_given = &others;
  const TavrenMutex mutex;
  EXPECT_EQ(attributes_given, nullptr);
}

TEST(Registry, OfTheLibraryIsBuiltByTheFirstCallAndDestroyedAtExit) {
  const Outcome outcome = run_in_child([] {
    initialised = nullptr;
    const TavrenTunables* const registry = &TavrenTunables::instance();
    const bool built = initialised >= registry && initialised < registry + 1;
    watched = initialised;
    exit(built ? 3 : 4);
  });
  EXPECT_TRUE(outcome.exited_with(3)) << outcome.wait_status;
  EXPECT_EQ(outcome.out, "destroyed");
}

TEST(Registry, OfTheProgramIsDestroyedWithTheLibrary) {
  const Outcome outcome = run_in_child([] {
    /* The mutex stands behind the map of names. */
    watched = reinterpret_cast<const char*>(&TavrenTunables::tavrend_tunables) +
              sizeof(std::map<std::string, TavrenTunables::Tunable*>);
    exit(3);
  });
  EXPECT_TRUE(outcome.exited_with(3)) << outcome.wait_status;
  EXPECT_EQ(outcome.out, "destroyed");
}

TEST(MutexFailure, OfEachCallFailsAnAssertion) {
  for (const char* call :
       {"pthread_mutex_init", "pthread_mutex_lock", "pthread_mutex_unlock", "pthread_mutex_destroy"}) {
    SCOPED_TRACE(call);
    expect_assertion("TavrenMutex", "rv == 0", [call] {
      failing = call;
      TavrenMutex mutex;
      mutex.lock();
      mutex.unlock();
    });
  }
}

TEST(MutexFailure, OfAnUnlockComesAfterTheOwnerIsForgotten) {
  const Outcome outcome = run_in_child([] {
    static TavrenMutex mutex;
    mutex.lock();
    atexit([] { _exit(mutex.have_lock() ? 4 : 3); });
    tavren_suppress_abort = true;
    failing = "pthread_mutex_unlock";
    mutex.unlock();
  });
  EXPECT_TRUE(outcome.exited_with(3)) << outcome.wait_status;
}

}  // namespace
