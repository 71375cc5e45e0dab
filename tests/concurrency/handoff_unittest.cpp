// The two wait-free hand-offs between threads: every record a reader gets
// is one the writer wrote whole, never older than one it got before, and
// the last one written arrives.
#include "framework/latest_value_mailbox.h"
#include "framework/record_latch.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <optional>
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
  // The index of a whole record, or nothing.
  std::optional<uint64_t> index() const {
    return of(words[0]) == *this ? std::optional<uint64_t>(words[0]) : std::nullopt;
  }
  bool operator==(const Record&) const = default;
};

constexpr uint64_t kWrites = 200000;

// Runs `write(k)` for k = 1..kWrites on a second thread while this thread
// calls `read()` (which returns the index it got, or 0 for none yet).
template <class Write, class Read> void race(Write write, Read read) {
  std::atomic<bool> done{false};
  std::thread writer([&] {
    for (uint64_t k = 1; k <= kWrites; ++k) {
      write(k);
    }
    done.store(true, std::memory_order_release);
  });
  uint64_t previous = 0, backwards = 0;
  bool finished = false;
  while (!finished) {
    finished = done.load(std::memory_order_acquire);
    const uint64_t k = read();
    backwards += k < previous ? 1 : 0;
    previous = k;
  }
  writer.join();
  EXPECT_EQ(backwards, 0u);
  EXPECT_EQ(previous, kWrites);
}

TEST(HandoffTest, LatchReadsAreWholeOrderedAndEndWithTheLastRecord) {
  RecordLatch<Record> latch(Record::of(0));
  race([&](uint64_t k) { latch.store(Record::of(k)); },
       [&] {
         const std::optional<uint64_t> k = latch.load().index();
         EXPECT_TRUE(k.has_value());
         return k.value_or(0);
       });
}

TEST(HandoffTest, MailboxTakesAreWholeOrderedAndEndWithTheLastRecord) {
  LatestValueMailbox<Record> mailbox(Record::of(0));
  race([&](uint64_t k) { mailbox.publish(Record::of(k)); },
       [&] {
         mailbox.refresh();
         const std::optional<uint64_t> k = mailbox.latest().index();
         EXPECT_TRUE(k.has_value());
         return k.value_or(0);
       });
}

} // namespace
} // namespace vora
