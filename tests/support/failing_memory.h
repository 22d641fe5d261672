#ifndef TESTS_SUPPORT_FAILING_MEMORY_H
#define TESTS_SUPPORT_FAILING_MEMORY_H

/*
 * An operator new and a strdup that fail on demand and can call a function, and an operator delete that can be watched,
 * for a program that is linked with failing_memory.cpp.
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

/* Starts looking for the release of what this thread's allocation number count from now on gives. */
void watch_allocation(int count);

/* Returns whether there is an object to watch: one was named, or the allocation has taken place. */
bool is_watching();

/* Returns whether the watched object was released. */
bool was_released();

/* Returns how many blocks operator new has given that operator delete has not released. */
int blocks();

/* Has this thread call function at each allocation, but for those of the function itself; NULL: no more. */
void at_each_allocation(void (*function)());

}  // namespace failing_memory

#endif
