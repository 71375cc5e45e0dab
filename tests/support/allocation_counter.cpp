#include "support/allocation_counter.h"

#include <cstdlib>
#include <new>

// Only the basic forms of new and delete are replaced (plus the aligned
// pair, which over-aligned members need on targets with a smaller default
// alignment): the array forms forward to them by default.
namespace {
thread_local std::size_t tAllocations = 0;
} // namespace

namespace larkspin_test {
std::size_t allocationCount() {
  return tAllocations;
}
} // namespace larkspin_test

void* operator new(std::size_t size) {
  ++tAllocations;
  if (void* p = std::malloc(size == 0 ? 1 : size)) {
    return p;
  }
  throw std::bad_alloc();
}
void* operator new(std::size_t size, std::align_val_t alignment) {
  ++tAllocations;
  const auto align = static_cast<std::size_t>(alignment);
  if (void* p = std::aligned_alloc(align, size == 0 ? align : (size + align - 1) / align * align)) {
    return p;
  }
  throw std::bad_alloc();
}
void operator delete(void* p) noexcept {
  std::free(p);
}
void operator delete(void* p, std::align_val_t) noexcept {
  std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
  std::free(p);
}
void operator delete(void* p, std::size_t, std::align_val_t) noexcept {
  std::free(p);
}
