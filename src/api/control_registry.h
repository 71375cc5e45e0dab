// The process-wide list of live controls, oldest first. No lock: hosts
// serialise the calls that change it.
#pragma once

#include <larkspin/generic_audio_processor.h>

#include <functional>
#include <vector>

// The cell an opaque handle points to.
struct vora_ap_control {
  vora::GenericAudioProcessor* instance = nullptr;
};

namespace vora {

std::vector<vora_ap_control*>& controlRegistry();

// Visits the controls from the oldest with (instance or null, stop flag);
// after each visit the walk ends at the last control or once the visitor
// has set the flag.
void forEachControl(const std::function<void(GenericAudioProcessor*, bool*)>& visitor);

} // namespace vora
