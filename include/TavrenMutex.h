/* A lock that knows its holder, and the guard that holds it for a scope. */
#ifndef TAVREN_MUTEX_H
#define TAVREN_MUTEX_H

#include <pthread.h>

#include <atomic>

#include "tavren_constants.h"

/*
 * A plain mutex that ends the process with a failed assertion when a thread locks it twice or unlocks it without
 * holding it. It is not recursive and imposes no order among mutexes.
 */
class TAVREN_EXPORT TavrenMutex {
 public:
  /* Makes an unlocked mutex; failure is a failed assertion. */
  TavrenMutex();

  /* Destroys the mutex, which nobody may hold; failure is a failed assertion. */
  ~TavrenMutex();

  TavrenMutex(const TavrenMutex&) = delete;
  TavrenMutex& operator=(const TavrenMutex&) = delete;

  /* Waits for the mutex and takes it. */
  void lock();

  /* Gives the mutex back. */
  void unlock();

  /* Returns whether the calling thread holds the mutex. */
  bool have_lock() const;

 private:
  pthread_mutex_t mutex;
  /* The holding thread, all ones when there is none. Read without the lock, so atomic; see lock(). */
  std::atomic<pthread_t> owner;
};

/* Holds a mutex from construction to destruction. */
class TAVREN_EXPORT TavrenAutoLock {
 public:
  /* Locks mutex, which must outlive the guard. */
  explicit TavrenAutoLock(TavrenMutex& mutex);

  /* Unlocks the mutex. */
  ~TavrenAutoLock();

  TavrenAutoLock(const TavrenAutoLock&) = delete;
  TavrenAutoLock& operator=(const TavrenAutoLock&) = delete;

 private:
  TavrenMutex& mutex;
};

#endif
