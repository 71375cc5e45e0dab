package org.larkspin;

/**
 * How samples are stored in a {@link java.nio.ByteBuffer}: interleaved (left, right, left, ...), in the
 * buffer's byte order, which must be the platform's ({@link java.nio.ByteOrder#nativeOrder()}).
 */
public enum SampleFormat {
  /**
   * Signed 16-bit integers. A sample {@code s} enters the library as {@code s / 32768}; a result {@code y}
   * leaves it as {@code y * 32768} rounded to the nearest integer (halves to the even one, as
   * {@link Math#rint}) and clipped to -32768..32767. So -1.0 becomes -32768, +1.0 and anything above
   * becomes 32767, and a 16-bit signal passes a bypassed processor unchanged.
   */
  PCM_16_BIT(2),
  /** 32-bit floats, full scale at +-1.0; NaN and infinities are processed as silence. */
  PCM_FLOAT(4);

  private final int bytesPerSample;

  SampleFormat(int bytesPerSample) {
    this.bytesPerSample = bytesPerSample;
  }

  /** Bytes of one sample of one channel: 2 or 4. */
  public int bytesPerSample() {
    return bytesPerSample;
  }
}
