#include "support/allocation_counter.h"

#include <cstdlib>
#include <malloc.h>
#include <new>

// Only the basic forms of new and delete are replaced (plus the aligned
// pair, which over-aligned members need on targets with a smaller default
// alignment): the array forms forward to them by default.
namespace {
thread_local std::size_t tAllocations = 0;
thread_local std::size_t tLiveBytes = 0;

// A fixed threshold turns off glibc's adaptive one, under which the same
// request may be served from the heap or mapped (with other usable sizes)
// depending on what was freed before.
[[maybe_unused]] const int kFixedMapThreshold = mallopt(M_MMAP_THRESHOLD, 128 * 1024);

void* counted(void* p) {
  ++tAllocations;
  tLiveBytes += malloc_usable_size(p);
  return p;
}
void release(void* p) noexcept {
  if (p != nullptr) {
    tLiveBytes -= malloc_usable_size(p);
    std::free(p);
  }
}
} // namespace

namespace larkspin_test {
std::size_t allocationCount() {
  return tAllocations;
}
std::size_t liveBytes() {
  return tLiveBytes;
}
} // namespace larkspin_test

void* operator new(std::size_t size) {
  if (void* p = std::malloc(size == 0 ? 1 : size)) {
    return counted(p);
  }
  throw std::bad_alloc();
}
void* operator new(std::size_t size, std::align_val_t alignment) {
  const auto align = static_cast<std::size_t>(alignment);
  if (void* p = std::aligned_alloc(align, size == 0 ? align : (size + align - 1) / align * align)) {
    return counted(p);
  }
  throw std::bad_alloc();
}
void operator delete(void* p) noexcept {
  release(p);
}
void operator delete(void* p, std::align_val_t) noexcept {
  release(p);
}
void operator delete(void* p, std::size_t) noexcept {
  release(p);
}
void operator delete(void* p, std::size_t, std::align_val_t) noexcept {
  release(p);
}
