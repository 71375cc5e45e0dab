package org.larkspin;

import java.nio.Buffer;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.util.List;
import java.util.Objects;
import java.util.concurrent.atomic.AtomicInteger;

/**
 * One processing instance for one stream: a fixed sample rate and channel count, its own preset, intensity,
 * bypass flag and audio state.
 *
 * <pre>{@code
 * try (Processor processor = new Processor(48000, 2)) {   // default preset, intensity 1
 *   processor.setIntensity(0.8f);
 *   processor.process(buffer, SampleFormat.PCM_16_BIT);  // a direct ByteBuffer, in place
 * }
 * }</pre>
 *
 * <p><b>Audio.</b> {@code process} takes any number of frames per call, as non-interleaved float arrays or as
 * interleaved 16-bit or float samples in direct {@link ByteBuffer}s, and may switch between them. The output is
 * delayed behind the input by exactly {@link #getLatencyFrames()} frames whatever the lengths of the calls (the
 * library's latency plus one of its hops: input waits here until whole hops are there), and a stream gives the
 * same output however it is cut into calls. On direct buffers {@code process} neither allocates nor copies
 * through the virtual machine; float arrays are copied in and out. Samples are full scale at +-1.0; NaN and
 * infinite samples are processed as silence.
 *
 * <p><b>Threads.</b> One audio thread calls {@code process} and {@link #getBandReadout}; meanwhile one control
 * thread may call the setters and getters (intensity, bypass, preset, latency). A setting takes effect at the
 * start of the next {@code process} call, for the whole call; a preset is in force wholly or not at all. Neither
 * thread waits for the other. Control calls from several threads are serialised here; audio calls from two
 * threads at once are refused with {@link IllegalStateException}, as is every call after {@link #close()}
 * (except {@code close} itself and the configuration getters). {@code close} from another thread waits for a
 * running {@code process} call to return. A Processor that is never closed is freed once it is unreachable.
 *
 * <p>A new Processor has the built-in default preset ({@link Preset#defaults()}) and intensity 1. Its mix starts
 * fully processed and eases to the intensity set (or to dry when bypassed) over about 50 ms.
 */
public final class Processor implements AutoCloseable {
  /** Bands of the read-out: 0..12 carry the preset's controls, 13 (above 13.45 kHz) always has a gain of 0 dB. */
  public static final int READOUT_BAND_COUNT = 14;
  /** The largest block handed to the library at once unless the constructor is told otherwise. */
  public static final int DEFAULT_MAX_BLOCK_FRAMES = 1024;

  static {
    NativeLibrary.load();
  }

  private static final int CLOSED = 1;
  private static final int AUDIO_BUSY = 2;

  private final AtomicInteger state = new AtomicInteger();
  private final Object control = new Object();
  private final long handle;
  private final Reclaimer.Cleanable release;
  private final float sampleRateHz;
  private final int maxBlockFrames;
  private final int channels;
  private final int latencyFrames;

  /** As {@link #Processor(float, int, int)} with {@link #DEFAULT_MAX_BLOCK_FRAMES}. */
  public Processor(float sampleRateHz, int channels) {
    this(sampleRateHz, DEFAULT_MAX_BLOCK_FRAMES, channels);
  }

  /**
   * Sets a processor up.
   *
   * @param sampleRateHz 32000 to 192000 Hz
   * @param maxBlockFrames the most frames handed to the library at once (at least 1; below one hop, one hop is
   *     used); it sizes the native buffers, not the calls, which may be of any length
   * @param channels 1 (mono) or 2 (stereo: channel 0 left, 1 right)
   * @throws IllegalArgumentException for a rate, block size or channel count the library does not take
   */
  public Processor(float sampleRateHz, int maxBlockFrames, int channels) {
    if (channels != 1 && channels != 2) {
      throw new IllegalArgumentException("channels must be 1 (mono) or 2 (stereo), not " + channels);
    }
    if (maxBlockFrames < 1) {
      throw new IllegalArgumentException("maxBlockFrames must be at least 1, not " + maxBlockFrames);
    }
    handle = nativeCreate(sampleRateHz, maxBlockFrames, channels);
    if (handle == 0) {
      throw new IllegalArgumentException(
          "the library does not take sampleRateHz=" + sampleRateHz + " (32000 to 192000 Hz are supported)");
    }
    release = Reclaimer.register(this, new Release(handle));
    this.sampleRateHz = sampleRateHz;
    this.maxBlockFrames = maxBlockFrames;
    this.channels = channels;
    latencyFrames = nativeLatency(handle);
    applyPreset(Preset.defaults());
    setIntensity(1.0f);
  }

  /** Frees the native instance: holds no reference to the Processor. */
  private static final class Release implements Runnable {
    private final long handle;

    Release(long handle) {
      this.handle = handle;
    }

    @Override
    public void run() {
      nativeDestroy(handle);
    }
  }

  /**
   * Processes non-interleaved float channels in place: {@code audio[c]} is channel {@code c}, all of one length.
   *
   * @throws IllegalArgumentException when the channel count does not match
   * @throws IndexOutOfBoundsException when a channel is shorter than the first
   * @throws IllegalStateException after {@link #close()}, or while another thread is in {@code process}
   */
  public void process(float[][] audio) {
    Objects.requireNonNull(audio, "audio");
    process(audio, 0, audio.length > 0 && audio[0] != null ? audio[0].length : 0);
  }

  /**
   * Processes frames {@code offset .. offset + frames - 1} of non-interleaved float channels in place.
   *
   * @throws IllegalArgumentException when the channel count does not match
   * @throws IndexOutOfBoundsException when a channel array does not hold those frames
   * @throws IllegalStateException after {@link #close()}, or while another thread is in {@code process}
   */
  public void process(float[][] audio, int offset, int frames) {
    Objects.requireNonNull(audio, "audio");
    if (audio.length != channels) {
      throw new IllegalArgumentException("audio must hold " + channels + " channel arrays, not " + audio.length);
    }
    for (int c = 0; c < channels; ++c) {
      if (audio[c] == null) {
        throw new NullPointerException("audio[" + c + "] is null");
      }
      if (offset < 0 || frames < 0 || offset > audio[c].length - frames) {
        throw new IndexOutOfBoundsException("audio[" + c + "] holds " + audio[c].length + " frames, not frames "
            + offset + " to " + ((long) offset + frames - 1));
      }
    }
    enterAudio();
    try {
      if (!nativeProcessArrays(handle, audio[0], channels > 1 ? audio[1] : null, offset, frames)) {
        throw new IllegalStateException("the library refused to process a block");
      }
    } finally {
      leaveAudio();
    }
  }

  /**
   * Processes the interleaved samples between the buffer's position and limit in place; position and limit stay
   * where they are.
   *
   * @param buffer a direct buffer in the platform's byte order ({@link ByteOrder#nativeOrder()}), holding whole
   *     frames
   * @throws IllegalArgumentException for a heap or read-only buffer, another byte order or a partial frame
   * @throws IllegalStateException after {@link #close()}, or while another thread is in {@code process}
   */
  public void process(ByteBuffer buffer, SampleFormat format) {
    int frames = wholeFrames(buffer, format, "buffer");
    writable(buffer, "buffer");
    processBuffers(buffer, format, buffer, format, frames);
  }

  /**
   * Processes the interleaved samples between the input's position and limit into the output at its position, in
   * the output's format (16-bit in and float out, say). The input's position moves to its limit, the output's by
   * the bytes written. The two may be the same memory only frame for frame in the same format; otherwise they
   * must not overlap.
   *
   * @param input a direct buffer in the platform's byte order, holding whole frames
   * @param output a direct, writable buffer in the platform's byte order with room for as many frames
   * @throws IllegalArgumentException for heap or read-only buffers, another byte order, a partial frame, too
   *     little room or overlapping buffers
   * @throws IllegalStateException after {@link #close()}, or while another thread is in {@code process}
   */
  public void process(ByteBuffer input, SampleFormat inputFormat, ByteBuffer output, SampleFormat outputFormat) {
    int frames = wholeFrames(input, inputFormat, "input");
    check(output, outputFormat, "output");
    writable(output, "output");
    int room = output.remaining() / (channels * outputFormat.bytesPerSample());
    if (room < frames) {
      throw new IllegalArgumentException(
          "output has room for " + room + " frames, but the input holds " + frames + " frames");
    }
    processBuffers(input, inputFormat, output, outputFormat, frames);
    // Through Buffer: ByteBuffer's own position(int) is missing on older Android.
    Buffer in = input;
    Buffer out = output;
    in.position(in.limit());
    out.position(out.position() + frames * channels * outputFormat.bytesPerSample());
  }

  private static void check(ByteBuffer buffer, SampleFormat format, String name) {
    Objects.requireNonNull(buffer, name);
    Objects.requireNonNull(format, "format");
    if (!buffer.isDirect()) {
      throw new IllegalArgumentException(name + " must be a direct ByteBuffer (ByteBuffer.allocateDirect)");
    }
    if (buffer.order() != ByteOrder.nativeOrder()) {
      throw new IllegalArgumentException(
          name + " must be in the platform's byte order: call order(ByteOrder.nativeOrder()) on it");
    }
  }

  private int wholeFrames(ByteBuffer buffer, SampleFormat format, String name) {
    check(buffer, format, name);
    int frameBytes = channels * format.bytesPerSample();
    if (buffer.remaining() % frameBytes != 0) {
      throw new IllegalArgumentException(name + " holds " + buffer.remaining() + " bytes, not whole frames of "
          + frameBytes + " bytes (" + channels + " channels of " + format + ")");
    }
    return buffer.remaining() / frameBytes;
  }

  private static void writable(ByteBuffer buffer, String name) {
    if (buffer.isReadOnly()) {
      throw new IllegalArgumentException(name + " is read-only");
    }
  }

  private void processBuffers(ByteBuffer input, SampleFormat inputFormat, ByteBuffer output,
      SampleFormat outputFormat, int frames) {
    enterAudio();
    int status;
    try {
      status = nativeProcessBuffers(handle, input, input.position(), inputFormat.ordinal(), output,
          output.position(), outputFormat.ordinal(), frames);
    } finally {
      leaveAudio();
    }
    if (status == 2) {
      throw new IllegalArgumentException(
          "input and output overlap: they may share memory only frame for frame, in the same format");
    }
    if (status != 0) {
      throw new IllegalStateException("the library refused to process a block");
    }
  }

  /**
   * What the dynamics did in the last hop processed: per band and channel (index {@code band * 2 + channel}, 14
   * bands) the band level the gain computer saw and the band gain, both in dB. A mono processor leaves channel 1
   * at its start values; before the first hop, and while the processed path is skipped (intensity 0, or
   * bypassed), levels read -758.6 dB and gains 0 dB, or the last values. On the audio thread, between
   * {@code process} calls; allocation-free.
   *
   * @param levelsDb receives {@code READOUT_BAND_COUNT * 2} values
   * @param gainsDb receives {@code READOUT_BAND_COUNT * 2} values
   */
  public void getBandReadout(float[] levelsDb, float[] gainsDb) {
    Objects.requireNonNull(levelsDb, "levelsDb");
    Objects.requireNonNull(gainsDb, "gainsDb");
    if (levelsDb.length < READOUT_BAND_COUNT * 2 || gainsDb.length < READOUT_BAND_COUNT * 2) {
      throw new IllegalArgumentException("levelsDb and gainsDb must hold " + READOUT_BAND_COUNT * 2
          + " values, not " + levelsDb.length + " and " + gainsDb.length);
    }
    enterAudio();
    try {
      nativeBandReadout(handle, levelsDb, gainsDb);
    } finally {
      leaveAudio();
    }
  }

  /**
   * Sets the share of the processed signal from the next {@code process} call on: 0 (dry, delayed) to 1 (fully
   * processed); values outside are clamped. The mix eases to it over about 50 ms.
   *
   * @throws IllegalArgumentException for NaN
   */
  public void setIntensity(float intensity) {
    if (Float.isNaN(intensity)) {
      throw new IllegalArgumentException("intensity must be a number from 0 to 1, not NaN");
    }
    synchronized (control) {
      checkOpen();
      nativeSetIntensity(handle, intensity);
    }
  }

  /** The intensity last set, 0 to 1. */
  public float getIntensity() {
    synchronized (control) {
      checkOpen();
      return nativeIntensity(handle);
    }
  }

  /** Bypassed, the input passes unprocessed (still delayed by the latency); the mix fades over about 50 ms. */
  public void setBypassed(boolean bypassed) {
    synchronized (control) {
      checkOpen();
      nativeSetBypassed(handle, bypassed);
    }
  }

  /** The bypass flag last set. */
  public boolean isBypassed() {
    synchronized (control) {
      checkOpen();
      return nativeBypassed(handle);
    }
  }

  /**
   * Puts a preset in force on this Processor only, from the next {@code process} call on.
   *
   * @throws IllegalArgumentException naming band, channel, field and allowed range of each refused value
   */
  public void applyPreset(Preset preset) {
    applyPayload(Objects.requireNonNull(preset, "preset").toPayload());
  }

  /**
   * Puts a preset payload ({@link Preset#PAYLOAD_SIZE} bytes, as stored by a settings screen) in force on this
   * Processor only, from the next {@code process} call on.
   *
   * @throws IllegalArgumentException for another length, or naming each value the library refuses
   */
  public void applyPayload(byte[] payload) {
    Objects.requireNonNull(payload, "payload");
    if (payload.length != Preset.PAYLOAD_SIZE) {
      throw new IllegalArgumentException(
          "a preset payload is " + Preset.PAYLOAD_SIZE + " bytes, not " + payload.length);
    }
    // Checked here, so that the library never sees (nor reports) a refused value.
    List<String> refused = Preset.fromPayload(payload).refused();
    if (!refused.isEmpty()) {
      throw new IllegalArgumentException("the library refused the preset payload: " + Preset.joined(refused));
    }
    boolean applied;
    synchronized (control) {
      checkOpen();
      applied = nativeApplyPayload(handle, payload);
    }
    if (!applied) {
      throw new IllegalArgumentException("the library refused the preset payload");
    }
  }

  /** The payload in force ({@link Preset#PAYLOAD_SIZE} bytes, a copy). */
  public byte[] getPayload() {
    byte[] payload = new byte[Preset.PAYLOAD_SIZE];
    synchronized (control) {
      checkOpen();
      nativePayload(handle, payload);
    }
    return payload;
  }

  /** The preset in force, decoded from its payload (a copy: changing it changes nothing until applied). */
  public Preset getPreset() {
    return Preset.fromPayload(getPayload());
  }

  /** The delay of the output behind the input, frames; constant for the Processor's life. */
  public int getLatencyFrames() {
    checkOpen();
    return latencyFrames;
  }

  /** The version of the processing core, for example for an about screen. */
  public String getCoreVersion() {
    synchronized (control) {
      checkOpen();
      return nativeCoreVersion(handle);
    }
  }

  /** The version of the library's C interface, for example "3.4.0". */
  public static String getVersion() {
    return nativeInterfaceVersion();
  }

  /** Sample rate, Hz, as given. */
  public float getSampleRateHz() {
    return sampleRateHz;
  }

  /** Channel count, 1 or 2. */
  public int getChannelCount() {
    return channels;
  }

  /** The largest block handed to the library at once, frames, as given. */
  public int getMaxBlockFrames() {
    return maxBlockFrames;
  }

  /** True once {@link #close()} was called. */
  public boolean isClosed() {
    return (state.get() & CLOSED) != 0;
  }

  /**
   * Frees the native instance now. Closing again does nothing; every other call except the configuration
   * getters then throws {@link IllegalStateException}. Waits for a {@code process} call running on another
   * thread to return.
   */
  @Override
  public void close() {
    synchronized (control) {
      int now;
      do {
        now = state.get();
        if ((now & CLOSED) != 0) {
          return;
        }
      } while (!state.compareAndSet(now, now | CLOSED));
      while ((state.get() & AUDIO_BUSY) != 0) {
        Thread.yield();
      }
      release.clean();
    }
  }

  private void checkOpen() {
    if ((state.get() & CLOSED) != 0) {
      throw new IllegalStateException("the Processor is closed");
    }
  }

  private void enterAudio() {
    if (!state.compareAndSet(0, AUDIO_BUSY)) {
      checkOpen();
      throw new IllegalStateException("process and getBandReadout must not run on two threads at once");
    }
  }

  private void leaveAudio() {
    int now;
    do {
      now = state.get();
    } while (!state.compareAndSet(now, now & ~AUDIO_BUSY));
  }

  private static native long nativeCreate(float sampleRateHz, int maxBlockFrames, int channels);

  private static native void nativeDestroy(long handle);

  private static native String nativeInterfaceVersion();

  // Instance methods, so that the Processor stays reachable (and its native
  // instance alive) for as long as they run.
  private native int nativeLatency(long handle);

  private native boolean nativeProcessArrays(long handle, float[] left, float[] right, int offset, int frames);

  private native int nativeProcessBuffers(long handle, ByteBuffer input, int inputPosition, int inputFormat,
      ByteBuffer output, int outputPosition, int outputFormat, int frames);

  private native boolean nativeSetIntensity(long handle, float intensity);

  private native float nativeIntensity(long handle);

  private native boolean nativeSetBypassed(long handle, boolean bypassed);

  private native boolean nativeBypassed(long handle);

  private native boolean nativeApplyPayload(long handle, byte[] payload);

  private native void nativePayload(long handle, byte[] payload);

  private native boolean nativeBandReadout(long handle, float[] levelsDb, float[] gainsDb);

  private native String nativeCoreVersion(long handle);
}
