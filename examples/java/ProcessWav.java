package org.larkspin.example;

import java.io.IOException;
import java.io.InputStream;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.Paths;
import java.nio.file.StandardCopyOption;
import java.util.Arrays;
import javax.sound.sampled.AudioFileFormat;
import javax.sound.sampled.AudioFormat;
import javax.sound.sampled.AudioInputStream;
import javax.sound.sampled.AudioSystem;
import javax.sound.sampled.UnsupportedAudioFileException;
import org.larkspin.Processor;
import org.larkspin.SampleFormat;

/**
 * Processes a WAV file (or any file javax.sound.sampled reads: mono or stereo PCM at 32 to 192 kHz) with the
 * default preset and writes a 16-bit WAV file of the same rate and length, lined up with the input:
 *
 * <pre>
 * java -Djava.library.path=LIBDIR -cp larkspin.jar:larkspin-example.jar \
 *     org.larkspin.example.ProcessWav in.wav out.wav [intensity]
 * </pre>
 *
 * The file is streamed through a direct buffer, as an app's audio pipeline would; the output goes to a
 * temporary file beside it, renamed into place when complete, and never over the input.
 */
public final class ProcessWav {
  private ProcessWav() {}

  public static void main(String[] args) {
    if (args.length < 2 || args.length > 3) {
      System.err.println("usage: ProcessWav IN.wav OUT.wav [INTENSITY 0..1]");
      System.exit(2);
    }
    try {
      process(Paths.get(args[0]), Paths.get(args[1]), args.length > 2 ? Float.parseFloat(args[2]) : 1.0f);
    } catch (IOException | UnsupportedAudioFileException | IllegalArgumentException failed) {
      System.err.println("ProcessWav: " + failed.getMessage());
      System.exit(1);
    }
  }

  public static void process(Path input, Path output, float intensity)
      throws IOException, UnsupportedAudioFileException {
    if (Files.exists(output) && Files.isSameFile(input, output)) {
      throw new IOException("will not write over the input " + input);
    }
    try (AudioInputStream source = AudioSystem.getAudioInputStream(input.toFile())) {
      AudioFormat format = source.getFormat();
      if (source.getFrameLength() == AudioSystem.NOT_SPECIFIED) {
        throw new UnsupportedAudioFileException(input + " does not say how long it is");
      }
      // 16-bit samples in the platform's byte order, as the processor reads them.
      AudioFormat pcm16 = new AudioFormat(format.getSampleRate(), 16, format.getChannels(), true,
          ByteOrder.nativeOrder() == ByteOrder.BIG_ENDIAN);
      Path temp = Files.createTempFile(output.toAbsolutePath().getParent(), ".larkspin-", ".wav");
      try (AudioInputStream samples = AudioSystem.getAudioInputStream(pcm16, source);
          Processor processor = new Processor(format.getSampleRate(), format.getChannels())) {
        processor.setIntensity(intensity);
        AudioInputStream processed =
            new AudioInputStream(new Aligned(samples, processor), pcm16, source.getFrameLength());
        AudioSystem.write(processed, AudioFileFormat.Type.WAVE, temp.toFile());
        Files.move(temp, output, StandardCopyOption.REPLACE_EXISTING, StandardCopyOption.ATOMIC_MOVE);
      } finally {
        Files.deleteIfExists(temp);
      }
    }
  }

  /** The processed samples moved earlier by the processor's delay, so that they line up with the input. */
  private static final class Aligned extends InputStream {
    private final InputStream source;
    private final Processor processor;
    private final byte[] chunk;
    private final ByteBuffer buffer;
    private final int frameBytes;
    private long skipBytes; // the delay at the start, dropped
    private long flushBytes; // silence after the end that pushes the last samples out
    private boolean ended;

    Aligned(InputStream source, Processor processor) {
      this.source = source;
      this.processor = processor;
      frameBytes = 2 * processor.getChannelCount();
      chunk = new byte[4096 * frameBytes];
      buffer = ByteBuffer.allocateDirect(chunk.length).order(ByteOrder.nativeOrder());
      buffer.limit(0);
      skipBytes = (long) processor.getLatencyFrames() * frameBytes;
      flushBytes = skipBytes;
    }

    @Override
    public int read() throws IOException {
      byte[] one = new byte[1];
      return read(one, 0, 1) < 0 ? -1 : one[0] & 0xff;
    }

    @Override
    public int read(byte[] to, int offset, int length) throws IOException {
      while (!buffer.hasRemaining()) {
        if (!refill()) {
          return -1;
        }
      }
      int count = Math.min(length, buffer.remaining());
      buffer.get(to, offset, count);
      return count;
    }

    private boolean refill() throws IOException {
      int filled = 0;
      while (!ended && filled < chunk.length) {
        int count = source.read(chunk, filled, chunk.length - filled);
        ended = count < 0;
        filled += Math.max(count, 0);
      }
      if (ended) {
        int silence = (int) Math.min(flushBytes, chunk.length - filled);
        Arrays.fill(chunk, filled, filled + silence, (byte) 0);
        filled += silence;
        flushBytes -= silence;
      }
      filled -= filled % frameBytes;
      if (filled == 0) {
        return false;
      }
      buffer.clear();
      buffer.put(chunk, 0, filled).flip();
      processor.process(buffer, SampleFormat.PCM_16_BIT);
      int skip = (int) Math.min(skipBytes, filled);
      buffer.position(skip);
      skipBytes -= skip;
      return true;
    }
  }
}
