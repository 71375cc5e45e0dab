package org.larkspin;

import java.util.Arrays;
import java.util.List;
import java.util.Objects;

/**
 * A listener's preset as plain values: per band (0..12) and channel (0 = left or mono, 1 = right) a fixed gain
 * and a fast compressor, per band a slow adaptive gain. Band 13 (above 13.45 kHz) has no controls. The arrays
 * are public: change them in place, then check, encode or apply the preset.
 *
 * <pre>{@code
 * Preset preset = Preset.defaults();
 * preset.gainDb[7][0] = 6.0f;              // band 7 (1.68 to 2.38 kHz), left
 * for (String line : preset.check()) ...   // "band 7, channel 0, gainDb = 6 is stored as 5.9866"
 * processor.applyPreset(preset);           // or store preset.toPayload()
 * }</pre>
 *
 * Allowed ranges (inclusive; the payload quantises within them, {@link #check()} lists what it changes):
 *
 * <ul>
 *   <li>{@code gainDb[band][channel]}: -42.1443 to 48.1646 dB (steps of a linear factor n/128)
 *   <li>{@code fastThresholdDb[band][channel]}: -256 to 0 dB (steps of 1/128 dB)
 *   <li>{@code fastRatio[band][channel]}: 0 to 1, the output slope above the threshold (1 = no compression, 0.5 =
 *       2:1; steps of 1/255)
 *   <li>{@code slowThresholdDb[band]}: -256 to 0 dB
 *   <li>{@code slowFactor[band]}: 0 to 1, the share of the excess over the threshold taken away (0 = off)
 *   <li>{@code slowDelayMs[band]}, {@code slowTimeConstantMs[band]}: 0 to 255 ms, whole ms
 * </ul>
 *
 * The preset functions are pure and may be called from any thread.
 */
public final class Preset {
  /** Controlled bands, 0..12. */
  public static final int BAND_COUNT = 13;
  /** Channels per band: 0 (left or mono) and 1 (right). */
  public static final int CHANNEL_COUNT = 2;
  /** Bytes of a payload. */
  public static final int PAYLOAD_SIZE = 196;

  static {
    NativeLibrary.load();
  }

  /** Fixed band gain, dB, {@code [band][channel]}. */
  public final float[][] gainDb = new float[BAND_COUNT][CHANNEL_COUNT];
  /** Fast compressor threshold, dB, {@code [band][channel]}. */
  public final float[][] fastThresholdDb = new float[BAND_COUNT][CHANNEL_COUNT];
  /** Output slope above the fast threshold, 0..1, {@code [band][channel]}. */
  public final float[][] fastRatio = new float[BAND_COUNT][CHANNEL_COUNT];
  /** Slow gain threshold, dB, per band. */
  public final float[] slowThresholdDb = new float[BAND_COUNT];
  /** Share of the excess over the slow threshold taken away, 0..1, per band. */
  public final float[] slowFactor = new float[BAND_COUNT];
  /** Delay of the slow gain, ms, per band. */
  public final float[] slowDelayMs = new float[BAND_COUNT];
  /** Time constant of the slow gain, ms, per band. */
  public final float[] slowTimeConstantMs = new float[BAND_COUNT];

  // The library's record: per band gain, fast threshold and fast ratio of
  // channel 0, then of channel 1, then the four slow values.
  private static final int VALUES_PER_BAND = 3 * CHANNEL_COUNT + 4;

  private Preset() {}

  /**
   * The built-in default: +1 dB below 210 Hz, -1 dB from 420 Hz to 1.2 kHz, +4 dB from 1.7 to 4.8 kHz, +3/+2 dB
   * above; 2:1 above -20 dB; slow levelling by a fifth of the excess over -40 dB (20 ms delay, 200 ms time
   * constant).
   */
  public static Preset defaults() {
    float[] values = new float[BAND_COUNT * VALUES_PER_BAND];
    nativeDefaults(values);
    return fromValues(values);
  }

  /**
   * Decodes a payload. Any {@link #PAYLOAD_SIZE} bytes decode; values the library would refuse stay as they are
   * ({@link #check()} finds them).
   *
   * @throws IllegalArgumentException for another length
   */
  public static Preset fromPayload(byte[] payload) {
    Objects.requireNonNull(payload, "payload");
    if (payload.length != PAYLOAD_SIZE) {
      throw new IllegalArgumentException("a preset payload is " + PAYLOAD_SIZE + " bytes, not " + payload.length);
    }
    float[] values = new float[BAND_COUNT * VALUES_PER_BAND];
    nativeDecode(payload, values);
    return fromValues(values);
  }

  /**
   * The payload of these values.
   *
   * @throws IllegalArgumentException naming band, channel, field and allowed range of every refused value
   */
  public byte[] toPayload() {
    float[] values = values();
    byte[] payload = new byte[PAYLOAD_SIZE];
    if (nativeEncode(values, payload) != 0) {
      throw new IllegalArgumentException("preset refused: " + joined(Arrays.asList(nativeIssues(values, true))));
    }
    return payload;
  }

  /**
   * One line per value the library refuses or the payload rounds, in the library's words, for example {@code
   * "band 3, channel 0, gainDb = 90 is outside the allowed range -42.1443 to 48.1646"} or {@code "band 3, channel
   * 0, fastRatio = 0.299 is stored as 0.298039"}; empty when the preset is stored exactly.
   */
  public List<String> check() {
    return Arrays.asList(nativeIssues(values(), false));
  }

  /** The lines of {@link #check()} for refused values only. */
  List<String> refused() {
    return Arrays.asList(nativeIssues(values(), true));
  }

  // String.join is missing on Android before 8.
  static String joined(List<String> lines) {
    StringBuilder text = new StringBuilder();
    for (String line : lines) {
      text.append(text.length() > 0 ? "; " : "").append(line);
    }
    return text.toString();
  }

  /** An independent preset with the same values. */
  public Preset copy() {
    return fromValues(values());
  }

  @Override
  public boolean equals(Object other) {
    return other instanceof Preset && Arrays.equals(values(), ((Preset) other).values());
  }

  @Override
  public int hashCode() {
    return Arrays.hashCode(values());
  }

  private float[] values() {
    float[] values = new float[BAND_COUNT * VALUES_PER_BAND];
    for (int band = 0, at = 0; band < BAND_COUNT; ++band) {
      for (int channel = 0; channel < CHANNEL_COUNT; ++channel) {
        values[at++] = value(gainDb, "gainDb", band, channel);
        values[at++] = value(fastThresholdDb, "fastThresholdDb", band, channel);
        values[at++] = value(fastRatio, "fastRatio", band, channel);
      }
      values[at++] = slowThresholdDb[band];
      values[at++] = slowFactor[band];
      values[at++] = slowDelayMs[band];
      values[at++] = slowTimeConstantMs[band];
    }
    return values;
  }

  // The inner arrays can be replaced; a replacement of the wrong length is named.
  private static float value(float[][] field, String name, int band, int channel) {
    float[] channels = field[band];
    if (channels == null || channels.length != CHANNEL_COUNT) {
      throw new IllegalArgumentException(name + "[" + band + "] must hold " + CHANNEL_COUNT + " values");
    }
    return channels[channel];
  }

  private static Preset fromValues(float[] values) {
    Preset preset = new Preset();
    for (int band = 0, at = 0; band < BAND_COUNT; ++band) {
      for (int channel = 0; channel < CHANNEL_COUNT; ++channel) {
        preset.gainDb[band][channel] = values[at++];
        preset.fastThresholdDb[band][channel] = values[at++];
        preset.fastRatio[band][channel] = values[at++];
      }
      preset.slowThresholdDb[band] = values[at++];
      preset.slowFactor[band] = values[at++];
      preset.slowDelayMs[band] = values[at++];
      preset.slowTimeConstantMs[band] = values[at++];
    }
    return preset;
  }

  private static native void nativeDefaults(float[] values);

  private static native void nativeDecode(byte[] payload, float[] values);

  private static native int nativeEncode(float[] values, byte[] payload);

  private static native String[] nativeIssues(float[] values, boolean refusedOnly);
}
