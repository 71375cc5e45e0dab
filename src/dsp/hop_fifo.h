// Frame of N samples that advances by one hop at a time: the oldest hop is at
// the start, a new hop enters at the end.
#pragma once

#include "dsp/engine_constants.h"

#include <algorithm>
#include <cassert>
#include <cstdint>
#include <cstring>

namespace vora {

class HopFifo {
public:
  static constexpr uint32_t kCapacity = kMaxFftSize; // one frame of the largest transform

  void initialise(uint32_t length, uint32_t hop) {
    assert(length <= kCapacity && hop > 0 && hop <= length && length % hop == 0);
    length_ = length;
    hop_ = hop;
    std::fill(data_, data_ + kCapacity, 0.0f);
  }

  // Moves the contents one hop towards the start and writes `hop` samples at
  // the end (zeros when `input` is null).
  void push(const float* input) {
    std::memmove(data_, data_ + hop_, (length_ - hop_) * sizeof(float));
    float* tail = data_ + (length_ - hop_);
    if (input != nullptr) {
      std::memcpy(tail, input, hop_ * sizeof(float));
    } else {
      std::fill(tail, tail + hop_, 0.0f);
    }
  }

  float* data() { return data_; }
  const float* data() const { return data_; }

private:
  float data_[kCapacity] = {};
  uint32_t length_ = 0;
  uint32_t hop_ = 0; // a push before initialise() moves nothing
};

} // namespace vora
