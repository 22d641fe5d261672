#include "TavrenMutex.h"

#include <gtest/gtest.h>
#include <string.h>

#include <atomic>
#include <thread>
#include <type_traits>
#include <vector>

#include "support/run_in_child.h"

namespace {

bool have_lock_in_another_thread(const TavrenMutex& mutex) {
  bool result = false;
  std::thread([&] { result = mutex.have_lock(); }).join();
  return result;
}

/* The owner's bytes, which follow the POSIX mutex. */
pthread_t stored_owner(const TavrenMutex& mutex) {
  pthread_t owner = 0;
  memcpy(&owner, reinterpret_cast<const char*>(&mutex) + sizeof(pthread_mutex_t), sizeof owner);
  return owner;
}

TEST(Mutex, IsHeldFromLockToUnlockAndCanBeTakenAgain) {
  TavrenMutex mutex;
  for (int i = 0; i < 3; ++i) {
    EXPECT_FALSE(mutex.have_lock());
    mutex.lock();
    EXPECT_TRUE(mutex.have_lock());
    mutex.unlock();
  }
  EXPECT_FALSE(mutex.have_lock());
}

TEST(Mutex, HeldByOneThreadIsNotHeldByAnother) {
  TavrenMutex mutex;
  mutex.lock();
  EXPECT_FALSE(have_lock_in_another_thread(mutex));
  mutex.unlock();
}

TEST(Mutex, ConsistsOfThePosixMutexAndItsOwner) {
  EXPECT_EQ(sizeof(TavrenMutex), sizeof(pthread_mutex_t) + sizeof(pthread_t));
  EXPECT_FALSE(std::is_polymorphic_v<TavrenMutex>);
  TavrenMutex mutex;
  EXPECT_EQ(stored_owner(mutex), static_cast<pthread_t>(-1));
  mutex.lock();
  EXPECT_EQ(stored_owner(mutex), pthread_self());
  mutex.unlock();
  EXPECT_EQ(stored_owner(mutex), static_cast<pthread_t>(-1));
}

TEST(Mutex, IsNeitherCopiedNorAssigned) {
  EXPECT_FALSE(std::is_copy_constructible_v<TavrenMutex>);
  EXPECT_FALSE(std::is_copy_assignable_v<TavrenMutex>);
  EXPECT_FALSE(std::is_copy_constructible_v<TavrenAutoLock>);
  EXPECT_FALSE(std::is_copy_assignable_v<TavrenAutoLock>);
}

TEST(Mutex, LockedTwiceByOneThreadFailsAnAssertion) {
  expect_assertion("TavrenMutex", "owner != pthread_self()", [] {
    TavrenMutex mutex;
    mutex.lock();
    mutex.lock();
  });
  expect_assertion("TavrenMutex", "owner != pthread_self()", [] {
    TavrenMutex mutex;
    const TavrenAutoLock outer(mutex), inner(mutex);
  });
}

/* Nobody, nobody any more, or another thread. */
TEST(Mutex, UnlockedByWhoDoesNotHoldItFailsAnAssertion) {
  void (*const misuses[])(TavrenMutex&) = {
      [](TavrenMutex& mutex) { mutex.unlock(); },
      [](TavrenMutex& mutex) { mutex.lock(), mutex.unlock(), mutex.unlock(); },
      [](TavrenMutex& mutex) { mutex.lock(), std::thread([&] { mutex.unlock(); }).join(); }};
  for (const auto misuse : misuses) {
    expect_assertion("TavrenMutex", "owner == pthread_self()", [misuse] {
      TavrenMutex mutex;
      misuse(mutex);
    });
  }
}

TEST(Mutex, KeepsThreadsApartAndAlwaysKnowsItsHolder) {
  constexpr int threads = 4;
  constexpr int rounds = 5000;
  TavrenMutex mutex;
  int counter = 0;
  std::atomic<int> wrong{0};
  std::vector<std::thread> running;
  for (int i = 0; i < threads; ++i) {
    running.emplace_back([&] {
      for (int round = 0; round < rounds; ++round) {
        if (mutex.have_lock()) ++wrong;
        mutex.lock();
        ++counter;
        if (!mutex.have_lock()) ++wrong;
        mutex.unlock();
        if (mutex.have_lock()) ++wrong;
      }
    });
  }
  for (std::thread& thread : running) thread.join();
  EXPECT_EQ(counter, threads * rounds);
  EXPECT_EQ(wrong, 0);
}

TEST(AutoLock, HoldsItsMutexForItsScope) {
  TavrenMutex mutex;
  {
    const TavrenAutoLock lock(mutex);
    EXPECT_TRUE(mutex.have_lock());
  }
  EXPECT_FALSE(mutex.have_lock());
}

TEST(AutoLock, GivesItsMutexBackWhenAnExceptionPasses) {
  TavrenMutex mutex;
  try {
    const TavrenAutoLock lock(mutex);
    throw 1;
  } catch (int) {
  }
  EXPECT_FALSE(mutex.have_lock());
}

TEST(AutoLock, IsTheReferenceToItsMutexAndNothingElse) { EXPECT_EQ(sizeof(TavrenAutoLock), sizeof(void*)); }

}  // namespace
