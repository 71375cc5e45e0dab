// The C interface called exactly as a C host calls it, for the Java tests to
// compare with and the cost measurement to time.
#include <larkspin/vora_ap.h>

#include <jni.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <vector>

#if defined(__SANITIZE_ADDRESS__)
// From the sanitizer's runtime (GCC ships no header for it).
extern "C" std::size_t __sanitizer_get_current_allocated_bytes();
#else
#include <malloc.h>
#endif

extern "C" JNIEXPORT jlong JNICALL Java_org_larkspin_CReference_process(JNIEnv* env, jclass, jfloat sampleRate,
                                                                        jint block, jbyteArray payload,
                                                                        jfloat intensity, jobjectArray audio) {
  const int channels = env->GetArrayLength(audio);
  std::vector<jfloatArray> arrays;
  std::vector<std::vector<float>> samples;
  for (int c = 0; c < channels; ++c) {
    arrays.push_back(static_cast<jfloatArray>(env->GetObjectArrayElement(audio, c)));
    samples.emplace_back(static_cast<std::size_t>(env->GetArrayLength(arrays.back())));
    env->GetFloatArrayRegion(arrays.back(), 0, static_cast<jsize>(samples.back().size()), samples.back().data());
  }
  unsigned char bytes[VORA_AP_PRESET_PAYLOAD_SIZE];
  env->GetByteArrayRegion(payload, 0, VORA_AP_PRESET_PAYLOAD_SIZE, reinterpret_cast<jbyte*>(bytes));

  vora_ap_control* control = vora_ap_create_control(sampleRate, block, channels == 2 ? 1 : 0);
  vora_ap_apply_preset_payload(bytes);
  vora_ap_set_vorafication_intensity(intensity);
  // Each block goes through a buffer of its own, as in a host's audio
  // callback; only the process calls are timed.
  const int frames = static_cast<int>(samples[0].size());
  std::vector<float> buffers(2 * static_cast<std::size_t>(block));
  std::chrono::steady_clock::duration elapsed{};
  for (int first = 0; first < frames; first += block) {
    const int count = frames - first < block ? frames - first : block;
    float* at[2] = {buffers.data(), channels == 2 ? buffers.data() + block : nullptr};
    for (int c = 0; c < channels; ++c) {
      std::copy_n(samples[static_cast<std::size_t>(c)].data() + first, count, at[c]);
    }
    const auto start = std::chrono::steady_clock::now();
    vora_ap_process(control, at, count);
    elapsed += std::chrono::steady_clock::now() - start;
    for (int c = 0; c < channels; ++c) {
      std::copy_n(at[c], count, samples[static_cast<std::size_t>(c)].data() + first);
    }
  }
  vora_ap_destroy_control(control);

  for (int c = 0; c < channels; ++c) {
    env->SetFloatArrayRegion(arrays[static_cast<std::size_t>(c)], 0, frames,
                             samples[static_cast<std::size_t>(c)].data());
  }
  return static_cast<jlong>(std::chrono::duration_cast<std::chrono::nanoseconds>(elapsed).count());
}

// Bytes of native heap in use (the sanitizer's count where it replaces malloc).
extern "C" JNIEXPORT jlong JNICALL Java_org_larkspin_CReference_heapBytes(JNIEnv*, jclass) {
#if defined(__SANITIZE_ADDRESS__)
  return static_cast<jlong>(__sanitizer_get_current_allocated_bytes());
#else
  const struct mallinfo2 info = mallinfo2();
  return static_cast<jlong>(info.uordblks + info.hblkhd);
#endif
}
