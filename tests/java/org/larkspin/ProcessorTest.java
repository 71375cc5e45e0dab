package org.larkspin;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.ByteArrayInputStream;
import java.io.IOException;
import java.lang.management.ManagementFactory;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.Arrays;
import java.util.Random;
import java.util.concurrent.atomic.AtomicReference;
import java.util.function.Consumer;
import java.util.stream.Stream;
import javax.sound.sampled.AudioFileFormat.Type;
import javax.sound.sampled.AudioFormat;
import javax.sound.sampled.AudioInputStream;
import javax.sound.sampled.AudioSystem;
import org.larkspin.example.ProcessWav;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.Arguments;
import org.junit.jupiter.params.provider.CsvSource;
import org.junit.jupiter.params.provider.MethodSource;

/** The binding gives the C interface's samples, one hop later, however the stream is cut and stored. */
class ProcessorTest {
  static final float RATE = 48000;
  static final int HOP = 64; // the library's hop at 48 kHz: the binding's delay adds one
  static final byte[] PAYLOAD = PresetTest.audiblePreset().toPayload();

  static float[][] noise(int channels, int frames, long seed) {
    Random random = new Random(seed);
    float[][] x = new float[channels][frames];
    for (float[] channel : x) {
      for (int i = 0; i < frames; ++i) {
        channel[i] = (float) (0.3 * random.nextGaussian());
      }
    }
    return x;
  }

  /** The C interface's output for the first {@code frames} frames of x, in whole hops, delayed by one hop. */
  static float[][] expected(float[][] x, int frames, float intensity) {
    float[][] reference = new float[x.length][(frames / 1024 + 1) * 1024];
    for (int c = 0; c < x.length; ++c) {
      System.arraycopy(x[c], 0, reference[c], 0, frames);
    }
    CReference.process(RATE, 1024, PAYLOAD, intensity, reference);
    float[][] y = new float[x.length][frames];
    for (int c = 0; c < x.length; ++c) {
      System.arraycopy(reference[c], 0, y[c], HOP, Math.max(frames - HOP, 0));
    }
    return y;
  }

  static Processor audible(int maxBlock, int channels) {
    Processor processor = new Processor(RATE, maxBlock, channels);
    processor.applyPayload(PAYLOAD);
    processor.setIntensity(0.7f);
    return processor;
  }

  static ByteBuffer direct(int bytes) {
    return ByteBuffer.allocateDirect(bytes).order(ByteOrder.nativeOrder());
  }

  @ParameterizedTest
  @CsvSource({"1, 1024, 0 1 333 2500 0 1", "2, 256, 1 0 4097 77 64", "2, 1, 5 100 3 1000"})
  void floatArraysGiveTheCInterfacesSamples(int channels, int maxBlock, String cuts) {
    int[] pieces = Arrays.stream(cuts.split(" ")).mapToInt(Integer::parseInt).toArray();
    int frames = Arrays.stream(pieces).sum();
    float[][] y = noise(channels, frames, 1);
    float[][] want = expected(y, frames, 0.7f);
    try (Processor processor = audible(maxBlock, channels)) {
      int first = 0;
      for (int n : pieces) {
        processor.process(y, first, n);
        first += n;
      }
    }
    for (int c = 0; c < channels; ++c) {
      assertArrayEquals(want[c], y[c]); // bit for bit
    }
  }

  /** 16-bit and float buffers, in place or from one into another, at an odd byte offset and cut unevenly. */
  @ParameterizedTest
  @CsvSource({"PCM_16_BIT, PCM_16_BIT, true", "PCM_FLOAT, PCM_FLOAT, true", "PCM_16_BIT, PCM_FLOAT, false",
      "PCM_FLOAT, PCM_16_BIT, false"})
  void directBuffersGiveTheCInterfacesSamples(SampleFormat inFormat, SampleFormat outFormat, boolean inPlace) {
    int frames = 5000;
    int lead = 3;
    Random random = new Random(2);
    float[][] x = new float[2][frames];
    ByteBuffer in = direct(lead + frames * 2 * inFormat.bytesPerSample());
    in.position(lead);
    for (int i = 0; i < frames; ++i) {
      for (int c = 0; c < 2; ++c) { // full-scale 16-bit values, both extremes included
        short s = i < 2 ? (c == i ? Short.MIN_VALUE : Short.MAX_VALUE) : (short) random.nextInt();
        x[c][i] = s / 32768f;
        if (inFormat == SampleFormat.PCM_16_BIT) {
          in.putShort(s);
        } else {
          in.putFloat(x[c][i]);
        }
      }
    }
    float[][] want = expected(x, frames, 0.7f);
    ByteBuffer out = inPlace ? in : direct(lead + frames * 2 * outFormat.bytesPerSample());
    out.position(lead);
    in.position(lead);
    try (Processor processor = audible(512, 2)) {
      int frameBytes = 2 * inFormat.bytesPerSample();
      for (int n : new int[] {1, 0, 333, 2100, 7, frames - 2441}) {
        in.limit(in.position() + n * frameBytes);
        if (inPlace) {
          processor.process(in, inFormat);
          in.position(in.limit());
        } else {
          processor.process(in, inFormat, out, outFormat);
        }
      }
    }
    out.position(lead);
    for (int i = 0; i < frames; ++i) {
      for (int c = 0; c < 2; ++c) {
        if (outFormat == SampleFormat.PCM_16_BIT) {
          assertEquals((short) Math.max(-32768, Math.min(32767, Math.rint(want[c][i] * 32768.0))), out.getShort());
        } else {
          assertEquals(Float.floatToIntBits(want[c][i]), Float.floatToIntBits(out.getFloat()));
        }
      }
    }
  }

  /** A processor at intensity 0 whose mix has settled: the input comes out exactly, delayed. */
  static Processor dry(int channels) {
    Processor processor = new Processor(RATE, channels);
    processor.setIntensity(0);
    processor.process(new float[channels][2 * (int) RATE]);
    return processor;
  }

  /** How the stream is cut does not matter (the float array cases above): one call shows the delay. */
  @Test
  void delayIsTheReportedLatency() {
    float[][] x = noise(2, 20000, 4);
    try (Processor processor = dry(2)) {
      int latency = processor.getLatencyFrames();
      assertEquals(3 * HOP + HOP, latency);
      float[][] y = {x[0].clone(), x[1].clone()};
      processor.process(y);
      for (int c = 0; c < 2; ++c) {
        assertArrayEquals(Arrays.copyOf(x[c], x[c].length - latency), Arrays.copyOfRange(y[c], latency, y[c].length));
      }
    }
  }

  @Test
  void pcm16IsScaledBy32768RoundedHalfToEvenAndClipped() {
    float[] given = {1.0f, -1.0f, 1.5f, -2.0f, 0.5f / 32768, 1.5f / 32768, 2.5f / 32768, -1.5f / 32768,
        32766.5f / 32768, 32767.4f / 32768, Float.NaN, Float.POSITIVE_INFINITY};
    short[] want = {32767, -32768, 32767, -32768, 0, 2, 2, -2, 32766, 32767, 0, 0};
    short[] pcm = {-32768, 32767, 1, -1};
    try (Processor processor = dry(1)) {
      int latency = processor.getLatencyFrames();
      ByteBuffer floats = direct(4 * (latency + given.length));
      ByteBuffer shorts = direct(2 * (latency + given.length));
      floats.asFloatBuffer().put(given);
      processor.process(floats, SampleFormat.PCM_FLOAT, shorts, SampleFormat.PCM_16_BIT);
      short[] got = new short[given.length];
      shorts.position(2 * latency);
      shorts.asShortBuffer().get(got);
      assertArrayEquals(want, got);

      shorts.clear();
      floats.clear();
      shorts.asShortBuffer().put(pcm);
      processor.process(shorts, SampleFormat.PCM_16_BIT, floats, SampleFormat.PCM_FLOAT);
      float[] back = new float[pcm.length];
      floats.position(4 * latency);
      floats.asFloatBuffer().get(back);
      assertArrayEquals(new float[] {-1.0f, 32767f / 32768, 1f / 32768, -1f / 32768}, back);
    }
  }

  static Stream<Arguments> refusals() {
    ByteBuffer shared = direct(80);
    return Stream.of(
        refused(p -> new Processor(RATE, 3), IllegalArgumentException.class, "channels must be 1 (mono) or 2"),
        refused(p -> new Processor(8000, 2), IllegalArgumentException.class, "32000 to 192000 Hz"),
        refused(p -> new Processor(RATE, 0, 2), IllegalArgumentException.class, "maxBlockFrames must be at least 1"),
        refused(p -> p.process(new float[3][8]), IllegalArgumentException.class, "2 channel arrays, not 3"),
        refused(p -> p.process(new float[][] {new float[8], new float[7]}), IndexOutOfBoundsException.class,
            "audio[1] holds 7 frames"),
        refused(p -> p.process(new float[2][8], 5, 4), IndexOutOfBoundsException.class, "not frames 5 to 8"),
        refused(p -> p.process(ByteBuffer.allocate(8), SampleFormat.PCM_16_BIT), IllegalArgumentException.class,
            "buffer must be a direct ByteBuffer"),
        refused(p -> p.process(ByteBuffer.allocateDirect(8).order(ByteOrder.BIG_ENDIAN), SampleFormat.PCM_FLOAT),
            IllegalArgumentException.class, "order(ByteOrder.nativeOrder())"),
        refused(p -> p.process(direct(6), SampleFormat.PCM_16_BIT), IllegalArgumentException.class,
            "holds 6 bytes, not whole frames of 4 bytes"),
        refused(p -> p.process(direct(16), SampleFormat.PCM_FLOAT, direct(15), SampleFormat.PCM_FLOAT),
            IllegalArgumentException.class, "output has room for 1 frames, but the input holds 2"),
        refused(p -> p.process(direct(16).asReadOnlyBuffer().order(ByteOrder.nativeOrder()),
            SampleFormat.PCM_FLOAT),
            IllegalArgumentException.class, "buffer is read-only"),
        refused(p -> p.process(shared.duplicate().order(ByteOrder.nativeOrder()).limit(40), SampleFormat.PCM_16_BIT,
            shared, SampleFormat.PCM_FLOAT), IllegalArgumentException.class, "overlap"),
        refused(p -> p.setIntensity(Float.NaN), IllegalArgumentException.class, "not NaN"),
        refused(p -> p.applyPayload(new byte[195]), IllegalArgumentException.class, "196 bytes, not 195"),
        refused(p -> p.applyPayload(new byte[196]), IllegalArgumentException.class,
            "refused the preset payload: band 0, channel 0, fastThresholdDb = 82.6094 is outside the allowed range"),
        refused(p -> p.getBandReadout(new float[28], new float[27]), IllegalArgumentException.class, "must hold 28"),
        refused(p -> {
          p.close();
          p.close();
          p.process(new float[2][4]);
        }, IllegalStateException.class, "the Processor is closed"),
        refused(p -> {
          p.close();
          p.setIntensity(1);
        }, IllegalStateException.class, "the Processor is closed"));
  }

  static Arguments refused(Consumer<Processor> call, Class<? extends Exception> type, String message) {
    return Arguments.of(call, type, message);
  }

  @ParameterizedTest
  @MethodSource("refusals")
  void badCallsAreRefusedWithWhatWasExpected(Consumer<Processor> call, Class<? extends Exception> type,
      String message) {
    try (Processor processor = new Processor(RATE, 2)) {
      Exception thrown = assertThrows(type, () -> call.accept(processor));
      assertTrue(thrown.getMessage().contains(message), thrown.getMessage());
    }
  }

  @Test
  void directBuffersAllocateNothing() {
    com.sun.management.ThreadMXBean threads = (com.sun.management.ThreadMXBean) ManagementFactory.getThreadMXBean();
    long thread = Thread.currentThread().getId();
    ByteBuffer in = direct(480 * 4);
    ByteBuffer out = direct(480 * 8);
    try (Processor processor = new Processor(RATE, 2)) {
      long allocated = 0;
      for (int round = 0; round < 2; ++round) { // the first round warms up
        long before = threads.getThreadAllocatedBytes(thread);
        for (int i = 0; i < 200; ++i) {
          in.clear();
          out.clear();
          processor.process(in, SampleFormat.PCM_16_BIT);
          processor.process(in, SampleFormat.PCM_16_BIT, out, SampleFormat.PCM_FLOAT);
        }
        allocated = threads.getThreadAllocatedBytes(thread) - before;
      }
      assertEquals(0, allocated);
    }
  }

  /** A control thread changes settings while the audio thread runs, then closes the processor under it. */
  @Test
  void controlThreadBesideAudioThread() throws InterruptedException {
    Processor processor = new Processor(RATE, 256, 2);
    ByteBuffer buffer = direct(480 * 8);
    AtomicReference<RuntimeException> ended = new AtomicReference<>();
    Thread audio = new Thread(() -> {
      try {
        while (true) {
          buffer.clear();
          processor.process(buffer, SampleFormat.PCM_FLOAT);
        }
      } catch (RuntimeException e) {
        ended.set(e);
      }
    });
    audio.start();
    for (int i = 0; i < 100; ++i) {
      processor.setIntensity(i % 3 * 0.5f);
      processor.setBypassed(i % 2 == 0);
      processor.applyPayload(i % 2 == 0 ? PAYLOAD : Preset.defaults().toPayload());
      assertEquals(i % 3 * 0.5f, processor.getIntensity());
      assertEquals(i % 2 == 0, processor.isBypassed());
    }
    processor.close();
    audio.join(10_000);
    assertEquals("the Processor is closed", ended.get().getMessage());
  }

  @Test
  void bandReadoutAndVersions() {
    float[] levelsDb = new float[28];
    float[] gainsDb = new float[28];
    try (Processor processor = new Processor(RATE, 2)) {
      processor.process(noise(2, 4800, 5));
      processor.getBandReadout(levelsDb, gainsDb);
      assertTrue(processor.getCoreVersion().length() > 0);
    }
    for (int i = 0; i < 26; ++i) {
      assertTrue(levelsDb[i] > -100, "band level " + i + ": " + levelsDb[i]);
    }
    assertEquals(0.0f, gainsDb[26]); // the top band passes unchanged
    assertTrue(gainsDb[2 * 7] > 0.0f, "band 7 is lifted by the default preset");
    assertTrue(Processor.getVersion().matches("\\d+\\.\\d+\\.\\d+"));
  }

  /** The example lines the processed file up with its input, and never writes over it. */
  @Test
  void exampleProcessesAWavFile(@TempDir Path dir) throws Exception {
    int frames = 30000;
    ByteBuffer samples = direct(frames * 4);
    Random random = new Random(6);
    while (samples.hasRemaining()) {
      samples.putShort((short) (random.nextGaussian() * 6000));
    }
    byte[] bytes = new byte[frames * 4];
    samples.flip().get(bytes);
    Path in = dir.resolve("in.wav");
    AudioFormat format = new AudioFormat(RATE, 16, 2, true, ByteOrder.nativeOrder() == ByteOrder.BIG_ENDIAN);
    AudioSystem.write(new AudioInputStream(new ByteArrayInputStream(bytes), format, frames), Type.WAVE, in.toFile());
    byte[] written = Files.readAllBytes(in);

    ProcessWav.process(in, dir.resolve("out.wav"), 1.0f);
    byte[] got = AudioSystem.getAudioInputStream(dir.resolve("out.wav").toFile()).readAllBytes();
    try (Processor processor = new Processor(RATE, 2)) {
      int latencyBytes = 4 * processor.getLatencyFrames();
      ByteBuffer want = direct(bytes.length + latencyBytes).put(bytes).clear();
      processor.process(want, SampleFormat.PCM_16_BIT);
      byte[] aligned = new byte[bytes.length];
      want.position(latencyBytes).get(aligned);
      assertArrayEquals(aligned, got);
    }
    assertThrows(IOException.class, () -> ProcessWav.process(in, in, 1.0f));
    assertArrayEquals(written, Files.readAllBytes(in));
  }

  /** Ten thousand processors (640 kB each) dropped without close(): their native memory is freed all the same. */
  @Test
  void droppedProcessorsAreFreed() throws InterruptedException {
    new Processor(RATE, 2).close(); // whatever is allocated once
    long before = CReference.heapBytes();
    for (int i = 1; i <= 10_000; ++i) {
      new Processor(RATE, 2);
      if (i % 1000 == 0) {
        long grown = Long.MAX_VALUE;
        for (int wait = 0; wait < 50 && grown > 64 << 20; ++wait) { // until the reclaiming thread caught up
          System.gc();
          Thread.sleep(100);
          grown = CReference.heapBytes() - before;
        }
        assertTrue(grown <= 64 << 20, "native heap grew by " + (grown >> 20) + " MB after " + i + " processors");
      }
    }
  }
}
