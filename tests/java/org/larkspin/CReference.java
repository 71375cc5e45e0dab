package org.larkspin;

/** The library's C interface, for comparison. */
final class CReference {
  static {
    System.loadLibrary("larkspin_c_reference");
  }

  private CReference() {}

  /**
   * Processes {@code audio} (non-interleaved, in place) on a fresh C control in blocks of {@code block} frames
   * with the payload and intensity given; returns the nanoseconds spent in its process calls.
   */
  static native long process(float sampleRateHz, int block, byte[] payload, float intensity, float[][] audio);

  /** Bytes of native heap in use. */
  static native long heapBytes();
}
