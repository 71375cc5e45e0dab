// The native side of org.larkspin.Preset: the library's preset functions on
// the preset's values as one float array in the layout of vora_preset
// (per band: gain, fast threshold and fast ratio of channel 0, then of
// channel 1, then the four slow values).
#include <larkspin/vora_preset.h>

#include <jni.h>

#include <cstddef>
#include <cstring>
#include <string>
#include <vector>

namespace {

static_assert(sizeof(vora_preset) == std::size_t{VORA_PRESET_BAND_COUNT} * 10 * sizeof(float),
              "vora_preset is ten floats a band");

vora_preset presetOf(JNIEnv* env, jfloatArray values) {
  vora_preset preset;
  env->GetFloatArrayRegion(values, 0, sizeof preset / sizeof(float), reinterpret_cast<float*>(&preset));
  return preset;
}

void store(JNIEnv* env, const vora_preset& preset, jfloatArray values) {
  env->SetFloatArrayRegion(values, 0, sizeof preset / sizeof(float), reinterpret_cast<const float*>(&preset));
}

} // namespace

extern "C" {

JNIEXPORT void JNICALL Java_org_larkspin_Preset_nativeDefaults(JNIEnv* env, jclass, jfloatArray values) {
  vora_preset preset;
  vora_preset_default(&preset);
  store(env, preset, values);
}

JNIEXPORT void JNICALL Java_org_larkspin_Preset_nativeDecode(JNIEnv* env, jclass, jbyteArray payload,
                                                             jfloatArray values) {
  unsigned char bytes[VORA_AP_PRESET_PAYLOAD_SIZE];
  env->GetByteArrayRegion(payload, 0, VORA_AP_PRESET_PAYLOAD_SIZE, reinterpret_cast<jbyte*>(bytes));
  vora_preset preset;
  vora_preset_decode(bytes, &preset);
  store(env, preset, values);
}

// The number of refused values; the payload is written only when it is 0.
JNIEXPORT jint JNICALL Java_org_larkspin_Preset_nativeEncode(JNIEnv* env, jclass, jfloatArray values,
                                                             jbyteArray payload) {
  const vora_preset preset = presetOf(env, values);
  unsigned char bytes[VORA_AP_PRESET_PAYLOAD_SIZE];
  const int refused = vora_preset_encode(&preset, bytes, nullptr, 0, nullptr);
  if (refused == 0) {
    env->SetByteArrayRegion(payload, 0, VORA_AP_PRESET_PAYLOAD_SIZE, reinterpret_cast<const jbyte*>(bytes));
  }
  return refused;
}

// One line per issue in the library's words, refused values only or all.
JNIEXPORT jobjectArray JNICALL Java_org_larkspin_Preset_nativeIssues(JNIEnv* env, jclass, jfloatArray values,
                                                                     jboolean refusedOnly) {
  try {
    const vora_preset preset = presetOf(env, values);
    int count = 0;
    vora_preset_check(&preset, nullptr, 0, &count);
    std::vector<vora_preset_issue> issues(static_cast<std::size_t>(count));
    vora_preset_check(&preset, issues.data(), count, &count);
    std::vector<std::string> lines;
    for (const vora_preset_issue& issue : issues) {
      if (refusedOnly == JNI_FALSE || issue.kind == VORA_PRESET_REFUSED) {
        std::string line(static_cast<std::size_t>(vora_preset_format_issue(&issue, nullptr, 0)), '\0');
        vora_preset_format_issue(&issue, line.data(), line.size() + 1);
        lines.push_back(line);
      }
    }
    jobjectArray array =
        env->NewObjectArray(static_cast<jsize>(lines.size()), env->FindClass("java/lang/String"), nullptr);
    for (std::size_t i = 0; array != nullptr && i < lines.size(); ++i) {
      jstring text = env->NewStringUTF(lines[i].c_str());
      env->SetObjectArrayElement(array, static_cast<jsize>(i), text);
      env->DeleteLocalRef(text);
    }
    return array;
  } catch (...) {
    if (!env->ExceptionCheck()) {
      env->ThrowNew(env->FindClass("java/lang/OutOfMemoryError"), "no memory for the preset's issues");
    }
    return nullptr;
  }
}

} // extern "C"
