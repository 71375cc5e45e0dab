#include "support/allocation_counter.h"

#include <cstdlib>
#include <new>

// Only the basic forms of new and delete are replaced (plus the aligned
// pair, which over-aligned members need on targets with a smaller default
// alignment): the array forms forward to them by default. A delete may meet
// a block that some other new made (a sanitizer's nothrow new in a plug-in,
// say), so blocks carry nothing of ours.
namespace {
thread_local std::size_t tAllocations = 0;

// The blocks a LiveBytesScope's thread allocates while it lives, with the
// sizes asked for (the allocator's own rounding depends on where it serves
// a block from). A fixed table: recording must not allocate.
thread_local bool tTracking = false;
constexpr std::size_t kTrackedCapacity = 4096;
void* gTrackedBlock[kTrackedCapacity];
std::size_t gTrackedSize[kTrackedCapacity];
std::size_t gTrackedCount = 0;
std::size_t gTrackedLive = 0;
bool gTrackedOverflow = false;

void* counted(void* p, std::size_t size) {
  if (p == nullptr) {
    throw std::bad_alloc();
  }
  ++tAllocations;
  if (tTracking) {
    if (gTrackedCount == kTrackedCapacity) {
      gTrackedOverflow = true;
    } else {
      gTrackedBlock[gTrackedCount] = p;
      gTrackedSize[gTrackedCount++] = size;
      gTrackedLive += size;
    }
  }
  return p;
}

void release(void* p) noexcept {
  if (tTracking && p != nullptr) {
    for (std::size_t i = 0; i < gTrackedCount; ++i) {
      if (gTrackedBlock[i] == p) {
        gTrackedBlock[i] = nullptr;
        gTrackedLive -= gTrackedSize[i];
        break;
      }
    }
  }
  std::free(p);
}
} // namespace

namespace larkspin_test {
std::size_t allocationCount() {
  return tAllocations;
}

LiveBytesScope::LiveBytesScope() {
  gTrackedCount = gTrackedLive = 0;
  gTrackedOverflow = false;
  tTracking = true;
}
LiveBytesScope::~LiveBytesScope() {
  tTracking = false;
}
std::size_t LiveBytesScope::bytes() const {
  return gTrackedOverflow ? static_cast<std::size_t>(-1) : gTrackedLive;
}
} // namespace larkspin_test

void* operator new(std::size_t size) {
  return counted(std::malloc(size == 0 ? 1 : size), size);
}
void* operator new(std::size_t size, std::align_val_t alignment) {
  const auto align = static_cast<std::size_t>(alignment);
  return counted(std::aligned_alloc(align, size == 0 ? align : (size + align - 1) / align * align), size);
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
