// Counts heap allocations made by the current thread, through a replaced
// global operator new. Link allocation_counter.cpp into a test binary to
// use it.
#pragma once

#include <cstddef>

namespace larkspin_test {

// Allocations by this thread since the program started.
std::size_t allocationCount();

// Bytes this thread has allocated and not yet freed (as the allocator
// rounds them), to see that a release gives back what a set-up took.
std::size_t liveBytes();

// Counts the allocations made while it is alive.
class AllocationScope {
public:
  AllocationScope() : start_(allocationCount()) {}
  std::size_t allocations() const { return allocationCount() - start_; }

private:
  std::size_t start_;
};

} // namespace larkspin_test
