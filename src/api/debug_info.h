// The per-block debug record and its text report.
#pragma once

#include <larkspin/vora_ap.h>

#include <chrono>
#include <cstddef>
#include <ostream>

namespace vora {

static_assert(sizeof(vora_ap_debug_info) == 48);
static_assert(offsetof(vora_ap_debug_info, processingSuccess) == 0);
static_assert(offsetof(vora_ap_debug_info, processingBypassed) == 1);
static_assert(offsetof(vora_ap_debug_info, timeSpentProcessingMs) == 8);
static_assert(offsetof(vora_ap_debug_info, processingBufferDurationMs) == 16);
static_assert(offsetof(vora_ap_debug_info, processingSampleRate) == 24);
static_assert(offsetof(vora_ap_debug_info, maximumNumberFrames) == 32);
static_assert(offsetof(vora_ap_debug_info, processedNumberFrames) == 40);

// The figures of one process call. Padding bytes are zero.
vora_ap_debug_info makeDebugInfo(bool success, bool bypassed, std::chrono::steady_clock::duration elapsed, int frames,
                                 double sampleRate, int maximumFrames);

// Prints the record's lines, and three warning lines when the block took
// more than half of its own duration.
void printDebugInfo(const vora_ap_debug_info& info, std::ostream& out);

} // namespace vora
