// The debug record's wait-free hand-off between threads: every record a
// reader gets is one the writer wrote whole, never older than one it got
// before, and the last one written arrives. (The settings mailbox is raced
// through the node that uses it, in the settings order test.)
#include "framework/record_latch.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <thread>

namespace vora {
namespace {

// Every word follows from the first, so a torn record shows.
struct Record {
  uint64_t words[6] = {};
  static Record of(uint64_t k) {
    Record r;
    for (uint64_t i = 0; i < 6; ++i) {
      r.words[i] = k * (2 * i + 1) + i;
    }
    return r;
  }
  bool operator==(const Record&) const = default;
};

TEST(HandoffTest, LatchReadsAreWholeOrderedAndEndWithTheLastRecord) {
  constexpr uint64_t kWrites = 200000;
  RecordLatch<Record> latch(Record::of(0));
  std::atomic<bool> done{false};
  std::thread writer([&] {
    for (uint64_t k = 1; k <= kWrites; ++k) {
      latch.store(Record::of(k));
    }
    done.store(true, std::memory_order_release);
  });
  uint64_t previous = 0, torn = 0, backwards = 0;
  for (bool finished = false; !finished;) {
    finished = done.load(std::memory_order_acquire);
    const Record record = latch.load();
    torn += record == Record::of(record.words[0]) ? 0 : 1;
    backwards += record.words[0] < previous ? 1 : 0;
    previous = record.words[0];
  }
  writer.join();
  EXPECT_EQ(torn, 0u);
  EXPECT_EQ(backwards, 0u);
  EXPECT_EQ(previous, kWrites);
}

} // namespace
} // namespace vora
