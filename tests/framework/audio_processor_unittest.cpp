#include "framework/audio_processor.h"

#include "support/allocation_counter.h"
#include "support/capture_stdout.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

namespace vora {
namespace {

// Doubles every sample it processes and records what it was given.
class DoublingNode : public AudioProcessor {
public:
  void processBlock(int, int numOutputs, int blockSize, float** blocks, AudioTimeStamp& timeStamp) override {
    blockTimes.push_back(timeStamp.sampleTime);
    lastBlock = blocks[0];
    for (int ch = 0; ch < std::max(numOutputs, 1); ++ch) {
      for (int i = 0; i < blockSize; ++i) {
        blocks[ch][i] *= 2.0f;
      }
    }
  }
  void process(int, int numOutputs, int frames, float** buffers, AudioTimeStamp&) override {
    ++processCalls;
    for (int ch = 0; ch < numOutputs; ++ch) {
      for (int i = 0; i < frames; ++i) {
        buffers[ch][i] *= 2.0f;
      }
    }
  }
  bool acceptsMessage(uint32_t kind) override { return kind == 1; }

  std::vector<int64_t> blockTimes;
  const float* lastBlock = nullptr;
  int processCalls = 0;
};

struct ReblockingCase {
  int maximumFrames;
  int hostFrames;
  bool bypassed;
  std::vector<size_t> leadingZeros; // per call, for the first calls
  std::vector<int> firstCalls = {}; // the first calls' lengths, when not hostFrames
};

class ReblockingTest : public testing::TestWithParam<ReblockingCase> {};

// Blocks of 64 under host calls of several sizes: a call is led by zeros
// while fewer processed samples are queued than it asks for, and the
// processed samples come out in order, none lost or repeated. Bypass takes
// the same path through the queues without processing. Calls of whole
// blocks are processed in place only while nothing is queued.
TEST_P(ReblockingTest, KeepsTheStreamWholeBehindLeadingSilence) {
  const ReblockingCase c = GetParam();
  DoublingNode node;
  node.setup(1, 1, c.maximumFrames, 48000.0);
  node.setInternalBlockSize(64);
  node.setBypassed(c.bypassed);
  const float gain = c.bypassed ? 1.0f : 2.0f;
  AudioTimeStamp timeStamp{1000, true};
  std::vector<float> block;
  float nextInput = 1.0f, nextOutput = 1.0f; // the input is a ramp
  for (size_t call = 0; call < static_cast<size_t>(6400 / c.hostFrames); ++call) {
    block.resize(static_cast<size_t>(call < c.firstCalls.size() ? c.firstCalls[call] : c.hostFrames));
    for (float& x : block) {
      x = nextInput++;
    }
    float* buffers[1] = {block.data()};
    node.render(1, 1, static_cast<int>(block.size()), buffers, timeStamp); // a stamp that never advances
    size_t zeros = 0;
    while (zeros < block.size() && block[zeros] == 0.0f) {
      ++zeros;
    }
    if (call < c.leadingZeros.size()) {
      EXPECT_EQ(zeros, c.leadingZeros[call]) << call;
    }
    for (size_t i = zeros; i < block.size(); ++i) {
      ASSERT_EQ(block[i], gain * nextOutput++) << "call " << call << ", sample " << i;
    }
  }
  EXPECT_GT(nextOutput, 6400.0f * 0.9f);
  // The held time stamp starts at the first valid one and advances by blocks;
  // whole blocks with nothing queued were processed in the caller's buffer.
  EXPECT_EQ(node.lastBlock == block.data() + 64, c.hostFrames == 128 && c.firstCalls.empty() && !c.bypassed);
  EXPECT_EQ(node.blockTimes.size(), c.bypassed ? 0u : static_cast<size_t>(nextInput - 1.0f) / 64);
  for (size_t n = 0; n < node.blockTimes.size(); ++n) {
    ASSERT_EQ(node.blockTimes[n], 1000 + 64 * static_cast<int64_t>(n)) << n;
  }
}

INSTANTIATE_TEST_SUITE_P(
    HostBlocks, ReblockingTest,
    testing::Values(ReblockingCase{128, 10, false, {10, 10, 10, 10, 10, 10, 0, 0}},
                    ReblockingCase{128, 128, false, std::vector<size_t>(50, 0)}, // dividing: no delay at all
                    ReblockingCase{100, 100, false, {36, 0, 8}}, ReblockingCase{128, 128, false, {1, 0, 0, 0}, {1}},
                    ReblockingCase{128, 128, false, {1, 0, 0}, {65, 63}}, // one processed sample stays queued
                    ReblockingCase{128, 10, true, {10, 10, 10, 10, 10, 10, 0, 0}}));

// A new block size also starts the held time stamp again.
TEST(ReblockingTest, NoOutputBuffersMeansFalseAndANewBlockSizeRestartsTheTime) {
  std::vector<float> block(64);
  float* buffers[1] = {block.data()};
  AudioTimeStamp timeStamp{500, true};
  DoublingNode sink; // no outputs: processes, but has no output buffers
  sink.setup(1, 0, 128, 48000.0);
  sink.setInternalBlockSize(64);
  EXPECT_FALSE(sink.render(1, 0, 64, buffers, timeStamp));
  EXPECT_FALSE(sink.isOutputReady());
  EXPECT_EQ(sink.getOutputBuffers(), nullptr);
  sink.setInternalBlockSize(32);
  timeStamp.sampleTime = 9000;
  sink.render(1, 0, 64, buffers, timeStamp);
  EXPECT_EQ(sink.blockTimes, (std::vector<int64_t>{500, 9000, 9032}));
}

TEST(RenderTest, WholeBlocksAndOutputBuffersWithoutAllocating) {
  DoublingNode direct, reblocking;
  direct.setup(2, 2, 256, 48000.0);
  direct.setInternalBlockSize(-64); // off, as 0 is
  reblocking.setup(2, 2, 256, 48000.0);
  reblocking.setInternalBlockSize(64);
  std::vector<float> left(256, 0.25f), right(256, 0.5f);
  float* buffers[2] = {left.data(), right.data()};
  AudioTimeStamp timeStamp{0, true};
  reblocking.blockTimes.reserve(1000);

  larkspin_test::AllocationScope scope;
  for (int i = 0; i < 50; ++i) {
    direct.render(2, 2, 256, buffers, timeStamp);
    reblocking.render(2, 2, 100, buffers, timeStamp);
    reblocking.render(2, 2, 256, buffers, timeStamp);
  }
  EXPECT_EQ(scope.allocations(), 0u);
  EXPECT_EQ(direct.processCalls, 50);

  EXPECT_TRUE(direct.render(2, 2, 256, buffers, timeStamp));
  EXPECT_TRUE(direct.isOutputReady());
  EXPECT_EQ(direct.getOutputBuffers()[1][255], right[255]);
}

TEST(MessageTest, SizeZeroRefusedAndQuarterOfFreeSpaceRule) {
  DoublingNode node;
  uint32_t message[4] = {16, 1, 0, 0};
  EXPECT_TRUE(node.enqueueMessage(message));
  uint32_t empty[4] = {0, 1, 0, 0};
  EXPECT_FALSE(node.enqueueMessage(empty));
  uint32_t otherKind[4] = {16, 2, 0, 0};
  EXPECT_FALSE(node.enqueueMessage(otherKind)); // not accepted by the node

  MessageRing ring(400);
  EXPECT_EQ(ring.freeBytes(), 400u);
  int accepted = 0;
  while (ring.freeBytes() >= 80) {
    ASSERT_TRUE(ring.write(message, 16));
    ++accepted;
  }
  EXPECT_FALSE(ring.write(message, 16));
  EXPECT_EQ(accepted, 17); // (400 - 80) / 20 + 1
}

// Messages of every size from 1 to 40 bytes, read as they are written,
// cross the end of a small ring many times: payloads split at many points,
// the size field at each of its three.
// (The ring's positions are sequentially consistent atomics: one writer and
// one reader need nothing more, and no single run could show a fault there.)
TEST(MessageTest, WrappingLosesAndCorruptsNothing) {
  MessageRing ring(200);
  unsigned char message[40], out[40];
  for (uint32_t n = 0; n < 500; ++n) {
    const uint32_t size = 1 + n % 40;
    std::memset(message, static_cast<int>(n & 0xFF), size);
    ASSERT_TRUE(ring.write(message, size)) << n;
    ASSERT_EQ(ring.read(out, sizeof out), size) << n;
    ASSERT_EQ(std::memcmp(out, message, size), 0) << n;
  }
  EXPECT_EQ(ring.read(out, sizeof out), 0u);
}

} // namespace
} // namespace vora
