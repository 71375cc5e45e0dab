// Single-channel FIFO of float samples with a capacity fixed at
// construction: push and pop copy, never allocate.
#pragma once

#include <algorithm>
#include <cassert>
#include <cstddef>
#include <vector>

namespace vora {

class SampleQueue {
public:
  explicit SampleQueue(size_t capacity) : storage_(capacity) {}

  size_t size() const { return size_; }
  size_t capacity() const { return storage_.size(); }

  // Pushes as much of `count` as fits (it always fits when sized for the
  // worst case, as the node base class does).
  void push(const float* samples, size_t count) {
    assert(count <= capacity() - size_);
    count = std::min(count, capacity() - size_);
    size_t tail = (head_ + size_) % capacity();
    for (size_t done = 0; done < count;) {
      const size_t run = std::min(count - done, capacity() - tail);
      std::copy(samples + done, samples + done + run, storage_.begin() + static_cast<std::ptrdiff_t>(tail));
      done += run;
      tail = (tail + run) % capacity();
    }
    size_ += count;
  }

  // Pops `count` samples (at most size()).
  void pop(float* samples, size_t count) {
    assert(count <= size_);
    count = std::min(count, size_);
    for (size_t done = 0; done < count;) {
      const size_t run = std::min(count - done, capacity() - head_);
      std::copy(storage_.begin() + static_cast<std::ptrdiff_t>(head_),
                storage_.begin() + static_cast<std::ptrdiff_t>(head_ + run), samples + done);
      done += run;
      head_ = (head_ + run) % capacity();
    }
    size_ -= count;
  }

private:
  std::vector<float> storage_;
  size_t head_ = 0;
  size_t size_ = 0;
};

} // namespace vora
