#pragma once

#include <cstddef>

namespace tembra::test {

// Counts the allocations that this thread makes while a counter lives.
//
// An executable takes it by compiling AllocationCounter.cpp as one of its own sources.
class AllocationCounter {
 public:
  AllocationCounter();
  ~AllocationCounter();
  AllocationCounter(const AllocationCounter&) = delete;
  AllocationCounter& operator=(const AllocationCounter&) = delete;

  size_t GetCount() const;
  // False where a sanitizer has taken the allocator.
  static bool IsAvailable();
};

}  // namespace tembra::test
