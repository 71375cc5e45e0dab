package org.larkspin;

import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.util.Random;

/**
 * What {@code process} costs through Java against the C interface for the same audio, in one run: ten seconds
 * of 48 kHz stereo in blocks of 1024 frames, fastest of thirty runs of each path, interleaved so that all see the
 * same machine. The C interface is timed inside its process calls only, on a hot block buffer, as in a host's
 * audio callback. Run on a release build: {@code cmake --build build/release --target java_process_cost}.
 */
public final class ProcessCost {
  static final int RATE = 48000;
  static final int BLOCK = 1024;
  static final int FRAMES = RATE * 10 / BLOCK * BLOCK;

  private ProcessCost() {}

  public static void main(String[] args) {
    Random random = new Random(1);
    float[][] x = new float[2][FRAMES];
    for (float[] channel : x) {
      for (int i = 0; i < FRAMES; ++i) {
        channel[i] = (float) (0.1 * random.nextGaussian());
      }
    }
    byte[] payload = Preset.defaults().toPayload();
    String[] names = {"C interface", "float[][]", "direct float", "direct 16-bit"};
    long[] best = {Long.MAX_VALUE, Long.MAX_VALUE, Long.MAX_VALUE, Long.MAX_VALUE};
    for (int run = 0; run < 30; ++run) {
      float[][] y = {x[0].clone(), x[1].clone()};
      best[0] = Math.min(best[0], CReference.process(RATE, BLOCK, payload, 1.0f, y));
      best[1] = Math.min(best[1], arrays(x));
      best[2] = Math.min(best[2], buffers(x, SampleFormat.PCM_FLOAT));
      best[3] = Math.min(best[3], buffers(x, SampleFormat.PCM_16_BIT));
    }
    for (int i = 0; i < names.length; ++i) {
      System.out.printf("%-14s %8.1f ms  %6.1fx real time  ratio %.3f%n", names[i], best[i] / 1e6,
          10e9 / best[i], (double) best[i] / best[0]);
    }
  }

  static long arrays(float[][] x) {
    float[][] y = {x[0].clone(), x[1].clone()};
    try (Processor processor = new Processor(RATE, BLOCK, 2)) {
      long start = System.nanoTime();
      for (int first = 0; first < FRAMES; first += BLOCK) {
        processor.process(y, first, BLOCK);
      }
      return System.nanoTime() - start;
    }
  }

  static long buffers(float[][] x, SampleFormat format) {
    ByteBuffer all = ByteBuffer.allocateDirect(FRAMES * 2 * format.bytesPerSample()).order(ByteOrder.nativeOrder());
    for (int i = 0; i < FRAMES; ++i) {
      for (float[] channel : x) {
        if (format == SampleFormat.PCM_FLOAT) {
          all.putFloat(channel[i]);
        } else {
          all.putShort((short) Math.round(channel[i] * 32767));
        }
      }
    }
    int blockBytes = BLOCK * 2 * format.bytesPerSample();
    try (Processor processor = new Processor(RATE, BLOCK, 2)) {
      long start = System.nanoTime();
      for (int first = 0; first < all.capacity(); first += blockBytes) {
        all.limit(first + blockBytes).position(first);
        processor.process(all, format);
      }
      return System.nanoTime() - start;
    }
  }
}
