#include "api/debug_info.h"

#include <gtest/gtest.h>

#include <sstream>

namespace vora {
namespace {

using namespace std::chrono_literals;

std::string print(const vora_ap_debug_info& info) {
  std::ostringstream out;
  printDebugInfo(info, out);
  return out.str();
}

constexpr const char* kWarning = "Processing is likely taking too long for real-time scenarios.\n"
                                 "Please check your audio stack configuration.\n"
                                 "You might be at the limit of your device's processing power.\n";

TEST(DebugInfoTest, ReportLinesAndWarningAboveHalfTheBlock) {
  const std::string expected = "*** vora audio processing debug info:\n"
                               "processing success: true\n"
                               "processing bypassed: false\n"
                               "time spent processing (ms): 5\n"
                               "processing buffer duration (ms): 10\n"
                               "processing sample rate: 48000\n"
                               "maximum number frames: 512\n"
                               "processed number frames: 480\n";
  const vora_ap_debug_info info = makeDebugInfo(true, false, 5ms, 480, 48000.0, 512);
  EXPECT_EQ(print(info), expected); // exactly half: no warning
  for (int i = 2; i < 8; ++i) {
    EXPECT_EQ(reinterpret_cast<const unsigned char*>(&info)[i], 0) << i; // padding is part of the interface
  }
  EXPECT_TRUE(makeDebugInfo(false, true, 1500us, 480, 48000.0, 512).processingBypassed);
  EXPECT_EQ(print(makeDebugInfo(true, false, 5001us, 480, 48000.0, 512)),
            std::string(expected).replace(expected.find("5\n"), 2, "5.001\n") + kWarning);
  EXPECT_NE(print(makeDebugInfo(true, false, 1ms, 512, 44100.0, 512)).find("(ms): 11.61\n"), std::string::npos);
}

} // namespace
} // namespace vora
