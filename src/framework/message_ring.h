// Lock-free single-producer, single-consumer byte ring. Each record is a
// 4-byte length followed by that many bytes. One byte stays unused so that
// a full ring differs from an empty one.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace vora {

class MessageRing {
public:
  explicit MessageRing(size_t usableBytes);

  size_t freeBytes() const;
  // Writes one record; false when `size` is 0 or the record (with its
  // length word) exceeds a quarter of the free space: that headroom is the
  // rule, kept on purpose.
  bool write(const void* message, uint32_t size);
  // Reads one record into `out` (room for `capacity` bytes); returns its
  // size, or 0 when the ring is empty or the record does not fit.
  uint32_t read(void* out, uint32_t capacity);

private:
  void copyIn(size_t at, const void* data, size_t count);
  void copyOut(size_t at, void* data, size_t count) const;

  std::vector<unsigned char> bytes_;
  std::atomic<size_t> readPosition_{0};
  std::atomic<size_t> writePosition_{0};
};

} // namespace vora
