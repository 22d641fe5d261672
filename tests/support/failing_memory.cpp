#include "support/failing_memory.h"

#include <stdlib.h>
#include <string.h>

#include <atomic>
#include <new>

namespace {

thread_local int allocations_left = -1;     /* until they fail; -1: they do not */
thread_local int allocations_unwatched = 0; /* until one is watched, that one included; 0: none will be */
thread_local void (*called)() = nullptr;
std::atomic<const void*> watched{nullptr};
std::atomic<bool> released{false};
std::atomic<int> unreleased{0};

void call_function() {
  void (*const function)() = called;
  if (function == nullptr) return;
  called = nullptr;
  function();
  called = function;
}

void* allocate(size_t size) {
  call_function();
  if (allocations_left > 0) --allocations_left;
  void* const object = allocations_left == 0 ? nullptr : malloc(size == 0 ? 1 : size);
  if (allocations_unwatched > 0 && --allocations_unwatched == 0) watched = object;
  return object;
}

void* new_object(size_t size) {
  void* const object = allocate(size);
  if (object != nullptr) ++unreleased;
  return object;
}

void release(void* object) {
  if (object == nullptr) return;
  --unreleased;
  if (object == watched) released = true;
  free(object);
}

void* new_object_or_throw(size_t size) {
  void* const object = new_object(size);
  if (object == nullptr) throw std::bad_alloc();
  return object;
}

}  // namespace

namespace failing_memory {

FailAllocation::FailAllocation(int count) { allocations_left = count; }

FailAllocation::~FailAllocation() { allocations_left = -1; }

void watch(const void* object) {
  released = false;
  watched = object;
}

void watch_allocation(int count) {
  watch(nullptr);
  allocations_unwatched = count;
}

bool is_watching() { return watched != nullptr; }

bool was_released() { return released; }

int blocks() { return unreleased; }

void at_each_allocation(void (*function)()) { called = function; }

}  // namespace failing_memory

/* Visible, so that they stand before the libraries' own for the shared library too. */
#define FOR_EVERYBODY __attribute__((visibility("default")))

extern "C" FOR_EVERYBODY char* strdup(const char* text) noexcept {
  const size_t size = strlen(text) + 1;
  void* const copy = allocate(size);
  return copy == nullptr ? nullptr : static_cast<char*>(memcpy(copy, text, size));
}

FOR_EVERYBODY void* operator new(size_t size) { return new_object_or_throw(size); }
FOR_EVERYBODY void* operator new[](size_t size) { return new_object_or_throw(size); }
FOR_EVERYBODY void* operator new(size_t size, const std::nothrow_t&) noexcept { return new_object(size); }
FOR_EVERYBODY void* operator new[](size_t size, const std::nothrow_t&) noexcept { return new_object(size); }
FOR_EVERYBODY void operator delete(void* object) noexcept { release(object); }
FOR_EVERYBODY void operator delete[](void* object) noexcept { release(object); }
FOR_EVERYBODY void operator delete(void* object, size_t) noexcept { release(object); }
FOR_EVERYBODY void operator delete[](void* object, size_t) noexcept { release(object); }
FOR_EVERYBODY void operator delete(void* object, const std::nothrow_t&) noexcept { release(object); }
FOR_EVERYBODY void operator delete[](void* object, const std::nothrow_t&) noexcept { release(object); }
