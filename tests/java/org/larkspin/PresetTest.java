package org.larkspin;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNotEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.util.List;
import java.util.concurrent.atomic.AtomicInteger;
import org.junit.jupiter.api.Test;

class PresetTest {
  /** The default with alternating band gains and stronger compression: it changes the sound audibly. */
  static Preset audiblePreset() {
    Preset preset = Preset.defaults();
    for (int band = 0; band < Preset.BAND_COUNT; ++band) {
      preset.gainDb[band][band % 2] += band % 2 == 0 ? -3.0f : 4.0f;
      preset.fastRatio[band][0] = 0.4f;
      preset.fastRatio[band][1] = 0.4f;
    }
    return preset;
  }

  @Test
  void presetsTravelAsPayloadsAndThroughAProcessor() {
    Preset defaults = Preset.defaults();
    assertTrue(defaults.check().isEmpty());
    assertEquals(defaults, Preset.fromPayload(defaults.toPayload()));
    Preset changed = defaults.copy();
    changed.slowFactor[2] = 0.0f;
    assertNotEquals(defaults, changed);
    try (Processor processor = new Processor(48000, 1)) {
      assertEquals(defaults, processor.getPreset());
      processor.applyPreset(changed);
      assertEquals(changed, processor.getPreset());
    }
  }

  @Test
  void checkAndRefusalsUseTheLibrarysWords() {
    Preset preset = Preset.defaults();
    preset.gainDb[7][0] = 6.0f;
    preset.fastRatio[3][1] = 0.299f;
    assertEquals(List.of("band 3, channel 1, fastRatio = 0.299 is stored as 0.298039",
        "band 7, channel 0, gainDb = 6 is stored as 5.9866"), preset.check());
    preset.slowDelayMs[5] = 300.0f;
    preset.gainDb[9][1] = Float.NaN;
    String refused = assertThrows(IllegalArgumentException.class, preset::toPayload).getMessage();
    assertEquals("preset refused: band 5, slowDelayMs = 300 is outside the allowed range 0 to 255; "
        + "band 9, channel 1, gainDb is not a number", refused);
    preset.gainDb[2] = new float[1];
    String shape = assertThrows(IllegalArgumentException.class, preset::check).getMessage();
    assertEquals("gainDb[2] must hold 2 values", shape);
    assertThrows(IllegalArgumentException.class, () -> Preset.fromPayload(new byte[197]));
  }

  @Test
  void theFallbackReclaimerRunsForEveryDroppedObject() throws InterruptedException {
    AtomicInteger ran = new AtomicInteger();
    for (int i = 0; i < 10_000; ++i) {
      Reclaimer.phantom(new Object(), ran::incrementAndGet);
    }
    Reclaimer.Cleanable early = Reclaimer.phantom(ran, () -> ran.addAndGet(1_000_000));
    early.clean();
    early.clean(); // runs once
    for (int wait = 0; wait < 200 && ran.get() != 1_010_000; ++wait) {
      System.gc();
      Thread.sleep(20);
    }
    assertEquals(1_010_000, ran.get());
  }
}
