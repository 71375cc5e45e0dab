// C interface over vora::GenericAudioProcessor with its control registry.
#include <larkspin/vora_ap.h>

extern "C" {

const char* vora_ap_get_wrapper_version(void) { return "3.4.0"; }

} // extern "C"
