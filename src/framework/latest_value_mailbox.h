// Hands the latest value of a small record from one writer thread to one
// reader thread, wait-free on both sides (a triple buffer). The writer fills
// a slot of its own, then swaps it with the shared one; the reader swaps
// the shared slot with its own only when a newer value is there. A value
// the reader has not taken yet is replaced by the next one: the reader
// always gets the newest complete record, never a mixture of two.
//
// T must be trivially copyable; nothing here allocates, locks or waits.
#pragma once

#include <atomic>
#include <cstdint>
#include <type_traits>

namespace vora {

template <class T> class LatestValueMailbox {
  static_assert(std::is_trivially_copyable_v<T>);

public:
  // Not copyable, as its atomic is not.
  explicit LatestValueMailbox(const T& initial = T{}) : slots_{initial, initial, initial} {}

  // Writer thread only.
  void publish(const T& value) {
    slots_[writeSlot_] = value;
    const uint8_t previous = shared_.exchange(static_cast<uint8_t>(writeSlot_ | kFresh), std::memory_order_acq_rel);
    writeSlot_ = previous & kSlotMask;
  }

  // Reader thread only: takes a newer value if there is one (true), and
  // returns the newest value taken so far either way through latest().
  bool refresh() {
    if ((shared_.load(std::memory_order_relaxed) & kFresh) == 0) {
      return false;
    }
    const uint8_t previous = shared_.exchange(readSlot_, std::memory_order_acq_rel);
    readSlot_ = previous & kSlotMask;
    return true;
  }
  const T& latest() const { return slots_[readSlot_]; }

private:
  static constexpr uint8_t kSlotMask = 3;
  static constexpr uint8_t kFresh = 4;

  T slots_[3];
  uint8_t writeSlot_ = 0; // the writer's own slot
  uint8_t readSlot_ = 2;  // the reader's own slot
  std::atomic<uint8_t> shared_{1};
  static_assert(std::atomic<uint8_t>::is_always_lock_free);
};

} // namespace vora
