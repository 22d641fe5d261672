#include "TavrenMutex.h"

#include "core/assertion.h"

namespace {

constexpr pthread_t nobody = static_cast<pthread_t>(-1);

}  // namespace

TavrenMutex::TavrenMutex() : owner(nobody) {
  const int rv = pthread_mutex_init(&mutex, nullptr);
  TAVREN_ASSERT("TavrenMutex", rv == 0);
}

TavrenMutex::~TavrenMutex() {
  const int rv = pthread_mutex_destroy(&mutex);
  TAVREN_ASSERT("TavrenMutex", rv == 0);
}

void TavrenMutex::lock() {
  /* Read before the mutex is taken, on purpose: only the calling thread itself can have stored its own id. */
  if (have_lock()) _tavren_assert("owner != pthread_self()", "TavrenMutex", __LINE__);
  const int rv = pthread_mutex_lock(&mutex);
  TAVREN_ASSERT("TavrenMutex", rv == 0);
  owner.store(pthread_self(), std::memory_order_relaxed);
}

void TavrenMutex::unlock() {
  if (!have_lock()) _tavren_assert("owner == pthread_self()", "TavrenMutex", __LINE__);
  /* Cleared first, so that the next holder never sees this one's id. */
  owner.store(nobody, std::memory_order_relaxed);
  const int rv = pthread_mutex_unlock(&mutex);
  TAVREN_ASSERT("TavrenMutex", rv == 0);
}

bool TavrenMutex::have_lock() const { return owner.load(std::memory_order_relaxed) == pthread_self(); }

TavrenAutoLock::TavrenAutoLock(TavrenMutex& held) : mutex(held) { mutex.lock(); }

TavrenAutoLock::~TavrenAutoLock() { mutex.unlock(); }
