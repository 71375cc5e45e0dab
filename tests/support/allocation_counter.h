// Counts heap allocations made by the current thread, through a replaced
// global operator new. Link allocation_counter.cpp into a test binary to
// use it.
#pragma once

#include <cstddef>

namespace larkspin_test {

// Allocations by this thread since the program started.
std::size_t allocationCount();

// Counts the allocations made while it is alive.
class AllocationScope {
public:
  AllocationScope() : start_(allocationCount()) {}
  std::size_t allocations() const { return allocationCount() - start_; }

private:
  std::size_t start_;
};

// The bytes (as asked for) that this thread allocates while the scope lives
// and has not freed yet, to see that a release gives back what a set-up
// took. One scope at a time; up to 4096 blocks (more reads as SIZE_MAX).
class LiveBytesScope {
public:
  LiveBytesScope();
  ~LiveBytesScope();
  LiveBytesScope(const LiveBytesScope&) = delete;
  LiveBytesScope& operator=(const LiveBytesScope&) = delete;
  std::size_t bytes() const;
};

} // namespace larkspin_test
