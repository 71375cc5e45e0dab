// The native side of org.larkspin.Processor. The Java class checks every
// argument and serialises the calls (one audio thread, one control thread,
// nothing after close), so these functions trust their arguments; none lets
// a C++ exception reach the virtual machine.
#include "stream.h"

#include <jni.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <new>

namespace {

using larkspin_java::Stream;

// Java keeps the native instance's address in a long.
Stream& streamOf(jlong handle) {
  return *reinterpret_cast<Stream*>(static_cast<std::intptr_t>(handle)); // NOLINT(performance-no-int-to-ptr)
}

// Sample formats, as the ordinals of org.larkspin.SampleFormat: 16-bit
// integers, else 32-bit floats.
constexpr jint kPcm16 = 0;

int bytesPerSample(jint format) {
  return format == kPcm16 ? 2 : 4;
}

// 16-bit samples are s / 32768 in; out, y * 32768 rounded to the nearest
// integer (halves to even) and clipped. NaN becomes 0, though the library
// never puts it out.
float fromPcm16(std::int16_t sample) {
  return static_cast<float>(sample) * (1.0f / 32768.0f);
}

std::int16_t toPcm16(float sample) {
  float scaled = sample * 32768.0f;
  if (!(scaled == scaled)) {
    scaled = 0.0f;
  }
  scaled = std::min(std::max(scaled, -32768.0f), 32767.0f);
  // Adding and taking away 1.5 * 2^23 leaves no fraction bits: the sum is
  // rounded to an integer as every float operation rounds, to nearest with
  // halves to even. Unlike lrint, which sets errno, it stays inline.
  constexpr float kRounder = 12582912.0f;
  return static_cast<std::int16_t>((scaled + kRounder) - kRounder);
}

float toFloat(float sample) {
  return sample;
}
float toFloat(std::int16_t sample) {
  return fromPcm16(sample);
}
template <typename Sample> Sample fromFloat(float sample);
template <> float fromFloat<float>(float sample) {
  return sample;
}
template <> std::int16_t fromFloat<std::int16_t>(float sample) {
  return toPcm16(sample);
}

// Interleaved samples at `bytes` (any alignment, hence memcpy), frame
// `first` onwards, to or from one buffer per channel.
template <typename Sample>
void deinterleave(const unsigned char* bytes, int channels, std::int64_t first, int count, float* const* to) {
  const unsigned char* at = bytes + first * channels * static_cast<std::int64_t>(sizeof(Sample));
  for (int i = 0; i < count; ++i) {
    for (int c = 0; c < channels; ++c, at += sizeof(Sample)) {
      Sample sample;
      std::memcpy(&sample, at, sizeof sample);
      to[c][i] = toFloat(sample);
    }
  }
}

template <typename Sample>
void interleave(const float* const* from, int channels, std::int64_t first, int count, unsigned char* bytes) {
  unsigned char* at = bytes + first * channels * static_cast<std::int64_t>(sizeof(Sample));
  for (int i = 0; i < count; ++i) {
    for (int c = 0; c < channels; ++c, at += sizeof(Sample)) {
      const Sample sample = fromFloat<Sample>(from[c][i]);
      std::memcpy(at, &sample, sizeof sample);
    }
  }
}

void throwNew(JNIEnv* env, const char* className, const char* message) {
  if (env->ExceptionCheck()) {
    return;
  }
  if (jclass type = env->FindClass(className)) {
    env->ThrowNew(type, message);
  }
}

// Runs `work`, turning any C++ exception into a Java one.
template <typename Result, typename Work> Result guarded(JNIEnv* env, Result failed, Work&& work) {
  try {
    return work();
  } catch (const std::bad_alloc&) {
    throwNew(env, "java/lang/OutOfMemoryError", "no memory for the larkspin processor");
  } catch (...) {
    throwNew(env, "java/lang/IllegalStateException", "the larkspin processor failed");
  }
  return failed;
}

} // namespace

extern "C" {

JNIEXPORT jlong JNICALL Java_org_larkspin_Processor_nativeCreate(JNIEnv* env, jclass, jfloat sampleRate,
                                                                 jint maxBlockFrames, jint channels) {
  return guarded<jlong>(env, 0, [&] {
    return static_cast<jlong>(
        reinterpret_cast<std::intptr_t>(Stream::create(sampleRate, maxBlockFrames, channels).release()));
  });
}

JNIEXPORT void JNICALL Java_org_larkspin_Processor_nativeDestroy(JNIEnv*, jclass, jlong handle) {
  delete &streamOf(handle);
}

JNIEXPORT jint JNICALL Java_org_larkspin_Processor_nativeLatency(JNIEnv*, jobject, jlong handle) {
  return streamOf(handle).latencyFrames();
}

JNIEXPORT jboolean JNICALL Java_org_larkspin_Processor_nativeProcessArrays(JNIEnv* env, jobject, jlong handle,
                                                                           jfloatArray left, jfloatArray right,
                                                                           jint offset, jint frames) {
  const jfloatArray arrays[2] = {left, right};
  Stream& stream = streamOf(handle);
  const bool ok = stream.run(
      frames,
      [&](std::int64_t first, int count, float* const* to) {
        for (int c = 0; c < stream.channels(); ++c) {
          env->GetFloatArrayRegion(arrays[c], offset + static_cast<jint>(first), count, to[c]);
        }
      },
      [&](std::int64_t first, int count, const float* const* from) {
        for (int c = 0; c < stream.channels(); ++c) {
          env->SetFloatArrayRegion(arrays[c], offset + static_cast<jint>(first), count, from[c]);
        }
      });
  return ok ? JNI_TRUE : JNI_FALSE;
}

// 0: processed; 1: the library refused a block; 2: the buffers overlap
// other than frame for frame.
JNIEXPORT jint JNICALL Java_org_larkspin_Processor_nativeProcessBuffers(JNIEnv* env, jobject, jlong handle,
                                                                        jobject input, jint inputPosition,
                                                                        jint inputFormat, jobject output,
                                                                        jint outputPosition, jint outputFormat,
                                                                        jint frames) {
  Stream& stream = streamOf(handle);
  const int channels = stream.channels();
  const auto* in = static_cast<const unsigned char*>(env->GetDirectBufferAddress(input)) + inputPosition;
  auto* out = static_cast<unsigned char*>(env->GetDirectBufferAddress(output)) + outputPosition;
  const std::int64_t inBytes = std::int64_t{frames} * channels * bytesPerSample(inputFormat);
  const std::int64_t outBytes = std::int64_t{frames} * channels * bytesPerSample(outputFormat);
  const auto inStart = reinterpret_cast<std::uintptr_t>(in);
  const auto outStart = reinterpret_cast<std::uintptr_t>(out);
  const bool overlap = inStart < outStart + static_cast<std::uintptr_t>(outBytes) &&
                       outStart < inStart + static_cast<std::uintptr_t>(inBytes);
  if (overlap && !(inStart == outStart && inputFormat == outputFormat)) {
    return 2;
  }
  const bool ok = stream.run(
      frames,
      [&](std::int64_t first, int count, float* const* to) {
        inputFormat == kPcm16 ? deinterleave<std::int16_t>(in, channels, first, count, to)
                              : deinterleave<float>(in, channels, first, count, to);
      },
      [&](std::int64_t first, int count, const float* const* from) {
        outputFormat == kPcm16 ? interleave<std::int16_t>(from, channels, first, count, out)
                               : interleave<float>(from, channels, first, count, out);
      });
  return ok ? 0 : 1;
}

JNIEXPORT jboolean JNICALL Java_org_larkspin_Processor_nativeSetIntensity(JNIEnv*, jobject, jlong handle,
                                                                          jfloat intensity) {
  return streamOf(handle).processor().setVoraficationIntensity(intensity) ? JNI_TRUE : JNI_FALSE;
}

JNIEXPORT jfloat JNICALL Java_org_larkspin_Processor_nativeIntensity(JNIEnv*, jobject, jlong handle) {
  return streamOf(handle).processor().getVoraficationIntensity();
}

JNIEXPORT jboolean JNICALL Java_org_larkspin_Processor_nativeSetBypassed(JNIEnv*, jobject, jlong handle,
                                                                         jboolean bypassed) {
  return streamOf(handle).processor().setBypassed(bypassed == JNI_TRUE) ? JNI_TRUE : JNI_FALSE;
}

JNIEXPORT jboolean JNICALL Java_org_larkspin_Processor_nativeBypassed(JNIEnv*, jobject, jlong handle) {
  return streamOf(handle).processor().getBypassed() ? JNI_TRUE : JNI_FALSE;
}

JNIEXPORT jboolean JNICALL Java_org_larkspin_Processor_nativeApplyPayload(JNIEnv* env, jobject, jlong handle,
                                                                          jbyteArray payload) {
  unsigned char bytes[VORA_AP_PRESET_PAYLOAD_SIZE];
  env->GetByteArrayRegion(payload, 0, VORA_AP_PRESET_PAYLOAD_SIZE, reinterpret_cast<jbyte*>(bytes));
  return streamOf(handle).processor().applyPresetPayload(bytes) ? JNI_TRUE : JNI_FALSE;
}

JNIEXPORT void JNICALL Java_org_larkspin_Processor_nativePayload(JNIEnv* env, jobject, jlong handle,
                                                                 jbyteArray payload) {
  const unsigned char* bytes = streamOf(handle).processor().getCurrentPresetPayload();
  env->SetByteArrayRegion(payload, 0, VORA_AP_PRESET_PAYLOAD_SIZE, reinterpret_cast<const jbyte*>(bytes));
}

JNIEXPORT jboolean JNICALL Java_org_larkspin_Processor_nativeBandReadout(JNIEnv* env, jobject, jlong handle,
                                                                         jfloatArray levelsDb, jfloatArray gainsDb) {
  float levels[VORA_AP_BAND_COUNT * 2];
  float gains[VORA_AP_BAND_COUNT * 2];
  if (!streamOf(handle).processor().getBandReadout(levels, gains)) {
    return JNI_FALSE;
  }
  env->SetFloatArrayRegion(levelsDb, 0, VORA_AP_BAND_COUNT * 2, levels);
  env->SetFloatArrayRegion(gainsDb, 0, VORA_AP_BAND_COUNT * 2, gains);
  return JNI_TRUE;
}

JNIEXPORT jstring JNICALL Java_org_larkspin_Processor_nativeInterfaceVersion(JNIEnv* env, jclass) {
  return env->NewStringUTF(vora_ap_get_wrapper_version());
}

JNIEXPORT jstring JNICALL Java_org_larkspin_Processor_nativeCoreVersion(JNIEnv* env, jobject, jlong handle) {
  return env->NewStringUTF(streamOf(handle).processor().getLibVersion());
}

} // extern "C"
