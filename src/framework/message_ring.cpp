#include "framework/message_ring.h"

#include <algorithm>
#include <cstring>

namespace vora {

MessageRing::MessageRing(size_t usableBytes) : bytes_(usableBytes + 1, 0) {}

size_t MessageRing::freeBytes() const {
  const size_t read = readPosition_.load();
  const size_t write = writePosition_.load();
  const size_t used = (write + bytes_.size() - read) % bytes_.size();
  return bytes_.size() - 1 - used;
}

void MessageRing::copyIn(size_t at, const void* data, size_t count) {
  const auto* source = static_cast<const unsigned char*>(data);
  const size_t first = std::min(count, bytes_.size() - at);
  std::memcpy(bytes_.data() + at, source, first);
  std::memcpy(bytes_.data(), source + first, count - first);
}

void MessageRing::copyOut(size_t at, void* data, size_t count) const {
  auto* target = static_cast<unsigned char*>(data);
  const size_t first = std::min(count, bytes_.size() - at);
  std::memcpy(target, bytes_.data() + at, first);
  std::memcpy(target + first, bytes_.data(), count - first);
}

bool MessageRing::write(const void* message, uint32_t size) {
  if (size == 0 || static_cast<size_t>(size) + 4 > freeBytes() / 4) {
    return false;
  }
  const size_t write = writePosition_.load();
  copyIn(write, &size, 4);
  copyIn((write + 4) % bytes_.size(), message, size);
  writePosition_.store((write + 4 + size) % bytes_.size());
  return true;
}

uint32_t MessageRing::read(void* out, uint32_t capacity) {
  const size_t read = readPosition_.load();
  if (read == writePosition_.load()) {
    return 0;
  }
  uint32_t size = 0;
  copyOut(read, &size, 4);
  if (size > capacity) {
    return 0;
  }
  copyOut((read + 4) % bytes_.size(), out, size);
  readPosition_.store((read + 4 + size) % bytes_.size());
  return size;
}

} // namespace vora
