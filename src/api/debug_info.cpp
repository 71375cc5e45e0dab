#include "api/debug_info.h"

#include <cstring>

namespace vora {

vora_ap_debug_info makeDebugInfo(bool success, bool bypassed, std::chrono::steady_clock::duration elapsed, int frames,
                                 double sampleRate, int maximumFrames) {
  vora_ap_debug_info info;
  std::memset(&info, 0, sizeof info);
  info.processingSuccess = success;
  info.processingBypassed = bypassed;
  const int64_t nanoseconds = std::chrono::duration_cast<std::chrono::nanoseconds>(elapsed).count();
  info.timeSpentProcessingMs = static_cast<double>(nanoseconds) / 1000000.0;
  // In this order, so that 480 frames at 48 kHz give exactly 10 ms.
  info.processingBufferDurationMs = static_cast<double>(frames) / sampleRate * 1000000000.0 / 1000000.0;
  info.processingSampleRate = sampleRate;
  info.maximumNumberFrames = static_cast<double>(maximumFrames);
  info.processedNumberFrames = static_cast<double>(frames);
  return info;
}

void printDebugInfo(const vora_ap_debug_info& info, std::ostream& out) {
  const char* const kFlag[] = {"false", "true"};
  out << "*** vora audio processing debug info:\n"
      << "processing success: " << kFlag[info.processingSuccess ? 1 : 0] << "\n"
      << "processing bypassed: " << kFlag[info.processingBypassed ? 1 : 0] << "\n"
      << "time spent processing (ms): " << info.timeSpentProcessingMs << "\n"
      << "processing buffer duration (ms): " << info.processingBufferDurationMs << "\n"
      << "processing sample rate: " << info.processingSampleRate << "\n"
      << "maximum number frames: " << info.maximumNumberFrames << "\n"
      << "processed number frames: " << info.processedNumberFrames << "\n";
  if (info.timeSpentProcessingMs > 0.5 * info.processingBufferDurationMs) {
    out << "Processing is likely taking too long for real-time scenarios.\n"
        << "Please check your audio stack configuration.\n"
        << "You might be at the limit of your device's processing power.\n";
  }
}

} // namespace vora
