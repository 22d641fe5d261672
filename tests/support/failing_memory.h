#ifndef TESTS_SUPPORT_FAILING_MEMORY_H
#define TESTS_SUPPORT_FAILING_MEMORY_H

/*
 * An operator new and a strdup that fail on demand, and an operator delete that can be watched, for a program that is
 * linked with failing_memory.cpp.
 */
namespace failing_memory {

/* From its making to its end, this thread's allocation number count, and each later one, fails. */
class FailAllocation {
 public:
  explicit FailAllocation(int count);
  ~FailAllocation();
  FailAllocation(const FailAllocation&) = delete;
  FailAllocation& operator=(const FailAllocation&) = delete;
};

/* Starts looking for the release of object, which must be alive. */
void watch(const void* object);

/* Returns whether the watched object was released. */
bool was_released();

}  // namespace failing_memory

#endif
