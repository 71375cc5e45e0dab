// vora_ap_process after set-up: no heap allocation and no lock for every
// rate, channel count and block size a host may use, and the caller's
// floating-point state survives the denormal flushing inside.
#include <larkspin/vora_ap.h>

#include "support/allocation_counter.h"
#include "support/test_payloads.h"

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <pthread.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#if defined(__x86_64__)
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#endif

#include <algorithm>
#include <atomic>
#include <cfenv>
#include <cmath>
#include <thread>
#include <tuple>

#if defined(__x86_64__)
#include <xmmintrin.h>
#endif

namespace {

thread_local size_t tLocks = 0;

} // namespace

// Counts mutex locks taken by this thread, then takes the real one. The
// shared object's calls resolve to this definition first.
extern "C" int pthread_mutex_lock(pthread_mutex_t* mutex) {
  using Lock = int (*)(pthread_mutex_t*);
  static const Lock real = reinterpret_cast<Lock>(dlsym(RTLD_NEXT, "pthread_mutex_lock"));
  ++tLocks;
  return real(mutex);
}

namespace {

// Runs `blocks` blocks (of up to 1024 frames) of a sine of `amplitude`
// through `control`; whether every block was accepted. The buffers are
// static, so that the caller may forbid the heap around it, and keep the
// last block's output.
float gLeft[1024], gRight[1024];
bool processSine(vora_ap_control* control, int block, int blocks, float amplitude = 0.3f) {
  float* buffers[2] = {gLeft, gRight};
  bool processed = true;
  for (int b = 0; b < blocks; ++b) {
    for (int i = 0; i < block; ++i) {
      gLeft[i] = gRight[i] = amplitude * std::sin(0.05f * float(b * block + i));
    }
    processed = vora_ap_process(control, buffers, block) && processed;
  }
  return processed;
}

// The counters are per thread: the control thread's conversions allocate,
// this thread (the audio thread) must not, neither in a steady state nor
// while it takes changes in.
class RealTimeSafetyTest : public testing::TestWithParam<std::tuple<int, int, int>> {};

TEST_P(RealTimeSafetyTest, ProcessAllocatesNothingAndTakesNoLockWhileSettingsChange) {
  // Plain names, not a structured binding: clang 14 cannot capture those.
  const int rate = std::get<0>(GetParam()), channels = std::get<1>(GetParam()), block = std::get<2>(GetParam());
  vora_ap_control* control = vora_ap_create_control(float(rate), block, channels == 2 ? 1 : 0);
  ASSERT_NE(control, nullptr);
  larkspin_test::Payload payloads[2] = {larkspin_test::flatPayload(6.0f), larkspin_test::flatPayload(-3.0f, 2, 9.0f)};
  ASSERT_TRUE(vora_ap_apply_preset_payload(payloads[0].data()));
  ASSERT_TRUE(vora_ap_set_vorafication_intensity(1.0f));
  // Counted around the blocks only: starting a thread allocates.
  bool processed = true;
  size_t allocations = 0, locks = 0;
  const auto run = [&] {
    const size_t allocationsBefore = larkspin_test::allocationCount(), locksBefore = tLocks;
    processed = processSine(control, block, 10) && processed;
    allocations += larkspin_test::allocationCount() - allocationsBefore;
    locks += tLocks - locksBefore;
  };
  run();

  std::atomic<bool> stop{false};
  std::atomic<int> changes{0};
  std::thread controlThread([&] {
    for (int i = 1; !stop.load(std::memory_order_relaxed); ++i) {
      vora_ap_apply_preset_payload(payloads[i % 2].data());
      vora_ap_set_vorafication_intensity(float(i % 10) / 9.0f);
      vora_ap_set_bypassed(i % 7 == 0);
      vora_ap_get_debug_info(control);
      changes.fetch_add(1, std::memory_order_relaxed);
    }
  });
  // Blocks until the settings have changed a number of times meanwhile.
  for (int round = 0; round < 2 || changes.load() < 4; ++round) {
    run();
  }
  stop.store(true);
  controlThread.join();
  EXPECT_TRUE(processed);
  EXPECT_EQ(allocations, 0u);
  EXPECT_EQ(locks, 0u);
  vora_ap_destroy_control(control);
}

// The smallest and largest transform sizes; a block of one hop, one that no
// hop divides, and the longest.
INSTANTIATE_TEST_SUITE_P(RatesChannelsBlocks, RealTimeSafetyTest,
                         testing::Combine(testing::Values(44100, 192000), testing::Values(1, 2),
                                          testing::Values(64, 100, 1024)));

TEST(DenormalTest, TinyInputLeavesNoDenormalsAndTheCallersStateIsRestored) {
  vora_ap_control* control = vora_ap_create_control(48000.0f, 256, 0);
  auto payload = larkspin_test::flatPayload(0.0f);
  vora_ap_apply_preset_payload(payload.data());
  vora_ap_set_vorafication_intensity(0.5f);
#if defined(__x86_64__)
  const unsigned before = _mm_getcsr();
#endif
  const int roundingBefore = std::fegetround();
  EXPECT_TRUE(processSine(control, 256, 100, 1e-39f)); // denormal input
  EXPECT_EQ(std::count_if(gLeft, gLeft + 256, [](float x) { return std::fpclassify(x) == FP_SUBNORMAL; }), 0);
#if defined(__x86_64__)
  EXPECT_EQ(_mm_getcsr(), before);
#endif
  EXPECT_EQ(std::fegetround(), roundingBefore);
  vora_ap_destroy_control(control);
}

#if defined(__x86_64__) && !defined(__SANITIZE_ADDRESS__)
// In a child process, the kernel kills anything but the clock and exit
// while blocks are processed: a system call on the audio path (I/O, a lock
// that sleeps, memory from the system) ends the child before it can exit.
TEST(SystemCallTest, ProcessMakesNoSystemCallButTheClock) {
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    vora_ap_control* control = vora_ap_create_control(48000.0f, 256, 1);
    auto payload = larkspin_test::flatPayload(6.0f);
    vora_ap_apply_preset_payload(payload.data());
    vora_ap_set_vorafication_intensity(1.0f);
    processSine(control, 256, 1); // warm up outside the filter

    sock_filter allowOnlyClockAndExit[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, arch)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, AUDIT_ARCH_X86_64, 1, 0),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_clock_gettime, 3, 0),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_exit_group, 2, 0),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_exit, 1, 0),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    sock_fprog program{static_cast<unsigned short>(std::size(allowOnlyClockAndExit)), allowOnlyClockAndExit};
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 || prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0) {
      syscall(SYS_exit_group, 3);
    }
    syscall(SYS_exit_group, processSine(control, 256, 400) ? 0 : 2);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status)) << "killed by signal " << (WIFSIGNALED(status) ? WTERMSIG(status) : 0);
  EXPECT_EQ(WIFEXITED(status) ? WEXITSTATUS(status) : -1, 0);
}
#endif

} // namespace
