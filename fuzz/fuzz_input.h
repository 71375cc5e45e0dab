// What every fuzz target shares: typed and awkward values read off the front
// of the input (once the bytes run out every read yields zero, so a target
// never reads past its input), a check that holds in every build type, and a
// cheap noise source.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string>

// Reports the failed condition and aborts, which libFuzzer records as a
// crash with its input.
#define LARKSPIN_FUZZ_CHECK(condition)                                                                                 \
  do {                                                                                                                 \
    if (!(condition)) {                                                                                                \
      std::fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #condition);                               \
      std::abort();                                                                                                    \
    }                                                                                                                  \
  } while (false)

namespace larkspin_fuzz {

class FuzzInput {
public:
  FuzzInput(const uint8_t* data, size_t size) : data_(data), size_(size) {}

  bool empty() const { return position_ >= size_; }

  uint8_t byte() { return position_ < size_ ? data_[position_++] : 0; }

  // Copies up to `count` bytes into `out` and zero-fills the rest.
  void bytes(void* out, size_t count) {
    const size_t available = std::min(count, size_ - std::min(position_, size_));
    if (available > 0) {
      std::memcpy(out, data_ + position_, available);
    }
    std::memset(static_cast<uint8_t*>(out) + available, 0, count - available);
    position_ += available;
  }

  template <typename T> T value() {
    T result;
    bytes(&result, sizeof result);
    return result;
  }

  // An integer in [low, high].
  int inRange(int low, int high) {
    const auto span = static_cast<uint32_t>(high - low) + 1u;
    return low + static_cast<int>(value<uint32_t>() % span);
  }

  // Often a value that breaks careless arithmetic, otherwise any float.
  float awkwardFloat() {
    static constexpr float kAwkward[] = {NAN, INFINITY, -INFINITY, 3.4e38f, 1.0e-45f, 1.0e6f};
    const uint8_t choice = byte() % 8;
    return choice < std::size(kAwkward) ? kAwkward[choice] : value<float>();
  }

  std::string text(size_t maximumLength) {
    std::string result(std::min<size_t>(byte(), maximumLength), '\0');
    bytes(result.data(), result.size());
    return result;
  }

private:
  const uint8_t* data_;
  size_t size_;
  size_t position_ = 0;
};

// Next value in [-1, 1) of a xorshift sequence; `seed` must not be zero.
inline float nextNoise(uint32_t& seed) {
  seed ^= seed << 13;
  seed ^= seed >> 17;
  seed ^= seed << 5;
  return static_cast<float>(static_cast<int32_t>(seed)) * 4.6566e-10f;
}

} // namespace larkspin_fuzz
