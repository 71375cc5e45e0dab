#include "api/control_registry.h"

namespace vora {

std::vector<vora_ap_control*>& controlRegistry() {
  // Its own storage is released at exit; controls still registered then are
  // not destroyed, deliberately.
  static std::vector<vora_ap_control*> registry;
  return registry;
}

void forEachControl(const std::function<void(GenericAudioProcessor*, bool*)>& visitor) {
  const auto& registry = controlRegistry();
  bool stop = false;
  for (size_t i = 0; i < registry.size(); ++i) {
    visitor(registry[i]->instance, &stop);
    if (stop) {
      break;
    }
  }
}

} // namespace vora
