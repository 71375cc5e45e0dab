// A small record written by one thread and read by any number of others,
// never torn, with no lock. Two copies and a sequence number: the writer
// updates one copy while readers use the other, so a writer paused midway
// never holds a reader up; a reader retries only when the writer finished a
// copy while it was reading (the writer writes once per audio block, so a
// retry is rare and the next attempt succeeds).
//
// The words are atomics, so that the race-free reading is visible to tools
// as well, not just argued. Release stores of the words and acquire loads
// order them against the sequence number without fences: a reader that got
// any word of a copy the writer has begun again also sees the new sequence.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace vora {

template <class T> class RecordLatch {
  static_assert(std::is_trivially_copyable_v<T>);

public:
  // Not copyable, as its atomics are not.
  explicit RecordLatch(const T& initial = T{}) {
    for (size_t copy = 0; copy < 2; ++copy) {
      storeCopy(copy, initial);
    }
  }

  // Writer thread only. Readers move to copy 1 while copy 0 is written,
  // then back to copy 0 while copy 1 is written.
  void store(const T& value) {
    const uint32_t sequence = sequence_.load(std::memory_order_relaxed);
    sequence_.store(sequence + 1, std::memory_order_relaxed);
    storeCopy(0, value);
    sequence_.store(sequence + 2, std::memory_order_release);
    storeCopy(1, value);
  }

  // Any thread.
  T load() const {
    uint32_t words[kWords];
    for (;;) {
      const uint32_t sequence = sequence_.load(std::memory_order_acquire);
      const auto& copy = copies_[sequence & 1u];
      for (size_t i = 0; i < kWords; ++i) {
        words[i] = copy[i].load(std::memory_order_acquire);
      }
      if (sequence_.load(std::memory_order_relaxed) == sequence) {
        break;
      }
    }
    T value;
    std::memcpy(&value, words, sizeof value);
    return value;
  }

private:
  // 32-bit words: lock-free on every target, 32-bit ARM included.
  static constexpr size_t kWords = (sizeof(T) + sizeof(uint32_t) - 1) / sizeof(uint32_t);
  static_assert(std::atomic<uint32_t>::is_always_lock_free);

  void storeCopy(size_t copy, const T& value) {
    uint32_t words[kWords] = {};
    std::memcpy(words, &value, sizeof value);
    for (size_t i = 0; i < kWords; ++i) {
      copies_[copy][i].store(words[i], std::memory_order_release);
    }
  }

  std::atomic<uint32_t> sequence_{0};
  std::atomic<uint32_t> copies_[2][kWords] = {};
};

} // namespace vora
