#pragma once

#include <cstdint>

namespace vora {

// Position of a block's first frame, in frames since processing began.
struct AudioTimeStamp {
  int64_t sampleTime = 0;
  bool isValid = false;
};

} // namespace vora
