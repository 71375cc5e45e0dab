#include "support/allocation_counter.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>

// Only the basic forms of new and delete are replaced (plus the aligned
// pair, which over-aligned members need on targets with a smaller default
// alignment): the array forms forward to them by default.
//
// Each block carries its requested size in a header just before the
// pointer handed out, so that live bytes count what was asked for, not
// what the allocator happened to round it to (which depends on where it
// served the block from).
namespace {
thread_local std::size_t tAllocations = 0;
thread_local std::size_t tLiveBytes = 0;

constexpr std::size_t kHeader = alignof(std::max_align_t);
static_assert(kHeader >= sizeof(std::size_t));

void* counted(void* base, std::size_t header, std::size_t size) {
  if (base == nullptr) {
    throw std::bad_alloc();
  }
  auto* user = static_cast<unsigned char*>(base) + header;
  std::memcpy(user - sizeof size, &size, sizeof size);
  ++tAllocations;
  tLiveBytes += size;
  return user;
}

void release(void* p, std::size_t header) noexcept {
  if (p != nullptr) {
    auto* user = static_cast<unsigned char*>(p);
    std::size_t size = 0;
    std::memcpy(&size, user - sizeof size, sizeof size);
    tLiveBytes -= size;
    std::free(user - header);
  }
}

std::size_t alignedHeader(std::align_val_t alignment) {
  return std::max(kHeader, static_cast<std::size_t>(alignment));
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
  return counted(std::malloc(kHeader + size), kHeader, size);
}
void* operator new(std::size_t size, std::align_val_t alignment) {
  const std::size_t header = alignedHeader(alignment);
  const std::size_t align = static_cast<std::size_t>(alignment);
  return counted(std::aligned_alloc(align, (header + size + align - 1) / align * align), header, size);
}
void operator delete(void* p) noexcept {
  release(p, kHeader);
}
void operator delete(void* p, std::align_val_t alignment) noexcept {
  release(p, alignedHeader(alignment));
}
void operator delete(void* p, std::size_t) noexcept {
  release(p, kHeader);
}
void operator delete(void* p, std::size_t, std::align_val_t alignment) noexcept {
  release(p, alignedHeader(alignment));
}
